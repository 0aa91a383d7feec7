// A summary cache in memory: for runs that must write nothing, and for tests.
#pragma once

#include <map>
#include <string>

#include "platform/summary_cache.h"

namespace trevix::summary_cache {

class MemorySummaryCache final : public SummaryCache {
 public:
    Result<bool> KnowsStore(const std::string& store_address) override {
        return stores_.contains(store_address);
    }

    Result<FolderSummary> Load(const std::string& store_address,
                               const std::string& folder) override {
        const auto store = stores_.find(store_address);
        if (store == stores_.end()) return FolderSummary{};
        const auto found = store->second.find(folder);
        return found == store->second.end() ? FolderSummary{} : found->second;
    }

    Status Save(const std::string& store_address, const std::string& folder,
                const FolderSummary& /*before*/, const FolderSummary& now) override {
        stores_[store_address][folder] = now;
        return {};
    }

 private:
    std::map<std::string, std::map<std::string, FolderSummary>> stores_;
};

}  // namespace trevix::summary_cache
