// The summary cache on disk: one SQLite file a store, in one directory.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/summary_cache.h"

namespace trevix::summary_cache {

class SummaryDatabase;

// Whatever is wrong with the files costs time only: a damaged one is deleted and made anew, and
// where none can be made or written, nothing is kept and nothing fails.
class SqliteSummaryCache final : public SummaryCache {
 public:
    // `directory` is made (mode 0700, its parents too) when it is missing.
    explicit SqliteSummaryCache(std::string directory);
    ~SqliteSummaryCache() override;

    Result<bool> KnowsStore(const std::string& store_address) override;
    Result<FolderSummary> Load(const std::string& store_address,
                               const std::string& folder) override;
    Status Save(const std::string& store_address, const std::string& folder,
                const FolderSummary& before, const FolderSummary& now) override;

    // The file of a store, for those who want to look at it.
    std::string PathOf(const std::string& store_address) const;

 private:
    SummaryDatabase& Open(const std::string& store_address);

    std::string directory_;
    std::map<std::string, std::unique_ptr<SummaryDatabase>> databases_;
};

}  // namespace trevix::summary_cache
