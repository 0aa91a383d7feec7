// The folder pass: the messages with attachments of one folder, newest first, up to the first that
// an earlier pass has treated.
#include <algorithm>

#include "manage/cmanage.h"
#include "manage/compression_log.h"
#include "store/folder_record_set.h"
#include "store/store_helpers.h"
#include "util/convert.h"
#include "util/format.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr const char* kProcedure = "CompressAttachments";
constexpr const char* kContactClass = "IPF.Contact";
constexpr const char* kRootName = "IPM_SUBTREE";
constexpr const char* kRootTitle = "Top of Information Store";

// Columns of the message table.
constexpr std::size_t kLongTermId = 0;
constexpr std::size_t kEntryId = 1;
constexpr std::size_t kModified = 2;
constexpr std::size_t kSubject = 3;

Date ModifiedOf(const std::vector<Variant>& row) {
    PendingError pending;
    return pending.ValueOr(ToDate(row[kModified]), Date{});
}

std::string SubjectOf(const std::vector<Variant>& row) {
    PendingError pending;
    const bool missing = std::holds_alternative<ErrorValue>(row[kSubject]);
    return missing ? std::string() : pending.ValueOr(ToText(row[kSubject]), std::string());
}

Variant FieldOf(const RecordSet& record_set, const char* name) {
    PendingError pending;
    return pending.ValueOr(record_set.Get(name), Variant());
}

}  // namespace

// Always False; callers ignore it.
bool CManage::CompressAttachments(Folder& folder) {
    folder_compressed_count_ = 0;
    folder_original_bytes_ = 0;
    folder_compressed_bytes_ = 0;
    retry_from_.reset();

    PendingError pending;
    const Variant container = pending.ValueOr(folder.Field(kTagContainerClass), Variant());
    if (pending.ValueOr(ToText(container), std::string()) == kContactClass) return false;

    const std::string name = pending.ValueOr(folder.Name(), std::string());
    PendingError listing;
    std::unique_ptr<Messages> messages;
    std::int32_t count = 0;
    if (listing.Assign(messages, folder.MessageList())) {
        listing.Step(messages->AddFilter(kTagHasAttachments, true));
        listing.Assign(count, messages->Count());
    }
    if (listing.failed()) {
        LogLine(kProcedure, " unable to list '" + name + "': " + listing.description(), 1);
        ++summary_.messages_failed;
    }

    if (!cancel_ && count != 0) {
        if (events_ != nullptr) events_->FolderChange(name, count);
        std::string folder_id;
        pending.Assign(folder_id, folder.Id());
        const FolderMarks marks = ReadMarks(folder_id);
        std::vector<Row> rows;
        // A folder whose messages could not be seen is not marked as treated.
        const bool is_read = ReadRows(*messages, name, rows);
        WalkMessages(folder, name, marks, rows, count);
        if (!cancel_ && is_read) UpdateFolderRecord(folder_id);
        AddFolderTotals();
    }

    const std::string path = FolderPath(folder);
    compression_log_ += CompressionLogRow(
        path, folder_compressed_count_, folder_original_bytes_, folder_compressed_bytes_,
        SavedPercentage(folder_original_bytes_, folder_compressed_bytes_));
    summary_.folders.push_back(
        {path, folder_compressed_count_, folder_original_bytes_, folder_compressed_bytes_});
    if (messages != nullptr) pending.Step(messages->ClearFilter());
    return false;
}

// The folder's messages, newest first. False when they cannot be had.
bool CManage::ReadRows(Messages& messages, const std::string& name, std::vector<Row>& rows) {
    PendingError pending;
    pending.Step(messages.Sort(kSortDescending, kTagLastModification));
    std::unique_ptr<MessageTable> table;
    pending.Assign(table, On(state_.gUtils, [](Utilities& utils) { return utils.CreateTable(); }));
    if (table != nullptr) {
        pending.Step(table->SetSource(messages));
        pending.Step(table->SetColumns(
            {kTagLongTermEntryId, kTagEntryId, kTagLastModification, kTagSubject}));
        const std::int32_t row_count = pending.ValueOr(table->RowCount(), 0);
        if (!pending.failed()) pending.Assign(rows, table->GetRows(row_count));
    }
    if (!pending.failed()) return true;
    LogLine(kProcedure, " unable to read '" + name + "': " + pending.description(), 1);
    ++summary_.messages_failed;
    return false;
}

void CManage::WalkMessages(Folder& folder, const std::string& name, const FolderMarks& marks,
                           const std::vector<Row>& rows, std::int32_t count) {
    PendingError pending;
    const std::string store_id = pending.ValueOr(folder.StoreId(), std::string());

    std::int32_t position = 0;
    for (const auto& row : rows) {
        if (cancel_) {
            LogLine(kProcedure, "user cancel; exiting For", 2);
            break;
        }
        if (IsTreatedAlready(row, marks, name)) {
            if (events_ != nullptr) events_->Progress(name, count);
            state_.ports.loop.Pump();
            break;
        }
        const std::string entry_id = EntryIdOfRow(row);
        if (entry_id.empty() || entry_id.find("error") != std::string::npos) {
            LogLine(kProcedure,
                    " unable to retrieve valid EntryID for message " + SubjectOf(row) +
                        ", modified " + FormatGeneralDate(ModifiedOf(row)) + " UTC",
                    2);
            break;
        }
        ++position;
        if (events_ != nullptr) events_->Progress(name, position);
        state_.ports.loop.Pump();
        TreatMessage(entry_id, store_id, SubjectOf(row), ModifiedOf(row));
    }
}

CManage::FolderMarks CManage::ReadMarks(const std::string& folder_id) {
    FolderMarks marks;
    if (folder_id.empty() || !IsOpen(state_.gFolderRST)) return marks;
    RecordSet& records = *state_.gFolderRST;
    PendingError pending;
    if (!FindFolderRecord(records, folder_id, false)) {
        if (FindFolderRecord(records, folder_id, true)) pending.Step(records.Update());
        return marks;
    }
    pending.Assign(marks.last_compress, ToDate(FieldOf(records, "LastCompress")));
    pending.Assign(marks.last_html, ToDate(FieldOf(records, "LastHTML")));
    pending.Assign(marks.last_zip_bytes, ToLong(FieldOf(records, "LastZipBytes")));
    return marks;
}

// Newest first: the first message that an earlier pass has seen ends the pass, unless the size
// threshold was lowered since, which makes older messages qualify anew.
bool CManage::IsTreatedAlready(const Row& row, const FolderMarks& marks,
                               const std::string& folder_name) {
    if (marks.last_zip_bytes > state_.ZipBytesCompress) return false;
    const Date modified = ModifiedOf(row);
    const auto log_stop = [&](const char* mark, Date date) {
        LogLine(kProcedure,
                " exiting '" + folder_name + "' at message '" + SubjectOf(row) +
                    "'; MessageLastMod of " + FormatGeneralDate(modified) + mark +
                    FormatGeneralDate(date) + " UTC",
                8);
    };
    bool stop = false;
    if (compress_ && modified <= marks.last_compress) {
        log_stop(" UTC <=LastCompress of ", marks.last_compress);
        stop = true;
    }
    if (html_ && modified <= marks.last_html) {
        log_stop(" UTC <=LastHTML of ", marks.last_html);
        stop = true;
    }
    return stop;
}

std::string CManage::EntryIdOfRow(const Row& row) {
    const Variant& long_term = row[kLongTermId];
    const bool usable = !IsEmpty(long_term) && !std::holds_alternative<ErrorValue>(long_term);
    if (!usable) {
        LogLine(kProcedure, " no long term EntryID, getting EntryID for " + SubjectOf(row), 8);
    }
    PendingError pending;
    return pending.ValueOr(
        On(state_.gUtils,
           [&](Utilities& utils) { return utils.EntryIdText(usable ? long_term : row[kEntryId]); }),
        std::string());
}

void CManage::TreatMessage(const std::string& entry_id, const std::string& store_id,
                           const std::string& subject, Date modified) {
    message_failed_ = false;
    message_left_ = false;
    message_changed_ = false;
    PendingError pending;
    std::unique_ptr<Message> message;
    auto opened =
        On(state_.gUtils, [&](Utilities& utils) { return utils.OpenMessage(entry_id, store_id); });
    if (!opened.ok()) {
        // Somebody else moved or deleted it, we may not read it, or we cannot take it apart.
        LogLine(kProcedure, " left '" + subject + "': " + opened.error().description, 2);
        NoteUnopened(opened.error());
    }
    pending.Assign(message, std::move(opened));
    if (html_ && message != nullptr) {
        const std::string stationery = GetStationeryID(state_, *message);
        if (!stationery.empty()) DeleteStationery(message.get(), stationery);
    }
    if (compress_) TrevixItemRDM(message, custom_items_);
    CountMessage(modified);
}

// A failed step or a message that is not as it was read is worth another try; what cannot be
// decoded or must not be changed will be the same next time.
void CManage::NoteFailure(const Error& error) {
    const bool lasting = error.kind == ErrorKind::kMalformed || error.kind == ErrorKind::kDenied;
    (lasting ? message_left_ : message_failed_) = true;
}

// A message that we may not read today may be readable tomorrow without having changed itself, so
// that nothing but another try would find out.
void CManage::NoteUnopened(const Error& error) {
    (error.kind == ErrorKind::kMalformed ? message_left_ : message_failed_) = true;
}

void CManage::CountMessage(Date modified) {
    if (message_changed_) ++summary_.messages_changed;
    if (message_left_) ++summary_.messages_left;
    if (!message_failed_) return;
    ++summary_.messages_failed;
    if (!retry_from_ || modified < *retry_from_) retry_from_ = modified;
}

// The time up to which the folder counts as treated: now, but never past a message that could not
// be saved this time, for the next pass stops at the mark and would not reach it.
Date CManage::TreatedUpTo() {
    const Date now = state_.ports.clock.NowUtc();
    if (!retry_from_) return now;
    constexpr double kSecond = 1.0 / 86400;
    return std::min(now, Date{retry_from_->days - kSecond});
}

void CManage::UpdateFolderRecord(const std::string& folder_id) {
    if (folder_id.empty() || !IsOpen(state_.gFolderRST)) return;
    RecordSet& records = *state_.gFolderRST;
    if (!FindFolderRecord(records, folder_id, true)) return;
    PendingError pending;
    const Date now = TreatedUpTo();
    if (compress_) pending.Step(records.Set("LastCompress", now));
    if (html_) pending.Step(records.Set("LastHTML", now));
    pending.Step(records.Set("LastZipBytes", state_.ZipBytesCompress));
    pending.Step(records.Update());
}

// Sums that would overflow stay as they were, each for itself.
void CManage::AddFolderTotals() {
    PendingError pending;
    pending.Step(AddLong(original_bytes_, folder_original_bytes_));
    pending.Step(AddLong(compressed_bytes_, folder_compressed_bytes_));
    pending.Step(AddInteger(compressed_count_, folder_compressed_count_));
}

void CManage::WalkSubfolders(Folder& folder) {
    if (cancel_) return;
    const auto count = folder.FolderCount();
    if (count.ok() && count.value() == 0) return;
    for (const auto& subfolder : SubfoldersOf(folder)) {
        CompressAttachments(*subfolder);
        WalkSubfolders(*subfolder);
    }
}

// A run that silently left a part of the tree out would call the rest treated.
std::vector<std::unique_ptr<Folder>> CManage::SubfoldersOf(Folder& folder) {
    auto folders = folder.Folders();
    if (folders.ok()) return std::move(folders).value();
    PendingError pending;
    const std::string name = pending.ValueOr(folder.Name(), std::string());
    LogLine(kProcedure,
            " unable to list the folders of '" + name + "': " + folders.error().description, 1);
    ++summary_.messages_failed;
    return {};
}

std::string CManage::FolderPath(Folder& folder) {
    PendingError pending;
    std::string path = pending.ValueOr(folder.Name(), std::string());
    if (EqualsNoCase(path, kRootName)) path = kRootTitle;

    const std::string store_id = pending.ValueOr(folder.StoreId(), std::string());
    std::unique_ptr<InfoStore> store;
    pending.Assign(store, On(state_.gMAPISession, [&](MessagingSession& session) {
                       return session.GetInfoStore(store_id);
                   }));
    std::unique_ptr<Folder> root;
    pending.Assign(root, On(store, [](InfoStore& opened) { return opened.RootFolder(); }));
    if (root == nullptr || pending.Test(folder.IsSameAs(*root), true)) return path;

    std::string parent_id = pending.ValueOr(folder.FolderId(), std::string());
    while (!pending.failed()) {
        std::unique_ptr<Folder> parent;
        pending.Assign(parent, state_.gMAPISession->GetFolder(parent_id, store_id));
        if (parent == nullptr || pending.Test(parent->IsSameAs(*root), true)) break;
        path = pending.ValueOr(parent->Name(), std::string()) + "\\" + path;
        pending.Assign(parent_id, parent->FolderId());
    }
    if (path.starts_with("\\")) path.erase(0, 1);
    return path;
}

}  // namespace trevix
