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

bool CManage::SaveFolderRecordSet(Message& message) {
    LogLine(kProcedure, " saving folder recordset", 8);
    if (state_.gIndexDir.empty()) {
        LogLine(kProcedure, " no index directory to save the folder recordset in", 1);
        return SaveResultsMessage(message);
    }
    const std::string adtg_path = state_.gIndexDir + "txfolders.adtg";
    const std::string zip_path = state_.gIndexDir + kZipName;
    FileSystem& files = state_.ports.files;
    PendingError pending;

    // The file that the records were loaded from is still there, and saving never overwrites.
    if (files.FileExists(adtg_path)) pending.Step(files.Delete(adtg_path));
    pending.Step(On(state_.gFolderRST,
                    [&](RecordSet& records) { return records.Save(adtg_path, kPersistAdtg); }));
    const bool record_set_saved = !pending.failed();
    if (files.FileExists(zip_path)) {
        pending.Clear();
        if (pending.Step(files.Delete(zip_path))) {
            LogLine(kProcedure, " deleted existing zip at " + zip_path, 8);
        } else {
            LogLine(kProcedure,
                    " error deleting existing zip at " + zip_path + ": " + NumberAndText(pending),
                    1);
        }
    }
    const bool zipped = record_set_saved && zip_.ZIPAttach(zip_path, adtg_path, state_.Level) == 0;

    pending.Clear();
    std::unique_ptr<Attachments> attachments;
    pending.Assign(attachments, message.AttachmentList());
    // An older record set is better than none: it goes only when the new one is at hand.
    if (zipped) ReplaceZipAttachment(attachments.get(), zip_path);
    const bool updated = SaveResultsMessage(message);

    // What cannot be deleted now is replaced by the next run.
    if (files.FileExists(zip_path)) Drop(files.Delete(zip_path));
    if (files.FileExists(adtg_path)) Drop(files.Delete(adtg_path));
    return updated;
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

void CManage::ReplaceZipAttachment(Attachments* attachments, const std::string& zip_path) {
    PendingError pending;
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
