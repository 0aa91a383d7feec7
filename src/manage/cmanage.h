// CManage: one attachment-compression run over message stores.
//
// A client sets the properties, calls Manage, which returns at once, and follows the run through
// the events; the work is done by StartManage, started from the message loop. Each pass of a run
// has a file of its own: compress_attachments.cc (a folder), trevix_item_rdm.cc (a message),
// stationery.cc, compression_results.cc, compression_log.cc.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shell/bas_ci.h"
#include "shell/frm_icon.h"
#include "zip/czip.h"

namespace trevix {

// The events of CManage, in their declared order.
class CManageEvents {
 public:
    virtual ~CManageEvents() = default;

    // A folder pass begins; `count` is the folder's message count.
    virtual void FolderChange(const std::string& folder_name, std::int32_t count) = 0;
    // `count` messages of the folder were handled so far.
    virtual void Progress(const std::string& folder_name, std::int32_t count) = 0;
    // The run ended without cancellation.
    virtual void Complete(std::int32_t elapsed_ms) = 0;
    // The run was cancelled ("Cancelled") or refused by the run lock.
    virtual void Abort(const std::string& message) = 0;
};

// What one folder pass did, for programs that show it while the run goes on.
struct FolderReport {
    std::string path;  // as in the compression log
    std::int32_t compressed_count = 0;
    std::int32_t original_bytes = 0;
    std::int32_t compressed_bytes = 0;
};

// What a run did, in numbers that cannot overflow. Unlike the counters of the compression log,
// these count only what was really saved.
struct RunSummary {
    std::int64_t messages_changed = 0;
    // Could not be read or saved this time: an error, a full disk, somebody else's change.
    std::int64_t messages_failed = 0;
    // Are left as they are, in part or whole, and will be next time: signed, damaged, ambiguous.
    std::int64_t messages_left = 0;
    std::int64_t attachments_zipped = 0;
    std::int64_t stationery_removed = 0;
    std::int64_t original_bytes = 0;
    std::int64_t compressed_bytes = 0;
    std::vector<FolderReport> folders;
};

class CManage final : public ManageRun {
 public:
    explicit CManage(BasCI& state);
    ~CManage() override;

    // Stops the run at its next cancel point.
    void Cancel(bool cancel);
    bool Cancel() const { return cancel_; }
    void Compress(bool compress) { compress_ = compress; }
    bool Compress() const { return compress_; }
    void HTML(bool html) { html_ = html; }
    bool HTML() const { return html_; }

    // "STORE,FOLDER" entries separated by ";", FOLDER a folder's ID or "all". Empty is ",all": the
    // whole default store.
    void FolderIDs(const std::string& folder_ids) { folder_ids_ = folder_ids; }

    // Arms the timer that starts the run. With `launch_index`, an index refresh of the treated
    // stores follows a run that was not cancelled.
    void Manage(bool launch_index);

    // True from Manage until the run ends. Stays True after a cancelled run, deliberately.
    bool InProcess() const override { return in_process_; }
    bool SkipIndex() const { return skip_index_; }

    void StartManage() override;

    void Abandon() override {
        events_ = nullptr;
        cancel_ = true;
    }

    // Where the events go; null for nowhere. Borrowed.
    void Events(CManageEvents* events) { events_ = events; }

    const RunSummary& Summary() const { return summary_; }

 private:
    // Run control (cmanage.cc).
    void ReadRunSettings();
    void TreatFolderList();
    void TreatEntry(const std::string& entry);
    void TreatFolder(const std::string& store_id, const std::string& folder_id);
    void TreatWholeStore(const std::string& store_id);
    void OpenStore(const std::string& store_id, std::unique_ptr<InfoStore>& store);
    void FinishRun(std::int32_t start_tick);
    void LaunchIndex();
    void RaiseComplete(std::int32_t start_tick, std::int32_t end_tick);
    bool CheckInProcess();

    // Folder pass (compress_attachments.cc).
    struct FolderMarks {
        Date last_compress;
        Date last_html;
        std::int32_t last_zip_bytes = 0;
    };
    bool CompressAttachments(Folder& folder);
    using Row = std::vector<Variant>;
    bool ReadRows(Messages& messages, const std::string& name, std::vector<Row>& rows);
    void WalkMessages(Folder& folder, const std::string& name, const FolderMarks& marks,
                      const std::vector<Row>& rows, std::int32_t count);
    FolderMarks ReadMarks(const std::string& folder_id);
    bool IsTreatedAlready(const Row& row, const FolderMarks& marks, const std::string& folder_name);
    std::string EntryIdOfRow(const Row& row);
    void TreatMessage(const std::string& entry_id, const std::string& store_id,
                      const std::string& subject, Date modified);
    Date TreatedUpTo();
    void UpdateFolderRecord(const std::string& folder_id);
    void AddFolderTotals();
    void WalkSubfolders(Folder& folder);
    std::vector<std::unique_ptr<Folder>> SubfoldersOf(Folder& folder);
    std::string FolderPath(Folder& folder);

    // Message pass (trevix_item_rdm.cc).
    struct MessageWork;
    void TrevixItemRDM(std::unique_ptr<Message>& message, bool custom_items);
    bool IsTreatedMessage(Message& message, const std::string& subject, bool custom_items);
    void TreatAttachment(MessageWork& work, std::int32_t position);
    bool Qualifies(MessageWork& work);
    bool IsLargeEnough(MessageWork& work);
    bool LeaveUnread(const MessageWork& work, const Error& why);
    bool MakeStaging(MessageWork& work);
    bool Extract(MessageWork& work);
    bool MakeArchive(MessageWork& work, const std::string& archive_path);
    void AddToRollup(MessageWork& work);
    void CompressSeparately(MessageWork& work);
    void FinishRollup(MessageWork& work);
    bool ReplaceByRollup(MessageWork& work, Attachment& first);
    bool WriteArchiveProperties(MessageWork& work, Attachment& attachment, const Blob& archive,
                                const std::string& archive_name, const std::string& name);
    bool ProveArchive(const std::string& archive_path, const Blob& archive,
                      const std::vector<Blob>& contents, const std::string& name);
    bool SaveMessage(MessageWork& work, const std::string& name);
    void NoteFailure(const Error& error);
    void NoteUnopened(const Error& error);
    void CountMessage(Date modified);

    // Stationery, rendering, files (stationery.cc).
    void DeleteStationery(Message* message, const std::string& attachment_id);
    Blob ReadFileBinary(const std::string& path);
    void GetZipAttachRender();

    // Results (compression_results.cc).
    bool SaveCompressionResults(const std::string& log, Date end_time);
    bool SaveFolderRecordSet(Message& message);
    bool SaveResultsMessage(Message& message);
    void RemoveLoadedZip(const std::string& zip_path);
    void ReplaceZipAttachment(Message& message, const std::string& zip_path);

    void LogLine(const char* procedure, const std::string& message, std::int16_t level);

    BasCI& state_;
    CZIP zip_;
    std::unique_ptr<FrmIcon> form_;
    CManageEvents* events_ = nullptr;

    bool cancel_ = false;
    bool compress_ = false;
    bool html_ = false;
    bool in_process_ = false;
    bool skip_index_ = false;
    bool launch_index_ = false;
    bool custom_items_ = false;
    std::string folder_ids_;
    std::string exclude_compress_;
    std::string block_;
    std::string store_name_;
    std::string treated_stores_;  // store IDs, each followed by ";"
    std::string previous_store_;

    std::int16_t compressed_count_ = 0;
    std::int32_t original_bytes_ = 0;
    std::int32_t compressed_bytes_ = 0;
    std::string compression_log_;

    std::int32_t folder_compressed_count_ = 0;
    std::int32_t folder_original_bytes_ = 0;
    std::int32_t folder_compressed_bytes_ = 0;

    // How the message at hand went, and the oldest one of the folder that is to be tried again.
    bool message_failed_ = false;
    bool message_left_ = false;
    bool message_changed_ = false;
    std::optional<Date> retry_from_;

    Blob rendering_;
    RunSummary summary_;
};

}  // namespace trevix
