// The end of a run: the index and the folder record set go onto the results message, with a text
// that tells about the run, and the run lock is released.
//
// Both archives belong together: the marks of the one say up to when the other is complete. They
// are replaced in one save, or neither is.
#include "index/attach_index.h"
#include "index/cindex.h"
#include "store/folder_record_set.h"
#include "store/results_message.h"
#include "store/run_lock.h"
#include "util/convert.h"
#include "util/file_info.h"
#include "util/format.h"
#include "util/pending_error.h"

namespace trevix {
namespace {

constexpr const char* kProcedure = "SaveIndexResults";
constexpr const char* kLineEnd = "\r\n";

std::string NumberAndText(const Error& error) {
    return std::to_string(error.number) + " " + error.description;
}

// Milliseconds as seconds: "0", "0.25", "12.003".
std::string SecondsText(std::int32_t elapsed_ms) {
    const bool negative = elapsed_ms < 0;
    const std::int64_t ms = negative ? -std::int64_t{elapsed_ms} : std::int64_t{elapsed_ms};
    std::string text = std::to_string(ms / 1000);
    std::string fraction = std::to_string(1000 + ms % 1000).substr(1);
    while (!fraction.empty() && fraction.back() == '0')
        fraction.pop_back();
    if (!fraction.empty()) text += "." + fraction;
    return negative ? "-" + text : text;
}

}  // namespace

void CIndex::RefreshIndexCounts() {
    constexpr const char* kRefreshCounts = "RefreshIndexCounts";
    if (state_.gAttachRST == nullptr) {
        LogLine(kRefreshCounts, " recordset does not exist", 2);
        return;
    }
    if (!IsOpen(state_.gAttachRST)) {
        LogLine(kRefreshCounts, " recordset is not open", 2);
        return;
    }
    compressed_bytes_ = 0;
    uncompressed_bytes_ = 0;
    summary_.bytes = 0;
    summary_.stored_bytes = 0;
    RecordSet& index = *state_.gAttachRST;
    PendingError pending;
    pending.Step(index.SetFilter(""));
    if (index.RecordCount() > 0) pending.Step(index.MoveFirst());
    for (; !pending.failed() && !index.Eof(); pending.Step(index.MoveNext())) {
        const auto size = static_cast<std::int32_t>(index.NumberAt(kColumnFileSize).value_or(0));
        const auto packed = static_cast<std::int32_t>(index.NumberAt(kColumnFileIndex).value_or(0));
        const bool whole = index.NumberAt(kColumnZipIndex).value_or(0) < 0;
        summary_.bytes += size;
        summary_.stored_bytes += whole ? size : packed;
        // A total that would overflow stays as it was; the other rows still count.
        Drop(AddLong(uncompressed_bytes_, size));
        Drop(AddLong(compressed_bytes_, whole ? size : packed));
    }
    LogLine(kRefreshCounts, " AttachBytes=" + std::to_string(uncompressed_bytes_), 8);
}

// The statistics; empty when the index was not saved.
std::string CIndex::SaveIndexResults(std::int32_t elapsed_ms) {
    FileSystem& files = state_.ports.files;
    PendingError pending;
    std::unique_ptr<StagingDirectory> staging;
    const std::string directory = GetZipIndexDir();
    if (directory.empty()) {
        pending.Step(RuntimeError(kPathNotFound, "ZipIndex"));
    } else {
        pending.Assign(staging, files.MakeStaging(directory));
    }
    const auto save = [&](const std::unique_ptr<RecordSet>& record_set, const char* name) {
        if (staging == nullptr) return;
        pending.Step(On(record_set, [](RecordSet& records) { return records.SetFilter(""); }));
        pending.Step(On(record_set, [&](RecordSet& records) {
            return records.Save(staging->path() + name, kPersistAdtg);
        }));
    };
    save(state_.gAttachRST, kAttachAdtgName);
    // The totals and the count are those of what was saved, so they are taken before it is closed.
    RefreshIndexCounts();
    summary_.rows = IsOpen(state_.gAttachRST) ? state_.gAttachRST->RecordCount() : 0;
    state_.gIndexCreated = FormatGeneralDate(state_.ports.clock.NowLocal());
    LogLine(kProcedure, " set gstrIndexCreated=" + state_.gIndexCreated, 8);
    save(state_.gFolderRST, kFoldersAdtgName);
    CloseRecordSets();

    std::string zip_path;
    if (!pending.failed()) {
        zip_path = ZipRST(state_, staging->path() + kAttachAdtgName);
        const std::string folders_adtg = staging->path() + kFoldersAdtgName;
        const std::string folders_zip = ZipRST(state_, folders_adtg);
        Drop(files.Delete(folders_adtg));  // it goes with its directory at the latest
        for (const std::string& path : {zip_path, folders_zip}) {
            if (!files.FileExists(path)) pending.Step(RuntimeError(kFileNotFound, path));
        }
    }
    if (pending.failed()) {
        LogLine(kProcedure,
                " error saving recordset " + std::to_string(pending.number()) + " " +
                    pending.description(),
                1);
        ClearEndCI(state_);
        return {};
    }
    const std::string text = IndexStatistics(elapsed_ms, zip_path);
    return WriteResults(text, staging->path()) ? text : std::string();
}

std::string CIndex::IndexStatistics(std::int32_t elapsed_ms, const std::string& zip_path) {
    CFileInfo info(state_.ports.files, state_.ports.clock);
    info.FullPathName(zip_path);
    const std::int32_t zip_bytes = info.FileSize();
    LogLine(kProcedure, " compressed index size=" + std::to_string(zip_bytes), 8);
    return std::string("Attachment index created for:") + kLineEnd + run_.store_names +
           "Time to create index (seconds): " + SecondsText(elapsed_ms) + kLineEnd +
           "Attachments count (including files within zip attachments): " +
           std::to_string(summary_.rows) + kLineEnd +
           "Compressed size of all attachments: " + SizeText(compressed_bytes_) + kLineEnd +
           "Uncompressed size of all attachments: " + SizeText(uncompressed_bytes_) + kLineEnd +
           "Size of index (compressed): " + SizeText(zip_bytes);
}

bool CIndex::WriteResults(const std::string& text, const std::string& staging_path) {
    std::unique_ptr<Message> message = GetResultsHM(state_);
    if (message == nullptr) {
        LogLine(kProcedure, " hidden message not available, unable to save results", 1);
        return false;
    }
    PendingError pending;
    pending.Step(SetNamed(*message, "LastIndex", kTypeString8, state_.gIndexCreated));
    pending.Step(SetNamed(*message, "LogIndex", kTypeString8, text));
    pending.Step(SetNamed(*message, kIndexMemoryProperty, kTypeString8, run_.memory.Text()));
    pending.Step(SetNamed(*message, "EndCI", kTypeTime, state_.ports.clock.NowLocal()));
    LogLine(kProcedure, " write results to hidden message", 8);
    if (pending.failed()) {
        LogLine(kProcedure,
                " error writing results " + std::to_string(pending.number()) + " " +
                    pending.description(),
                1);
    } else if (ReplaceAttachments(*message, staging_path)) {
        pending.Step(message->SetSubject(kResultsSubject));
        const Status updated = message->Update();
        if (updated.ok()) {
            LogLine(kProcedure, " success", 8);
            state_.gLastIndex = state_.gIndexCreated;
            RemoveLoadedFolderFiles();
            return true;
        }
        LogLine(kProcedure, " error on update: " + NumberAndText(updated.error()), 1);
    }
    // The message stands as it was, so the lock has to be released for itself.
    message.reset();
    ClearEndCI(state_);
    return false;
}

// False when not both archives took the place of all older ones; the message is not to be saved
// then.
bool CIndex::ReplaceAttachments(Message& message, const std::string& staging_path) {
    PendingError pending;
    std::unique_ptr<Attachments> attachments;
    pending.Assign(attachments, message.AttachmentList());
    const std::int32_t count =
        pending.ValueOr(On(attachments, [](Attachments& list) { return list.Count(); }), 0);
    for (std::int32_t i = count; i >= 1; --i) {
        std::unique_ptr<Attachment> attachment;
        if (!pending.Assign(attachment, attachments->Item(i))) continue;
        const std::string name = pending.ValueOr(attachment->Name(), std::string());
        if (name != kAttachZipName && name != kFoldersZipName) continue;
        LogLine(kProcedure, " deleting existing attachment " + name, 8);
        pending.Step(attachment->Delete());
    }
    for (const char* name : {kAttachZipName, kFoldersZipName}) {
        pending.Step(On(attachments, [&](Attachments& list) {
            return list.Add(name, 0, kAttachmentFileData, staging_path + name);
        }));
    }
    if (!pending.failed()) return true;
    LogLine(kProcedure,
            " error replacing attachments: " + std::to_string(pending.number()) + " " +
                pending.description(),
            1);
    return false;
}

// What GetFolderRST left in the index directory is older than what the message holds now.
void CIndex::RemoveLoadedFolderFiles() {
    FileSystem& files = state_.ports.files;
    for (const char* name : {kFoldersZipName, kFoldersAdtgName}) {
        const std::string path = state_.gIndexDir + name;
        // What cannot be deleted now is replaced by the next run.
        if (files.FileExists(path)) Drop(files.Delete(path));
    }
}

}  // namespace trevix
