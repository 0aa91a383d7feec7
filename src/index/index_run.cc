// An index run over its stores: the record set it works on, the loop, and the end.
#include "index/attach_index.h"
#include "index/cindex.h"
#include "store/folder_record_set.h"
#include "store/run_lock.h"
#include "util/convert.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr const char* kLineEnd = "\r\n";
constexpr const char* kRootName = "IPM_SUBTREE";
constexpr const char* kRootTitle = "Top of Information Store";

}  // namespace

void CIndex::CreateNewIndex() {
    run_.procedure = "CreateNewIndex";
    run_.anew = true;
    if (!InitIndexRST()) {
        LogLine(run_.procedure, " unable to initialize index.", 1);
        ClearEndCI(state_);
        // InProcess stays True, deliberately: a client that asked for a new index has none.
        RaiseAbort("Unable to initialize index!");
        return;
    }
    RunOverStores(" unable to retrieve infostore (ID=");
}

void CIndex::UpdateIndex() {
    run_.procedure = "UpdateIndex";
    if (!PrepareUpdate()) {
        ClearEndCI(state_);
        in_process_ = false;
        // Without a results message the client was told already, and there is nowhere to save to.
        if (run_.no_results_message) {
            cancel_ = false;
            CloseRecordSets();
            return;
        }
        LogLine(run_.procedure, " unable to initialize index.", 1);
        RaiseAbort("Unable to initialize index!");
        return;
    }
    RunOverStores(" unable to retrieve Infostore (ID= ");
}

// False when there is no record set to work on. An index that is missing, damaged or of an older
// layout is made anew without a word.
bool CIndex::PrepareUpdate() {
    if (IsOpen(state_.gAttachRST)) {
        // No run leaves it open, so nobody knows what it holds.
        ForgetMarks();
    } else {
        run_.anew = !GetAttachIndex();
    }
    if (run_.no_results_message) return false;
    if (!run_.anew && !HasAttachColumns(*state_.gAttachRST)) run_.anew = true;
    return !run_.anew || InitIndexRST();
}

void CIndex::RunOverStores(const char* unopened_text) {
    cancel_ = false;
    const std::int32_t start_tick = state_.ports.clock.TickCount();
    bool failed = false;
    bool cancelled = false;
    std::string outcome;
    for (const std::string& store_id : stores_) {
        auto opened = On(state_.gMAPISession,
                         [&](MessagingSession& session) { return session.GetInfoStore(store_id); });
        if (!opened.ok()) {
            LogLine(run_.procedure,
                    std::to_string(opened.error().number) + unopened_text + store_id + ")" +
                        kLineEnd + opened.error().description,
                    1);
            continue;
        }
        failed = IndexStore(*opened.value());
        if (cancel_) {
            outcome = std::string("Attachment index canceled for:") + kLineEnd + run_.store_names +
                      kLineEnd;
            cancel_ = false;
            cancelled = true;
            failed = true;
            break;
        }
        if (failed) {
            outcome = std::string("Attachment index failed for:") + kLineEnd + run_.store_names +
                      kLineEnd;
        }
    }
    // Where no store could be opened there is nothing to save, least of all over an older index.
    if (!run_.any_store || run_.index_lost) {
        failed = true;
        if (!cancelled) {
            outcome = std::string("Attachment index failed for:") + kLineEnd + run_.store_names +
                      kLineEnd;
        }
    }
    PendingError pending;
    const std::int32_t elapsed_ms =
        pending.ValueOr(SubtractLong(state_.ports.clock.TickCount(), start_tick), 0);
    in_process_ = false;
    EndRun(failed, outcome, cancelled, elapsed_ms);
}

// True when the walk stopped early.
bool CIndex::IndexStore(InfoStore& store) {
    PendingError pending;
    const std::string name = pending.ValueOr(store.Name(), std::string());
    LogLine(run_.procedure, " indexing store:" + name, 8);
    run_.store_names += name + kLineEnd;
    run_.any_store = true;

    std::unique_ptr<Folder> root;
    if (!pending.Assign(root, store.RootFolder())) {
        LogLine(run_.procedure,
                " unable to obtain root folder for " + name + " " +
                    std::to_string(pending.number()) + " " + pending.description(),
                1);
        return true;
    }
    const std::string root_name = pending.ValueOr(root->Name(), std::string());
    const std::int64_t failed_before = summary_.folders_failed;
    GetAttachments(*root, EqualsNoCase(root_name, kRootName) ? kRootTitle : root_name);
    if (WalkSubfolders(*root, {})) return true;

    std::string id;
    if (pending.Assign(id, root->StoreId()) && summary_.folders_failed == failed_before) {
        run_.walked_stores.insert(id == state_.gStoreID ? std::string() : id);
    }
    return false;
}

void CIndex::EndRun(bool failed, const std::string& outcome, bool cancelled,
                    std::int32_t elapsed_ms) {
    if (failed) {
        ClearEndCI(state_);
        CloseRecordSets();
        LogLine(run_.procedure, outcome, cancelled ? 2 : 1);
        RaiseAbort(outcome);
        return;
    }
    RaiseProgress("Updating index, please wait...", 0);
    SweepGoneFolders();
    summary_.text = SaveIndexResults(elapsed_ms);
    if (!summary_.text.empty()) {
        LogLine(run_.procedure, summary_.text, 4);
        if (events_ != nullptr) events_->Complete(elapsed_ms);
        return;
    }
    CloseRecordSets();
    const std::string text = std::string("Attachment index failed for:") + kLineEnd +
                             run_.store_names + kLineEnd + "Unable to complete save.";
    LogLine(run_.procedure, text, 1);
    RaiseAbort(text);
}

// Without saving: rows and marks of a run that did not end well are both forgotten.
void CIndex::CloseRecordSets() {
    for (const auto* record_set : {&state_.gAttachRST, &state_.gFolderRST}) {
        // What does not close has nothing left to lose.
        if (IsOpen(*record_set)) Drop((*record_set)->Close());
    }
}

// Takes out the rows of folders that were removed, or renamed, from stores that were walked whole.
// Rows of other stores stay: this run knows nothing of them.
void CIndex::SweepGoneFolders() {
    if (run_.anew || run_.walked_stores.empty() || !IsOpen(state_.gAttachRST)) return;
    RecordSet& index = *state_.gAttachRST;
    PendingError pending;
    pending.Step(index.SetFilter(""));
    if (pending.failed() || index.RecordCount() == 0) return;
    std::int64_t deleted = 0;
    for (pending.Step(index.MoveFirst()); !pending.failed() && !index.Eof();
         pending.Step(index.MoveNext())) {
        const double key = index.NumberAt(kColumnFolderKey).value_or(0);
        if (run_.folder_of_key.contains(static_cast<std::int32_t>(key))) continue;
        if (!run_.walked_stores.contains(std::string(index.TextAt(kColumnStoreId)))) continue;
        if (pending.Step(index.Delete())) ++deleted;
    }
    if (deleted > 0) {
        LogLine(run_.procedure,
                " deleted " + std::to_string(deleted) + " records of folders that are gone", 8);
    }
}

}  // namespace trevix
