// CIndex: one run that builds the attachment index of message stores, or brings it up to date.
//
// A client sets the properties, calls Index, which returns at once, and follows the run through
// the events; the work is done by StartIndex, started from the message loop. Each pass of a run has
// a file of its own: index_run.cc (the stores), folder_scan.cc, validate_index.cc (rows of messages
// that are gone), message_index.cc, index_results.cc; attach_index.h is the record set.
//
// What must hold after every update: the rows are those that a new index would have. The time marks
// of the folders only make an update quick; a message is visited as well when it has no rows and is
// not known to have none, so rows that were lost for whatever reason come back.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "index/index_memory.h"
#include "shell/bas_ci.h"
#include "shell/frm_icon.h"
#include "zip/attachment_row.h"
#include "zip/czip.h"

namespace trevix {

// The events of CIndex, in their declared order.
class CIndexEvents {
 public:
    virtual ~CIndexEvents() = default;

    // The scan of a folder begins; `count` is the number of its messages with attachments.
    virtual void FolderChange(const std::string& folder_name, std::int32_t count) = 0;
    // `count` messages of the folder were looked at so far; or, with the text "Updating index,
    // please wait..." and 0, the index is about to be saved.
    virtual void Progress(const std::string& text, std::int32_t count) = 0;
    // The run ended and the index is saved.
    virtual void Complete(std::int32_t elapsed_ms) = 0;
    // The run was cancelled, failed or was refused; what was saved before stands.
    virtual void Abort(const std::string& message) = 0;
};

// What a run did, for programs that show it.
struct IndexSummary {
    std::int64_t folders_scanned = 0;
    std::int64_t folders_failed = 0;    // could not be listed this time; their rows stay
    std::int64_t messages_indexed = 0;  // looked into, whether they gave rows or not
    std::int64_t messages_failed = 0;  // could not be read, or not wholly; the next run tries again
    std::int64_t rows_added = 0;
    std::int64_t rows = 0;          // of the saved index
    std::int64_t bytes = 0;         // of all attachments, those in archives unpacked
    std::int64_t stored_bytes = 0;  // the same as they are in the mail
    std::string text;               // the statistics; empty unless the index was saved
};

class CIndex final : public IndexRun {
 public:
    explicit CIndex(BasCI& state);
    ~CIndex() override;

    // Stops the run at its next cancel point. A run takes it back when it has stopped.
    void Cancel(bool cancel) { cancel_ = cancel; }
    bool Cancel() const { return cancel_; }

    // Whether a folder's scan stops at the first message that was indexed before. An update sets it
    // and a new index pays no heed to it: there is nothing before.
    void Refresh(bool refresh) override { refresh_ = refresh; }
    bool Refresh() const { return refresh_; }

    // IDs of the stores to index, separated by ";". Empty: those that the results message lists, or
    // the default store.
    void TargetStoreIDs(const std::string& ids) override { target_store_ids_ = ids; }
    const std::string& TargetStoreIDs() const { return target_store_ids_; }

    // Kept for the client; no run reads it.
    void UpdateStoreIDs(const std::string& ids) { update_store_ids_ = ids; }
    const std::string& UpdateStoreIDs() const { return update_store_ids_; }

    // Whether the run builds a new index. Index sets it to its argument.
    void Regenerate(bool regenerate) { regenerate_ = regenerate; }
    bool Regenerate() const { return regenerate_; }

    // Accepted; no run reads it.
    void OffLine(bool off_line) { off_line_ = off_line; }

    // True from Index until the run ends or is refused. It is False already while the index is
    // being saved, and stays True, deliberately, when a new index could not even be begun.
    bool InProcess() const override { return in_process_; }

    // Arms the timer that starts the run.
    void Index(bool recreate) override;
    void Index() { Index(false); }

    void StartIndex() override;

    void Abandon() override {
        events_ = nullptr;
        cancel_ = true;
    }

    // The directory for the files of the index, made when first asked for.
    std::string GetZipIndexDir() override;

    // Asks the run lock; true when the run must give way, after the abort was raised.
    bool CheckInProcess();

    // Where the events go; null for nowhere. Borrowed.
    void Events(CIndexEvents* events) { events_ = events; }

    const IndexSummary& Summary() const { return summary_; }

 private:
    // What a run knows of itself.
    struct Run {
        const char* procedure = "";
        bool anew = false;  // the record set was made empty in this run
        bool no_results_message = false;
        bool index_lost = false;  // the record set was closed under the run
        bool any_store = false;
        std::string store_names;                                      // each with a line end
        std::unordered_map<std::int32_t, std::string> folder_of_key;  // of the folders seen
        std::set<std::string> walked_stores;  // whole, as the StoreID column names them
        IndexMemory memory;
    };

    // One folder's scan.
    struct FolderScan {
        std::string id;
        std::string name;
        std::string path;
        std::string store_id;
        std::string folder_text;  // for the Folder column
        std::int16_t key = 0;
        std::int32_t last_count = 0;
        Date last_update;
        bool refresh = false;     // rows of gone messages go
        bool marks_hold = false;  // what is not newer than LastUpdate may be passed over
        std::int64_t listed_at_ns = 0;
        std::vector<std::vector<Variant>> rows;
        std::vector<std::string> ids;                      // of the rows, when validated
        std::unordered_map<std::string, bool> collection;  // by ID: whether it has index rows
    };

    // Run control (cindex.cc).
    StringArray StoresToIndex();

    // Stores (index_run.cc).
    void CreateNewIndex();
    void UpdateIndex();
    bool PrepareUpdate();
    void RunOverStores(const char* unopened_text);
    bool IndexStore(InfoStore& store);
    void EndRun(bool failed, const std::string& outcome, bool cancelled, std::int32_t elapsed_ms);
    void CloseRecordSets();
    void SweepGoneFolders();

    // The record set (attach_index.cc).
    bool InitIndexRST();
    bool GetAttachIndex();
    bool LoadSavedIndex(Message& message);
    bool LoadMemory(Message& message);
    void ForgetMarks();
    bool OpenIndexFile(const std::string& adtg_path);

    // Folders (folder_scan.cc).
    bool WalkSubfolders(Folder& folder, const std::string& path);
    void GetAttachments(Folder& folder, const std::string& path);
    bool OpenFolderRecord(Folder& folder, FolderScan& scan);
    bool TakeFolderKey(RecordSet& records, FolderScan& scan);
    bool ListFolder(Folder& folder, FolderScan& scan, std::unique_ptr<Messages>& messages,
                    std::int32_t& count);
    bool FetchRows(Messages& messages, FolderScan& scan);
    void ScanMessages(FolderScan& scan, std::int32_t count);
    void VisitForgotten(FolderScan& scan, std::size_t from);
    void VisitMessage(FolderScan& scan, std::size_t at);
    std::string EntryIdOfRow(const FolderScan& scan, std::size_t at);
    void NoteUnopened(const std::string& entry_id, Date modified, const Error& error);
    bool DeleteMessageRows(const std::string& entry_id);
    bool DeleteFiltered(const std::string& criterion);
    void EmptyFolder(FolderScan& scan);
    void UpdateFolderRecord(const FolderScan& scan, std::int32_t count);

    // Rows of messages that are gone (validate_index.cc).
    void ValidateIndexMT(FolderScan& scan);
    void CollectIds(FolderScan& scan);

    // Messages (message_index.cc).
    struct MessageRows {
        std::int32_t added = 0;
        bool failed = false;  // something that may succeed next time
    };
    MessageRows SafeIndexAttachments(Message& message, const std::string& entry_id,
                                     const FolderScan& scan);
    AttachedTo DescribeMessage(Message& message, const std::string& entry_id,
                               const FolderScan& scan, bool& failed);
    void IndexAttachment(Attachment& attachment, const AttachedTo& about, MessageRows& rows);
    void AddWholeAttachment(Attachment& attachment, const std::string& name, std::int32_t zip_index,
                            const AttachedTo& about, MessageRows& rows);
    void ListZipAttachment(Attachment& attachment, const std::string& name, const AttachedTo& about,
                           MessageRows& rows);

    // Results (index_results.cc).
    void RefreshIndexCounts();
    std::string SaveIndexResults(std::int32_t elapsed_ms);
    std::string IndexStatistics(std::int32_t elapsed_ms, const std::string& zip_path);
    bool WriteResults(const std::string& text, const std::string& staging_path);
    bool ReplaceAttachments(Message& message, const std::string& staging_path);
    void RemoveLoadedFolderFiles();

    void LogLine(const char* procedure, const std::string& message, std::int16_t level);
    void RaiseFolderChange(const std::string& folder_name, std::int32_t count);
    void RaiseProgress(const std::string& text, std::int32_t count);
    void RaiseAbort(const std::string& message);

    BasCI& state_;
    CZIP zip_;
    std::unique_ptr<FrmIcon> form_;
    CIndexEvents* events_ = nullptr;

    bool cancel_ = false;
    bool refresh_ = false;
    bool regenerate_ = false;
    bool off_line_ = false;
    bool in_process_ = false;
    std::string target_store_ids_;
    std::string update_store_ids_;
    StringArray stores_;
    std::string index_dir_;
    std::int32_t compressed_bytes_ = 0;
    std::int32_t uncompressed_bytes_ = 0;

    Run run_;
    IndexSummary summary_;
};

}  // namespace trevix
