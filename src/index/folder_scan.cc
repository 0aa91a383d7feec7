// The folder scan: the messages with attachments of one folder, newest first, down to the first
// that an earlier scan has indexed, and then those among the older ones that have no rows.
#include <algorithm>
#include <cmath>
#include <limits>

#include "index/attach_index.h"
#include "index/cindex.h"
#include "store/folder_record_set.h"
#include "util/convert.h"
#include "util/failure.h"
#include "util/format.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr const char* kProcedure = "GetAttachments";
constexpr const char* kContactClass = "IPF.Contact";

// Columns of the message table.
constexpr std::size_t kNumber = 0;
constexpr std::size_t kModified = 1;
constexpr std::size_t kSubject = 2;
constexpr std::size_t kLongTermId = 3;
constexpr std::size_t kEntryId = 4;

using Row = std::vector<Variant>;

Date ModifiedOf(const Row& row) {
    PendingError pending;
    return pending.ValueOr(ToDate(row[kModified]), Date{});
}

std::string SubjectOf(const Row& row) {
    PendingError pending;
    const bool missing = std::holds_alternative<ErrorValue>(row[kSubject]);
    return missing ? std::string() : pending.ValueOr(ToText(row[kSubject]), std::string());
}

std::string NumberOf(const Row& row) {
    PendingError pending;
    return std::to_string(pending.ValueOr(ToLong(row[kNumber]), 0));
}

Variant FieldOf(const RecordSet& record_set, const char* name) {
    PendingError pending;
    return pending.ValueOr(record_set.Get(name), Variant());
}

std::string UtcText(Date date) {
    return FormatGeneralDate(date) + " UTC";
}

// What the Folder column says of the folder: its path, or its name alone where that is too long. A
// name that is too long itself is left out, here already: rows that said less than the scan expects
// would be taken for rows of another folder and made anew by every run.
std::string FolderText(const std::string& path, const std::string& name) {
    const auto limit = static_cast<std::size_t>(kAttachColumns[kColumnFolder].defined_size);
    if (Utf16Length(path) <= limit) return path;
    return Utf16Length(name) <= limit ? name : std::string();
}

// The smallest number that no record has.
std::int32_t FreeKey(RecordSet& records) {
    std::set<std::int32_t> used;
    PendingError pending;
    for (pending.Step(records.MoveFirst()); !pending.failed() && !records.Eof();
         pending.Step(records.MoveNext())) {
        used.insert(pending.ValueOr(ToLong(FieldOf(records, "FolderKey")), 0));
    }
    std::int32_t key = 1;
    while (used.contains(key))
        ++key;
    return key;
}

// How far a message's time may lie behind the moment at which it came. A file system that counts
// whole seconds stamps with the second that has begun, one that counts finer with its last tick.
std::int64_t StampLagNs(const std::vector<Row>& rows) {
    constexpr double kSecondsOfDay = 86400;
    for (const Row& row : rows) {
        const double seconds = ModifiedOf(row).days * kSecondsOfDay;
        if (std::abs(seconds - std::round(seconds)) > 1e-4) return 100'000'000;
    }
    return 2'500'000'000;
}

}  // namespace

// True when it stopped early: cancelled, or a part of the tree could not be read.
bool CIndex::WalkSubfolders(Folder& folder, const std::string& path) {
    if (cancel_) return true;
    PendingError pending;
    std::vector<std::unique_ptr<Folder>> folders;
    if (pending.ValueOr(folder.FolderCount(), 0) != 0) pending.Assign(folders, folder.Folders());
    for (const auto& subfolder : folders) {
        const std::string name = pending.ValueOr(subfolder->Name(), std::string());
        if (pending.failed()) break;
        const std::string subfolder_path = path.empty() ? name : path + "\\" + name;
        GetAttachments(*subfolder, subfolder_path);
        state_.ports.loop.Pump();
        if (WalkSubfolders(*subfolder, subfolder_path)) return true;
    }
    if (!pending.failed()) return cancel_;
    LogLine(kProcedure,
            " unable to walk the folders of '" + path + "' " + std::to_string(pending.number()) +
                " " + pending.description(),
            1);
    return true;
}

void CIndex::GetAttachments(Folder& folder, const std::string& path) {
    PendingError pending;
    const Variant container = pending.ValueOr(folder.Field(kTagContainerClass), Variant());
    if (pending.ValueOr(ToText(container), std::string()) == kContactClass) return;

    FolderScan scan;
    scan.path = path;
    std::unique_ptr<Messages> messages;
    std::int32_t count = 0;
    if (!OpenFolderRecord(folder, scan) || !ListFolder(folder, scan, messages, count)) {
        ++summary_.folders_failed;
        return;
    }
    ++summary_.folders_scanned;
    if (count == 0) {
        EmptyFolder(scan);
        return;
    }

    RaiseFolderChange(path, count);
    if (!FetchRows(*messages, scan)) {
        ++summary_.folders_failed;
        return;
    }
    LogLine(kProcedure, "Folder:" + path + ";Count:" + std::to_string(count), 8);
    if (scan.refresh) ValidateIndexMT(scan);
    ScanMessages(scan, count);
    if (!cancel_) UpdateFolderRecord(scan, count);
}

// Finds the folder's record, or makes it. False when there is no telling which folder it is.
bool CIndex::OpenFolderRecord(Folder& folder, FolderScan& scan) {
    PendingError pending;
    pending.Assign(scan.id, folder.Id());
    pending.Assign(scan.name, folder.Name());
    pending.Assign(scan.store_id, folder.StoreId());
    if (!pending.failed()) {
        pending.Step(On(state_.gFolderRST, [&](RecordSet& records) -> Status {
            if (FindFolderRecord(records, scan.id, false)) return {};
            if (!FindFolderRecord(records, scan.id, true)) return RuntimeError(kNoCurrentRecord);
            return records.Update();
        }));
    }
    if (pending.failed()) {
        LogLine(kProcedure,
                " no folder record for '" + scan.path + "' " + std::to_string(pending.number()) +
                    " " + pending.description(),
                1);
        return false;
    }
    scan.folder_text = FolderText(scan.path, scan.name);
    return TakeFolderKey(*state_.gFolderRST, scan);
}

// Reads the record. A key that another folder of this run has, or that no index row can hold, would
// mix up their rows: the record then gets one of its own.
bool CIndex::TakeFolderKey(RecordSet& records, FolderScan& scan) {
    PendingError pending;
    pending.Assign(scan.last_count, ToLong(FieldOf(records, "LastCount")));
    pending.Assign(scan.last_update, ToDate(FieldOf(records, "LastUpdate")));
    pending.Clear();
    std::int32_t key = 0;
    pending.Assign(key, ToLong(pending.ValueOr(records.Get("FolderKey"), Variant())));

    constexpr std::int32_t kLargest = std::numeric_limits<std::int16_t>::max();
    const auto taken = run_.folder_of_key.find(key);
    const bool foreign = taken != run_.folder_of_key.end() && taken->second != scan.id;
    if (!pending.failed() && (foreign || key < 1 || key > kLargest)) {
        key = FreeKey(records);
        if (!FindFolderRecord(records, scan.id, false)) key = 0;
        pending.Step(records.Set("FolderKey", key));
        pending.Step(records.Update());
    }
    if (pending.failed() || key < 1 || key > kLargest) {
        LogLine(kProcedure, " no folder key for '" + scan.path + "' " + pending.description(), 1);
        return false;
    }
    scan.key = static_cast<std::int16_t>(key);
    run_.folder_of_key[key] = scan.id;
    scan.refresh = refresh_ && !run_.anew;
    // A mark that lies ahead was made under another clock.
    const Date now = DateFromUnixNanoseconds(state_.ports.clock.UnixNanoseconds());
    const bool believable = scan.last_update <= now;
    scan.marks_hold = scan.refresh && believable;
    return true;
}

// A folder that cannot be listed must not look like an empty one: its rows would go.
bool CIndex::ListFolder(Folder& folder, FolderScan& scan, std::unique_ptr<Messages>& messages,
                        std::int32_t& count) {
    scan.listed_at_ns = state_.ports.clock.UnixNanoseconds();
    PendingError pending;
    if (pending.Assign(messages, folder.MessageList())) {
        pending.Step(messages->AddFilter(kTagHasAttachments, true));
        pending.Assign(count, messages->Count());
        pending.Step(messages->Sort(kSortDescending, kTagLastModification));
    }
    if (!pending.failed()) return true;
    LogLine(kProcedure,
            " unable to read '" + scan.path + "' " + std::to_string(pending.number()) + " " +
                pending.description(),
            1);
    return false;
}

bool CIndex::FetchRows(Messages& messages, FolderScan& scan) {
    PendingError pending;
    std::unique_ptr<MessageTable> table;
    if (pending.Assign(table,
                       On(state_.gUtils, [](Utilities& utils) { return utils.CreateTable(); })) &&
        pending.Step(table->SetSource(messages)) &&
        pending.Step(table->SetColumns({kTagArticleNumber, kTagLastModification, kTagSubject,
                                        kTagLongTermEntryId, kTagEntryId}))) {
        std::int32_t row_count = 0;
        if (pending.Assign(row_count, table->RowCount())) {
            pending.Assign(scan.rows, table->GetRows(row_count));
        }
    }
    if (!pending.failed()) return true;
    LogLine(kProcedure, std::to_string(pending.number()) + "GetRows error:" + pending.description(),
            1);
    return false;
}

void CIndex::ScanMessages(FolderScan& scan, std::int32_t count) {
    const std::string mark = UtcText(scan.last_update);
    for (std::size_t at = 0; at < scan.rows.size(); ++at) {
        if (cancel_) return;
        const Row& row = scan.rows[at];
        const Date modified = ModifiedOf(row);
        if (scan.marks_hold && modified <= scan.last_update) {
            RaiseProgress(scan.path, count);
            state_.ports.loop.Pump();
            LogLine(kProcedure,
                    " exiting '" + scan.name + "' at message " + NumberOf(row) + ", modified " +
                        UtcText(modified) + ";LastUpdate = " + mark,
                    8);
            VisitForgotten(scan, at);
            return;
        }
        RaiseProgress(scan.path, static_cast<std::int32_t>(at) + 1);
        state_.ports.loop.Pump();
        VisitMessage(scan, at);
    }
    if (cancel_ || scan.rows.empty()) return;
    const Row& last = scan.rows.back();
    LogLine(kProcedure,
            " processed all items in '" + scan.name + "'; last message = " + SubjectOf(last) +
                ", modified " + UtcText(ModifiedOf(last)) + ";LastUpdate = " + mark,
            8);
}

// From the stop on: messages without rows, unless an earlier look found none to be had. They came
// with an old time, could not be read when they were new, or their rows were lost.
void CIndex::VisitForgotten(FolderScan& scan, std::size_t from) {
    for (std::size_t at = from; at < scan.rows.size() && !cancel_; ++at) {
        const std::string& id = scan.ids[at];
        const auto known = scan.collection.find(id);
        const bool has_rows = known != scan.collection.end() && known->second;
        if (has_rows && !run_.memory.IsUnfinished(id)) continue;
        const Date modified = ModifiedOf(scan.rows[at]);
        if (!has_rows && !id.empty() && run_.memory.IsQuiet(id, modified)) {
            run_.memory.NoteQuiet(id, modified);
            continue;
        }
        RaiseProgress(scan.path, static_cast<std::int32_t>(at) + 1);
        state_.ports.loop.Pump();
        if (!cancel_) VisitMessage(scan, at);
    }
}

std::string CIndex::EntryIdOfRow(const FolderScan& scan, std::size_t at) {
    const Row& row = scan.rows[at];
    const bool has_long_term = std::holds_alternative<Blob>(row[kLongTermId]);
    if (!has_long_term) LogLine(kProcedure, " no long term EntryID, getting EntryID", 8);
    // Validation turned it into text already.
    if (at < scan.ids.size() && !scan.ids[at].empty()) return scan.ids[at];
    PendingError pending;
    return pending.ValueOr(
        On(state_.gUtils,
           [&](Utilities& utils) {
               return utils.EntryIdText(row[has_long_term ? kLongTermId : kEntryId]);
           }),
        std::string());
}

void CIndex::VisitMessage(FolderScan& scan, std::size_t at) {
    const std::string entry_id = EntryIdOfRow(scan, at);
    const std::string subject = SubjectOf(scan.rows[at]);
    const Date modified = ModifiedOf(scan.rows[at]);
    if (entry_id.empty() || ContainsNoCase(entry_id, "error")) {
        LogLine(kProcedure,
                std::to_string(at + 1) + " unable to retrieve valid EntryID for message " +
                    subject + ", modified " + UtcText(modified),
                2);
        ++summary_.messages_failed;
        return;
    }
    ++summary_.messages_indexed;
    run_.memory.NoteFinished(entry_id);
    if (!DeleteMessageRows(entry_id)) {
        ++summary_.messages_failed;
        run_.memory.NoteUnfinished(entry_id);
        return;
    }
    auto opened = On(state_.gUtils,
                     [&](Utilities& utils) { return utils.OpenMessage(entry_id, scan.store_id); });
    if (!opened.ok()) {
        LogLine(kProcedure,
                std::to_string(opened.error().number) + " unable to return safMsg " + subject +
                    " using\r\nEntryID=" + entry_id + "\r\nStoreID=" + scan.store_id + "\r\n",
                1);
        NoteUnopened(entry_id, modified, opened.error());
        return;
    }
    const MessageRows rows = SafeIndexAttachments(*opened.value(), entry_id, scan);
    summary_.rows_added += rows.added;
    if (cancel_) return;
    if (rows.failed) {
        ++summary_.messages_failed;
        run_.memory.NoteUnfinished(entry_id);
    } else if (rows.added == 0) {
        run_.memory.NoteQuiet(entry_id, modified);
    }
}

// A message that went away meanwhile is no failure; one that can never be opened is not tried again
// until it changes. One that may not be read is: its permissions are no part of it.
void CIndex::NoteUnopened(const std::string& entry_id, Date modified, const Error& error) {
    if (error.kind == ErrorKind::kNotFound || error.kind == ErrorKind::kGone) return;
    const bool is_denied = error.kind == ErrorKind::kDenied;
    if (IsLasting(error) && !is_denied) run_.memory.NoteQuiet(entry_id, modified);
    ++summary_.messages_failed;
}

bool CIndex::DeleteMessageRows(const std::string& entry_id) {
    if (!IsOpen(state_.gAttachRST)) return true;
    return DeleteFiltered("EntryID='" + entry_id + "'");
}

// Deletes all rows that meet the criterion. False when some may be left.
bool CIndex::DeleteFiltered(const std::string& criterion) {
    RecordSet& index = *state_.gAttachRST;
    PendingError pending;
    pending.Step(index.SetFilter(""));
    if (pending.failed() || index.RecordCount() == 0) return !pending.failed();
    pending.Step(index.SetFilter(criterion));
    while (!pending.failed() && !index.Eof()) {
        pending.Step(index.Delete());
        pending.Step(index.MoveNext());
    }
    // A filter that stays would hide rows from everybody.
    pending.Step(index.SetFilter(""));
    if (!pending.failed()) return true;
    LogLine(kProcedure,
            " unable to delete " + criterion + " " + std::to_string(pending.number()) + " " +
                pending.description(),
            1);
    return false;
}

// No message with attachments remains.
void CIndex::EmptyFolder(FolderScan& scan) {
    if (!IsOpen(state_.gAttachRST)) return;
    const std::string criterion = "FolderKey=" + std::to_string(scan.key);
    if (scan.last_count <= 0) {
        // Rows of a folder that had the key before.
        if (!run_.anew) DeleteFiltered(criterion);
        return;
    }
    const auto index = [&]() -> RecordSet& { return *state_.gAttachRST; };
    PendingError pending;
    pending.Step(index().SetFilter(""));
    if (index().RecordCount() > 0) pending.Step(index().SetFilter(criterion));
    const bool shows_rows = index().RecordCount() > 0;
    RaiseFolderChange(scan.path, 0);
    std::int32_t deleted = 0;
    if (shows_rows) pending.Step(index().MoveFirst());
    while (shows_rows && !pending.failed() && !index().Eof() && !cancel_) {
        RaiseProgress(scan.path, deleted + 1);
        state_.ports.loop.Pump();
        // A client that was served may have ended its session.
        if (!IsOpen(state_.gAttachRST)) {
            run_.index_lost = true;
            return;
        }
        if (pending.Step(index().Delete())) ++deleted;
        pending.Step(index().MoveNext());
    }
    pending.Step(index().SetFilter(""));
    if (cancel_) return;
    // Rows that could not be deleted are found by the next run, which sees the count of this one.
    if (!pending.failed()) UpdateFolderRecord(scan, 0);
    LogLine(kProcedure,
            " no attachments remain in '" + scan.name + "', deleted " + std::to_string(deleted) +
                " records from index",
            8);
}

void CIndex::UpdateFolderRecord(const FolderScan& scan, std::int32_t count) {
    if (!IsOpen(state_.gFolderRST)) return;
    RecordSet& records = *state_.gFolderRST;
    PendingError pending;
    pending.Step(records.MoveFirst());
    pending.Step(records.Find("FolderKey=" + std::to_string(scan.key)));
    if (pending.failed() || records.Eof()) return;
    pending.Step(records.Set("LastCount", count));
    // What came while the folder was scanned is not indexed, so the moment of the listing counts.
    pending.Step(records.Set("LastUpdate",
                             DateFromUnixNanoseconds(scan.listed_at_ns - StampLagNs(scan.rows))));
    if (!pending.Step(records.Update())) Drop(records.CancelUpdate());
}

}  // namespace trevix
