#include "index/cindex.h"

#include "store/folder_record_set.h"
#include "store/results_message.h"
#include "store/run_lock.h"
#include "util/file_name.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr const char* kStartIndex = "StartIndex";
constexpr int kTimerIntervalMs = 50;

// The directory that a log-on name has for itself. Long names are cut, and told apart by a hash.
std::string StoreFolderName(const std::string& logon_name) {
    constexpr std::size_t kLongest = 160;
    std::string safe = SafeFileComponent(logon_name);
    if (logon_name.size() <= kLongest) return safe;
    std::uint64_t hash = 14695981039346656037ULL;
    for (const char c : logon_name) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
    }
    return SafeFileComponent(safe.substr(0, kLongest)) + "-" + std::to_string(hash);
}

}  // namespace

CIndex::CIndex(BasCI& state)
    : state_(state), zip_(state.ports.zip, state.ports.files, state.log, state.Level) {}

CIndex::~CIndex() = default;

void CIndex::LogLine(const char* procedure, const std::string& message, std::int16_t level) {
    state_.log.Write("CIndex", procedure, message, level);
}

void CIndex::RaiseFolderChange(const std::string& folder_name, std::int32_t count) {
    if (events_ != nullptr) events_->FolderChange(folder_name, count);
}

void CIndex::RaiseProgress(const std::string& text, std::int32_t count) {
    if (events_ != nullptr) events_->Progress(text, count);
}

void CIndex::RaiseAbort(const std::string& message) {
    if (events_ != nullptr) events_->Abort(message);
}

void CIndex::Index(bool recreate) {
    in_process_ = true;
    regenerate_ = recreate;
    form_ = std::make_unique<FrmIcon>(state_);
    form_->EnableIndexTimer(kTimerIntervalMs);
}

bool CIndex::CheckInProcess() {
    const bool refused = trevix::CheckInProcess(
        state_, kIndexLockTexts, [this](const std::string& message) { RaiseAbort(message); });
    if (refused) in_process_ = false;
    return refused;
}

void CIndex::StartIndex() {
    form_.reset();
    if (CheckInProcess()) return;
    const RunMark running(state_.is_running);
    run_ = {};
    summary_ = {};

    stores_ = StoresToIndex();
    if (!GetFolderRST(state_)) {
        LogLine(kStartIndex, " FolderRST not found; creating new one", 2);
        ResetFolderRST(state_);
    }
    if (state_.gUtils == nullptr) {
        PendingError pending;
        pending.Assign(state_.gUtils, state_.ports.messaging.CreateUtilities());
    }

    if (regenerate_) {
        LogLine(kStartIndex, " creating new index", 4);
        CreateNewIndex();
    } else {
        refresh_ = true;
        LogLine(kStartIndex, " updating existing index", 4);
        UpdateIndex();
    }
}

StringArray CIndex::StoresToIndex() {
    if (target_store_ids_.empty()) {
        // The list is the results message's; without it the default store is what there is.
        GetResultsMsg(state_);
        target_store_ids_ = state_.gStoreIDs.empty() ? state_.gStoreID : state_.gStoreIDs;
    }
    return Split(target_store_ids_, ";");
}

std::string CIndex::GetZipIndexDir() {
    if (!index_dir_.empty()) return index_dir_;
    FileSystem& files = state_.ports.files;
    PendingError pending;
    const auto make = [&](const std::string& path, const std::string& what) {
        if (!files.DirectoryExists(path)) pending.Step(files.MakeDirectory(path));
        if (files.DirectoryExists(path)) return true;
        LogLine("ZipIndex",
                " error creating " + what + " directory " + std::to_string(pending.number()) + " " +
                    pending.description(),
                1);
        return false;
    };

    const std::string base = state_.TemporaryPath() + "ZipIndex/";
    if (!make(base, "ZipIndex")) return {};
    const std::string name = StoreFolderName(state_.gLogonName);
    const std::string store = base + name + "/";
    if (!make(store, name)) return {};
    files.SweepStaging(store);
    index_dir_ = store;
    return index_dir_;
}

}  // namespace trevix
