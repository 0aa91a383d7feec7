#include "contract/summary_cache_contract.h"

#include <stdlib.h>

#include <filesystem>

#include "platform/summary_cache/memory_summary_cache.h"
#include "platform/summary_cache/sqlite_summary_cache.h"

namespace trevix::contract {
namespace {

// Owns its directory.
class TemporarySqliteCache final : public SummaryCache {
 public:
    TemporarySqliteCache() {
        std::string pattern = testing::TempDir() + "trevix-cache-XXXXXX";
        directory_ = mkdtemp(pattern.data());
        cache_ = std::make_unique<summary_cache::SqliteSummaryCache>(directory_);
    }
    ~TemporarySqliteCache() override {
        cache_.reset();
        std::filesystem::remove_all(directory_);
    }
    Result<bool> KnowsStore(const std::string& store) override { return cache_->KnowsStore(store); }
    Result<FolderSummary> Load(const std::string& store, const std::string& folder) override {
        return cache_->Load(store, folder);
    }
    Status Save(const std::string& store, const std::string& folder, const FolderSummary& before,
                const FolderSummary& now) override {
        return cache_->Save(store, folder, before, now);
    }

 private:
    std::string directory_;
    std::unique_ptr<summary_cache::SqliteSummaryCache> cache_;
};

std::string CacheName(const testing::TestParamInfo<SummaryCacheParam>& row) {
    return row.param.name;
}

INSTANTIATE_TEST_SUITE_P(
    All, SummaryCacheContract,
    testing::Values(
        SummaryCacheParam{"Memory",
                          [] { return std::make_unique<summary_cache::MemorySummaryCache>(); }},
        SummaryCacheParam{"Sqlite", [] { return std::make_unique<TemporarySqliteCache>(); }}),
    CacheName);

}  // namespace
}  // namespace trevix::contract
