// MemoryCache: a summary cache for one run that leaves nothing behind.
#pragma once

#include <map>
#include <string>

#include "platform/summary_cache.h"

namespace trevix::cli {

class MemoryCache final : public SummaryCache {
 public:
    Result<bool> KnowsStore(const std::string& store_address) override;
    Result<FolderSummary> Load(const std::string& store_address,
                               const std::string& folder) override;
    Status Save(const std::string& store_address, const std::string& folder,
                const FolderSummary& before, const FolderSummary& now) override;

 private:
    std::map<std::string, std::map<std::string, FolderSummary>> kept_;
};

}  // namespace trevix::cli
