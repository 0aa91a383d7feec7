// The attachment index record set: made empty, or loaded from the results message.
#include "index/attach_index.h"

#include "index/cindex.h"
#include "store/folder_record_set.h"
#include "store/results_message.h"
#include "util/convert.h"
#include "util/file_info.h"
#include "util/format.h"
#include "util/pending_error.h"

namespace trevix {
namespace {

constexpr const char* kInitIndexRST = "InitIndexRST";
constexpr const char* kGetAttachIndex = "GetAttachIndex";

std::string NumberAndText(const PendingError& pending) {
    return std::to_string(pending.number()) + " " + pending.description();
}

// The first attachment that carries a saved index; null when there is none.
std::unique_ptr<Attachment> SavedIndexOf(Message& message) {
    PendingError pending;
    std::unique_ptr<Attachments> attachments;
    if (!pending.Assign(attachments, message.AttachmentList())) return nullptr;
    const std::int32_t count = pending.ValueOr(attachments->Count(), 0);
    for (std::int32_t i = 1; i <= count; ++i) {
        std::unique_ptr<Attachment> attachment;
        if (!pending.Assign(attachment, attachments->Item(i))) continue;
        if (pending.ValueOr(attachment->Name(), std::string()) == kAttachZipName) return attachment;
    }
    return nullptr;
}

}  // namespace

Status AppendAttachColumns(RecordSet& record_set) {
    for (const AttachColumn& column : kAttachColumns) {
        TREVIX_RETURN_IF_ERROR(
            record_set.Append(column.name, column.type, column.defined_size, column.attributes));
    }
    return {};
}

bool HasAttachColumns(const RecordSet& record_set) {
    if (record_set.FieldCount() < static_cast<int>(kAttachColumns.size())) return false;
    int at = 0;
    for (const AttachColumn& column : kAttachColumns) {
        if (record_set.FieldName(at) != column.name) return false;
        if (record_set.FieldTypeAt(at) != column.type) return false;
        ++at;
    }
    return true;
}

// An old record set that does not close must never stop a new run, so it is dropped whatever its
// state. False leaves no record set.
bool CIndex::InitIndexRST() {
    state_.gAttachRST.reset();
    PendingError pending;
    std::unique_ptr<RecordSet> fresh;
    if (pending.Assign(fresh, state_.ports.record_sets.CreateRecordSet()) &&
        pending.Step(AppendAttachColumns(*fresh)) && pending.Step(fresh->Open())) {
        state_.gAttachRST = std::move(fresh);
        return true;
    }
    LogLine(kInitIndexRST, " error " + NumberAndText(pending), 1);
    return false;
}

bool CIndex::GetAttachIndex() {
    // A copy in the work directory stands for the saved index, deliberately, and is used up by it.
    // Nobody knows which folder marks it belongs to.
    FileSystem& files = state_.ports.files;
    const std::string local_zip = state_.gZipTemp + kAttachZipName;
    if (files.FileExists(local_zip)) {
        const bool opened = OpenIndexFile(state_.gZipTemp + kAttachAdtgName);
        ForgetMarks();
        // One that stays is met by the next run, which trusts it as little.
        Drop(files.Delete(local_zip));
        return opened;
    }

    const std::unique_ptr<Message> message = GetResultsHM(state_);
    if (message == nullptr) {
        LogLine(kGetAttachIndex, " hidden message not available; aborting", 1);
        RaiseAbort("Hidden message not available");
        cancel_ = true;
        run_.no_results_message = true;
        return false;
    }
    if (!LoadSavedIndex(*message)) return false;
    if (!LoadMemory(*message)) ForgetMarks();
    return true;
}

// False when the message has a memory that cannot be read: which rows are unfinished is not known.
bool CIndex::LoadMemory(Message& message) {
    auto value = GetNamed(message, kIndexMemoryProperty, kTypeString8);
    if (!value.ok()) return value.error().kind == ErrorKind::kNotFound;
    const auto text = ToText(value.value());
    if (!text.ok()) return false;
    run_.memory.Load(text.value());
    return true;
}

// The index was not saved together with the folder records at hand: they do not say up to when it
// is complete. That goes for stores that this run does not walk as well.
void CIndex::ForgetMarks() {
    if (!IsOpen(state_.gFolderRST)) return;
    RecordSet& records = *state_.gFolderRST;
    if (records.RecordCount() == 0) return;
    PendingError pending;
    for (pending.Step(records.MoveFirst()); !pending.failed() && !records.Eof();
         pending.Step(records.MoveNext())) {
        pending.Step(records.Set("LastUpdate", Date{}));
        pending.Step(records.Update());
    }
    // Records that cannot be written must not be saved with this index.
    if (pending.failed()) run_.index_lost = true;
}

// The files lie in a private directory that goes with the load: what a killed run leaves there is
// never taken for an index.
bool CIndex::LoadSavedIndex(Message& message) {
    FileSystem& files = state_.ports.files;
    PendingError pending;
    std::unique_ptr<StagingDirectory> staging;
    const std::unique_ptr<Attachment> saved = SavedIndexOf(message);
    if (saved == nullptr || !pending.Assign(staging, files.MakeStaging(state_.gZipTemp))) {
        const std::string why =
            pending.failed() ? " no saved index: " + pending.description() : " no saved index";
        LogLine(kGetAttachIndex, why, pending.failed() ? 1 : 4);
        return false;
    }
    const std::string zip_path = staging->path() + kAttachZipName;
    const std::string adtg_path = staging->path() + kAttachAdtgName;
    if (!pending.Step(saved->WriteToFile(zip_path)) || !files.FileExists(zip_path)) {
        LogLine(kGetAttachIndex, " error on WriteToFile " + pending.description(), 1);
        return false;
    }
    LogLine(kGetAttachIndex, " WriteToFile", 8);
    std::string destination = staging->path();
    zip_.ZIPExtract(zip_path, destination);

    CFileInfo info(files, state_.ports.clock);
    info.FullPathName(adtg_path);
    state_.gIndexCreated = FormatGeneralDate(info.ModifyTime());
    LogLine(kGetAttachIndex, " update file index date: " + state_.gIndexCreated, 8);
    return OpenIndexFile(adtg_path);
}

bool CIndex::OpenIndexFile(const std::string& adtg_path) {
    state_.gAttachRST.reset();
    PendingError pending;
    if (pending.Assign(state_.gAttachRST, state_.ports.record_sets.CreateRecordSet()) &&
        pending.Step(AppendAttachColumns(*state_.gAttachRST)) &&
        pending.Step(state_.gAttachRST->OpenFile(adtg_path))) {
        return true;
    }
    // An index that cannot be read is made anew, so this is no more than a remark.
    LogLine(kGetAttachIndex, " error " + NumberAndText(pending), 2);
    return false;
}

}  // namespace trevix
