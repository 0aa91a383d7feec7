#include "cli/local_runs.h"

namespace trevix::cli {

void LocalRuns::StartCompression(const Compression& plan) {
    CManage& run = manage();
    run.Compress(plan.compress);
    run.HTML(plan.html);
    run.FolderIDs(plan.folder_ids);
    run.Manage(plan.indexes);
}

void LocalRuns::StartIndexing(const std::string& store_ids, bool anew) {
    CIndex& run = index();
    run.TargetStoreIDs(store_ids);
    run.Index(anew);
}

}  // namespace trevix::cli
