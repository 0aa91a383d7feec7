#include "manage/cmanage.h"

#include "manage/compression_log.h"
#include "shell/settings.h"
#include "store/folder_record_set.h"
#include "store/results_message.h"
#include "store/run_lock.h"
#include "util/convert.h"
#include "util/pending_error.h"
#include "util/reg_op.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr const char* kStartManage = "StartManage";
constexpr int kTimerIntervalMs = 50;

constexpr const char* kDefaultBlock =
    ".ade:.adp:.app:.bas:.bat:.cer:.chm:.cmd:.com:.cpl:.crt:.csh:.exe:.fxp:.hlp:.hta:.inf:.ins:"
    ".isp:.js:.jse:.ksh:.lnk:.mda:.mdb:.mde:.mdt:.mdw:.mdz:.msc:.msi:.msp:.mst:.ops:.pcd:.pif:"
    ".prf:.prg:.pst:.reg:.scf:.scr:.sct:.shb:.shs:.url:.vb:.vbe:.vbs:.wsc:.wsf:.wsh:.xsl";

}  // namespace

CManage::CManage(BasCI& state)
    : state_(state), zip_(state.ports.zip, state.ports.files, state.log, state.Level) {}

CManage::~CManage() = default;

void CManage::LogLine(const char* procedure, const std::string& message, std::int16_t level) {
    state_.log.Write("CManage", procedure, message, level);
}

void CManage::Cancel(bool cancel) {
    cancel_ = cancel;
    LogLine("Cancel", std::string(" set Cancel=") + (cancel ? "True" : "False"), 4);
}

void CManage::Manage(bool launch_index) {
    LogLine("Manage", " start", 8);
    in_process_ = true;
    launch_index_ = launch_index;
    form_ = std::make_unique<FrmIcon>(state_);
    form_->EnableManageTimer(kTimerIntervalMs);
}

bool CManage::CheckInProcess() {
    const bool refused =
        trevix::CheckInProcess(state_, kManageLockTexts, [this](const std::string& message) {
            if (events_ != nullptr) events_->Abort(message);
        });
    if (refused) in_process_ = false;
    return refused;
}

void CManage::StartManage() {
    LogLine(kStartManage, " start", 8);
    form_.reset();
    if (CheckInProcess()) return;
    const RunMark running(state_.is_running);
    if (compress_) GetZipAttachRender();

    if (folder_ids_.empty()) folder_ids_ = ",all";
    ReadRunSettings();

    LogLine(kStartManage, " GetFolderRST", 8);
    if (!GetFolderRST(state_)) {
        LogLine(kStartManage, " FolderRST not found; creating new one", 2);
        ResetFolderRST(state_);
    }

    compression_log_ = CompressionLogHeader(state_.ports.clock.NowLocal());
    compressed_count_ = 0;
    original_bytes_ = 0;
    compressed_bytes_ = 0;
    summary_ = {};
    const std::int32_t start_tick = state_.ports.clock.TickCount();
    // A Cancel that is queued already must stop the run before its first folder.
    state_.ports.loop.Pump();

    TreatFolderList();

    if (cancel_) {
        LogLine(kStartManage, " user cancelled.", 2);
        ClearEndCI(state_);
        if (events_ != nullptr) events_->Abort("Cancelled");
        return;
    }
    FinishRun(start_tick);
}

void CManage::ReadRunSettings() {
    // Without a results message the settings stay as the log-on left them.
    GetResultsMsg(state_);
    exclude_compress_ = state_.ExcludeCompress;
    if (exclude_compress_.empty()) exclude_compress_ = kDefaultExcludeCompress;

    RegOp key(state_.ports.registry, state_.ports.environment);
    key.Root(static_cast<std::int32_t>(kCurrentUser));
    key.Key(kAddinKey);
    block_ = kDefaultBlock;
    PendingError pending;
    if (!IsEmpty(key.Value("Block"))) pending.Assign(block_, ToText(key.Value("Block")));

    if (state_.Level == 0) state_.Level = 5;
    custom_items_ = state_.CustomItems;
}

void CManage::TreatFolderList() {
    treated_stores_.clear();
    previous_store_.clear();
    for (const std::string& entry : Split(folder_ids_, ";")) {
        if (cancel_) break;
        TreatEntry(entry);
    }
}

void CManage::TreatEntry(const std::string& entry) {
    const std::size_t comma = entry.find(',');
    std::string store_id;
    // A comma in first or second place leaves no room for a store's ID.
    if (comma != std::string::npos && comma > 1) {
        store_id = entry.substr(0, comma);
        if (store_id != previous_store_) {
            treated_stores_ += store_id + ";";
            previous_store_ = store_id;
        }
    }
    const std::string folder_part = comma == std::string::npos ? entry : entry.substr(comma + 1);
    if (folder_part == "all") {
        TreatWholeStore(store_id);
    } else {
        TreatFolder(store_id, folder_part);
    }
}

void CManage::OpenStore(const std::string& store_id, std::unique_ptr<InfoStore>& store) {
    // The name of the store before would be a wrong one in the log.
    store_name_.clear();
    PendingError pending;
    pending.Assign(store, On(state_.gMAPISession, [&](MessagingSession& session) {
                       return session.GetInfoStore(store_id);
                   }));
    if (store != nullptr) pending.Assign(store_name_, store->Name());
}

void CManage::TreatFolder(const std::string& store_id, const std::string& folder_id) {
    std::unique_ptr<InfoStore> store;
    OpenStore(store_id, store);

    PendingError pending;
    std::unique_ptr<Folder> folder;
    pending.Assign(folder, On(state_.gMAPISession, [&](MessagingSession& session) {
                       return session.GetFolder(folder_id, store_id);
                   }));
    if (folder == nullptr) {
        LogLine(kStartManage,
                " unable to open folder " + folder_id + " of " + store_name_ + ": " +
                    pending.description(),
                1);
        return;
    }
    const std::string name = pending.ValueOr(folder->Name(), std::string());
    if (html_ && compress_) {
        LogLine(kStartManage, " Compress+HTML for folder " + name, 8);
    } else if (html_) {
        LogLine(kStartManage, " HTML only for folder " + name, 8);
    } else {
        LogLine(kStartManage, " Compress only for folder " + name, 8);
    }
    CompressAttachments(*folder);
}

void CManage::TreatWholeStore(const std::string& store_id) {
    std::unique_ptr<InfoStore> store;
    OpenStore(store_id, store);
    if (html_ && compress_) {
        LogLine(kStartManage, " starting Compress+HTML for entire store " + store_name_, 8);
    } else if (!html_) {
        LogLine(kStartManage, " starting Compress only for entire store " + store_name_, 8);
    } else {
        LogLine(kStartManage, " starting HTML only for entire store " + store_name_, 8);
    }

    PendingError pending;
    std::unique_ptr<Folder> root;
    pending.Assign(root, On(store, [](InfoStore& opened) { return opened.RootFolder(); }));
    if (root == nullptr) {
        LogLine(kStartManage,
                " unable to obtain root folder for " + store_name_ + " " +
                    std::to_string(pending.number()) + " " + pending.description(),
                1);
        return;
    }
    CompressAttachments(*root);
    for (const auto& folder : SubfoldersOf(*root)) {
        CompressAttachments(*folder);
        WalkSubfolders(*folder);
    }
}

void CManage::FinishRun(std::int32_t start_tick) {
    const std::int32_t end_tick = state_.ports.clock.TickCount();
    const std::int32_t percentage = SavedPercentage(original_bytes_, compressed_bytes_);
    compression_log_ +=
        CompressionLogTotal(compressed_count_, original_bytes_, compressed_bytes_, percentage);
    compression_log_ += CompressionLogClosing(state_.ports.clock.NowLocal());

    // A total that would overflow stays as it was.
    PendingError pending;
    pending.Step(AddLong(state_.gOriginalBytes, original_bytes_));
    pending.Step(AddLong(state_.gCompressedBytes, compressed_bytes_));

    LogLine(kStartManage, std::string(" cancel=") + (cancel_ ? "True" : "False"), 4);
    SaveCompressionResults(compress_ ? compression_log_ : std::string(),
                           state_.ports.clock.NowLocal());
    in_process_ = false;

    if (launch_index_) {
        LaunchIndex();
    } else {
        LogLine(kStartManage, " complete.", 4);
    }
    RaiseComplete(start_tick, end_tick);
}

void CManage::LaunchIndex() {
    skip_index_ = false;
    IndexRun* index = state_.gIndex.get();
    if (!treated_stores_.empty()) {
        treated_stores_.pop_back();
        if (index != nullptr) index->TargetStoreIDs(treated_stores_);
    }
    if (index != nullptr) index->Refresh(true);
    LogLine(kStartManage, " complete. Launch Index process", 4);
    if (index == nullptr) {
        const Error missing = RuntimeError(kObjectNotSet);
        LogLine(kStartManage,
                " no Index class " + std::to_string(missing.number) + " " + missing.description, 1);
        return;
    }
    index->Index(false);
}

// A difference of ticks that overflows is an error instead of the event.
void CManage::RaiseComplete(std::int32_t start_tick, std::int32_t end_tick) {
    const auto elapsed_ms = SubtractLong(end_tick, start_tick);
    if (elapsed_ms.ok() && events_ != nullptr) events_->Complete(elapsed_ms.value());
}

}  // namespace trevix
