#include "store/folder_record_set.h"

#include <array>
#include <vector>

#include "shell/settings.h"
#include "store/results_message.h"
#include "util/convert.h"
#include "util/pending_error.h"
#include "util/reg_op.h"
#include "zip/czip.h"

namespace trevix {
namespace {

constexpr const char* kModule = "basCI";
constexpr const char* kGetFolderRST = "GetFolderRST";
constexpr const char* kZipName = "txfolders.zip";

struct FieldDefinition {
    const char* name;
    FieldType type;
    int attributes;
};

constexpr std::array kFields = {
    FieldDefinition{"FolderKey", FieldType::kInteger, kFieldKeyColumn},
    FieldDefinition{"FolderID", FieldType::kBstr, kFieldUnspecified},
    FieldDefinition{"LastCount", FieldType::kInteger, kFieldUnspecified},
    FieldDefinition{"LastUpdate", FieldType::kDate, kFieldUnspecified},
    FieldDefinition{"LastCompress", FieldType::kDate, kFieldUnspecified},
    FieldDefinition{"LastHTML", FieldType::kDate, kFieldUnspecified},
    FieldDefinition{"LastZipBytes", FieldType::kInteger, kFieldUnspecified},
};

void LogLine(BasCI& state, const std::string& message, std::int16_t level) {
    state.log.Write(kModule, kGetFolderRST, message, level);
}

// Whether the user asked, once, for a start from nothing; the request is withdrawn by reading it.
bool TakeResetRequest(BasCI& state) {
    RegOp key(state.ports.registry, state.ports.environment);
    key.Root(static_cast<std::int32_t>(kCurrentUser));
    key.Key(kAddinKey);
    PendingError pending;
    if (!pending.ValueOr(ToBoolean(key.Value("ResetFolderRST")), false)) return false;
    LogLine(state, " resetting folder recordset", 4);
    key.Value("ResetFolderRST", std::int32_t{0});
    return true;
}

// Brings the saved record set from the results message into the index directory.
void ExtractSaved(BasCI& state, Message& message) {
    const std::string zip_path = state.gIndexDir + kZipName;
    PendingError pending;
    std::unique_ptr<Attachments> attachments;
    if (!pending.Assign(attachments, message.AttachmentList())) return;
    const std::int32_t count = pending.ValueOr(attachments->Count(), 0);
    for (std::int32_t i = 1; i <= count; ++i) {
        std::unique_ptr<Attachment> attachment;
        if (!pending.Assign(attachment, attachments->Item(i))) continue;
        if (pending.ValueOr(attachment->Name(), std::string()) != kZipName) continue;

        if (state.ports.files.FileExists(zip_path))
            pending.Step(state.ports.files.Delete(zip_path));
        pending.Step(attachment->WriteToFile(zip_path));
        CZIP zip(state.ports.zip, state.ports.files, state.log, state.Level);
        std::string destination = state.gIndexDir;
        zip.ZIPExtract(zip_path, destination);
        return;
    }
}

using SavedRow = std::vector<Variant>;

// The records of a layout with fewer fields, by our field order; fields that it lacks are empty.
std::vector<SavedRow> ReadAllRows(RecordSet& record_set) {
    std::vector<SavedRow> rows;
    PendingError pending;
    for (pending.Step(record_set.MoveFirst()); !pending.failed() && !record_set.Eof();
         pending.Step(record_set.MoveNext())) {
        SavedRow row;
        for (const FieldDefinition& field : kFields) {
            PendingError missing;
            row.push_back(missing.ValueOr(record_set.Get(field.name), Variant()));
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

void UpgradeFields(BasCI& state) {
    LogLine(state, " adding fields to folder recordset", 8);
    const std::vector<SavedRow> rows = ReadAllRows(*state.gFolderRST);
    ResetFolderRST(state);
    if (state.gFolderRST == nullptr) return;
    PendingError pending;
    for (const SavedRow& row : rows) {
        pending.Step(state.gFolderRST->AddNew());
        for (std::size_t i = 0; i < kFields.size(); ++i) {
            if (!IsEmpty(row[i])) pending.Step(state.gFolderRST->Set(kFields[i].name, row[i]));
        }
        pending.Step(state.gFolderRST->Update());
    }
}

// The saved file, wherever it came from, or a new record set.
void OpenFromDirectory(BasCI& state) {
    const std::string adtg_path = state.gIndexDir + "txfolders.adtg";
    if (!state.ports.files.FileExists(adtg_path)) {
        LogLine(state, " no existing folder adtg", 8);
        ResetFolderRST(state);
        return;
    }
    LogLine(state, " working with existing folders adtg", 8);
    PendingError pending;
    if (!pending.Step(state.gFolderRST->OpenFile(adtg_path))) {
        LogLine(state, " " + adtg_path + ": " + pending.description(), 2);
        return;
    }
    if (state.gFolderRST->FieldCount() < static_cast<int>(kFields.size())) UpgradeFields(state);
}

}  // namespace

bool IsOpen(const std::unique_ptr<RecordSet>& record_set) {
    return record_set != nullptr && record_set->State() == kStateOpen;
}

bool GetFolderRST(BasCI& state) {
    if (TakeResetRequest(state)) {
        // The copy on the results message would bring the dropped records back: it is not read.
        ResetFolderRST(state);
        if (!IsOpen(state.gFolderRST)) return false;
        LogLine(state, " return True", 8);
        return true;
    }
    if (IsOpen(state.gFolderRST)) {
        LogLine(state, " folder recordset already open", 8);
        return true;
    }
    if (state.gFolderRST == nullptr) {
        PendingError pending;
        if (!pending.Assign(state.gFolderRST, state.ports.record_sets.CreateRecordSet())) {
            return false;
        }
    }

    // Without a directory of its own the file would land wherever the process happens to be.
    if (state.gIndexDir.empty()) return false;
    const std::unique_ptr<Message> message = GetResultsHM(state);
    if (message == nullptr) {
        LogLine(state, " hidden message not available", 1);
    } else {
        ExtractSaved(state, *message);
    }
    OpenFromDirectory(state);
    if (!IsOpen(state.gFolderRST)) return false;
    LogLine(state, " return True", 8);
    return true;
}

void ResetFolderRST(BasCI& state) {
    state.gFolderRST.reset();
    PendingError pending;
    std::unique_ptr<RecordSet> fresh;
    if (!pending.Assign(fresh, state.ports.record_sets.CreateRecordSet())) return;
    for (const FieldDefinition& field : kFields) {
        pending.Step(fresh->Append(field.name, field.type, 0, field.attributes));
    }
    pending.Step(fresh->Open());
    if (!pending.failed()) state.gFolderRST = std::move(fresh);
}

std::string ZipRST(BasCI& state, const std::string& adtg_path) {
    constexpr const char* kExtension = ".adtg";
    std::string zip_path = adtg_path;
    for (std::size_t at = zip_path.find(kExtension); at != std::string::npos;
         at = zip_path.find(kExtension, at)) {
        zip_path.replace(at, std::string(kExtension).size(), ".zip");
    }

    PendingError pending;
    if (state.ports.files.FileExists(zip_path)) pending.Step(state.ports.files.Delete(zip_path));
    CZIP zip(state.ports.zip, state.ports.files, state.log, state.Level);
    zip.ZIPAttach(zip_path, adtg_path, state.Level);
    if (state.ports.files.FileExists(zip_path)) {
        state.log.Write(kModule, "ZipRST", " successfully zipped " + adtg_path, 8);
    } else {
        state.log.Write(kModule, "ZipRST",
                        " error zipping " + adtg_path + " " + std::to_string(pending.number()) +
                            " " + pending.description(),
                        1);
    }
    return zip_path;
}

bool FindFolderRecord(RecordSet& record_set, const std::string& folder_id, bool add) {
    PendingError pending;
    if (record_set.RecordCount() > 0) {
        pending.Step(record_set.MoveFirst());
        // The ID stands without quotes; the field is a text, so the value is one as well.
        pending.Step(record_set.Find("FolderID=" + folder_id));
        if (!pending.failed() && !record_set.Eof()) return true;
    }
    if (!add) return false;

    pending.Clear();
    std::int32_t key = 1;
    if (record_set.RecordCount() > 0) {
        pending.Step(record_set.MoveLast());
        const Variant last = pending.ValueOr(record_set.Get("FolderKey"), Variant());
        key = pending.ValueOr(ToLong(last), 0) + 1;
    }
    pending.Step(record_set.AddNew());
    pending.Step(record_set.Set("FolderKey", key));
    pending.Step(record_set.Set("FolderID", folder_id));
    return !pending.failed();
}

}  // namespace trevix
