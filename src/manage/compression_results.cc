// The end of a run: totals, compression log, end mark and folder record set go onto the results
// message.
#include "manage/cmanage.h"
#include "store/folder_record_set.h"
#include "store/results_message.h"
#include "util/pending_error.h"

namespace trevix {
namespace {

constexpr const char* kProcedure = "SaveCompressionResults";
constexpr const char* kZipName = "txfolders.zip";

std::string NumberAndText(const PendingError& pending) {
    return std::to_string(pending.number()) + " " + pending.description();
}

}  // namespace

// False when there is no results message to write to.
bool CManage::SaveCompressionResults(const std::string& log, Date end_time) {
    const std::unique_ptr<Message> message = GetResultsHM(state_);
    if (message == nullptr) {
        LogLine(kProcedure, " hidden message not available, unable to record compression results",
                1);
        return false;
    }
    LogLine(kProcedure, " writing compression stats to hidden message", 8);
    PendingError pending;
    pending.Step(SetNamed(*message, "Incoming Deleted Stationery", kTypeInteger32,
                          state_.gDeletedStationery));
    pending.Step(
        SetNamed(*message, "Incoming Original Attachments", kTypeInteger32, state_.gOriginalBytes));
    pending.Step(SetNamed(*message, "Incoming Compressed Attachments", kTypeInteger32,
                          state_.gCompressedBytes));
    pending.Step(SetNamed(*message, "LastIndex", kTypeString8, state_.gLastIndex));
    if (!log.empty()) pending.Step(SetNamed(*message, "LastCompressLog", kTypeString8, log));
    if (end_time != Date{}) pending.Step(SetNamed(*message, "EndCI", kTypeTime, end_time));

    SaveFolderRecordSet(*message);
    return true;
}

// The files are made in a private directory below the index directory, because another process may
// be at work on the same store; what was loaded from there is removed with them.
bool CManage::SaveFolderRecordSet(Message& message) {
    LogLine(kProcedure, " saving folder recordset", 8);
    FileSystem& files = state_.ports.files;
    PendingError pending;
    std::unique_ptr<StagingDirectory> staging;
    if (state_.gIndexDir.empty() || !pending.Assign(staging, files.MakeStaging(state_.gIndexDir))) {
        LogLine(kProcedure,
                " no directory to save the folder recordset in " + NumberAndText(pending), 1);
        return SaveResultsMessage(message);
    }
    const std::string adtg_path = staging->path() + "txfolders.adtg";
    const std::string zip_path = staging->path() + kZipName;
    const bool saved = pending.Step(On(state_.gFolderRST, [&](RecordSet& records) {
        return records.Save(adtg_path, kPersistAdtg);
    }));
    RemoveLoadedZip(state_.gIndexDir + kZipName);
    // An older record set is better than none: it goes only when the new one is at hand.
    if (saved && zip_.ZIPAttach(zip_path, adtg_path, state_.Level) == 0) {
        ReplaceZipAttachment(message, zip_path);
    }
    const bool updated = SaveResultsMessage(message);

    const std::string loaded_path = state_.gIndexDir + "txfolders.adtg";
    // What cannot be deleted now is replaced by the next run.
    if (files.FileExists(loaded_path)) Drop(files.Delete(loaded_path));
    return updated;
}

void CManage::RemoveLoadedZip(const std::string& zip_path) {
    if (!state_.ports.files.FileExists(zip_path)) return;
    PendingError pending;
    if (pending.Step(state_.ports.files.Delete(zip_path))) {
        LogLine(kProcedure, " deleted existing zip at " + zip_path, 8);
    } else {
        LogLine(kProcedure,
                " error deleting existing zip at " + zip_path + ": " + NumberAndText(pending), 1);
    }
}

bool CManage::SaveResultsMessage(Message& message) {
    PendingError pending;
    pending.Step(message.SetSubject(kResultsSubject));
    pending.Step(message.Update());
    if (pending.failed()) {
        LogLine(kProcedure, " error on update: " + NumberAndText(pending), 1);
    } else {
        LogLine(kProcedure, " added new attachment and updated message.", 8);
    }
    return !pending.failed();
}

void CManage::ReplaceZipAttachment(Message& message, const std::string& zip_path) {
    PendingError pending;
    std::unique_ptr<Attachments> attachments;
    pending.Assign(attachments, message.AttachmentList());
    const std::int32_t count =
        pending.ValueOr(On(attachments, [](Attachments& list) { return list.Count(); }), 0);
    for (std::int32_t i = count; i >= 1; --i) {
        std::unique_ptr<Attachment> attachment;
        if (!pending.Assign(attachment, attachments->Item(i))) continue;
        if (pending.ValueOr(attachment->Name(), std::string()) != kZipName) continue;
        LogLine(kProcedure, " deleting existing txfolders.zip attachment", 8);
        if (!pending.Step(attachment->Delete())) {
            LogLine(kProcedure, " error deleting existing attachment: " + NumberAndText(pending),
                    1);
            pending.Clear();
        }
    }
    if (!pending.Step(On(attachments, [&](Attachments& list) {
            return list.Add(kZipName, 0, kAttachmentFileData, zip_path);
        }))) {
        LogLine(kProcedure, " error adding attachment: " + NumberAndText(pending), 1);
    }
}

}  // namespace trevix
