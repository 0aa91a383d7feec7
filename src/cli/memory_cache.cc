#include "cli/memory_cache.h"

namespace trevix::cli {

Result<bool> MemoryCache::KnowsStore(const std::string& store_address) {
    return kept_.count(store_address) > 0;
}

Result<FolderSummary> MemoryCache::Load(const std::string& store_address,
                                        const std::string& folder) {
    const auto store = kept_.find(store_address);
    if (store == kept_.end()) return FolderSummary();
    const auto summary = store->second.find(folder);
    return summary == store->second.end() ? FolderSummary() : summary->second;
}

Status MemoryCache::Save(const std::string& store_address, const std::string& folder,
                         const FolderSummary& /*before*/, const FolderSummary& now) {
    kept_[store_address][folder] = now;
    return {};
}

}  // namespace trevix::cli
