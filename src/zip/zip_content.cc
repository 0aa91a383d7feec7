// CZIP's looks into archives that came with a message: their rows for the attachment index, and the
// warning of dangerous files among them.
#include <limits>

#include "platform/errors.h"
#include "util/convert.h"
#include "util/file_name.h"
#include "zip/czip.h"

namespace trevix {
namespace {

constexpr const char* kClass = "CZIP";
constexpr std::int16_t kTraceLevel = 12;

constexpr const char* kWarningName = "\"!_Trevix Level 1 Attachment Warning - Readme.txt\"";
constexpr const char* kWarningText =
    "Quellmar Trevix Level 1 Attachment Warning\r\n"
    "This Zip file contains Level 1 files.\r\n"
    "Level 1 files contain potentially harmful content.\r\n"
    "Take appropriate precautions before opening these files.\r\n"
    "File Name(s):\r\n";

// Whether an archive that gave this code will give it every time, being what it is.
ZipListing OutcomeOf(std::int16_t code) {
    switch (code) {
        case 2:   // unexpected end
        case 3:   // structure
        case 13:  // empty
        case 21:  // one volume of several
            return ZipListing::kDamaged;
        default: return ZipListing::kFailed;
    }
}

// The text as an archive's comment, which has less room: as many whole lines as fit.
std::string CommentOf(const std::string& text) {
    constexpr std::size_t kLongest = 65535;
    if (text.size() <= kLongest) return text;
    return text.substr(0, text.rfind("\r\n", kLongest - 2) + 2);
}

}  // namespace

bool CZIP::GetZIPContent(const std::string& file_path, const std::string& zip_file,
                         const AttachedTo& message, const std::unique_ptr<RecordSet>& index,
                         MessageLoop& loop) {
    constexpr const char* kProcedure = "GetZIPContent";
    const auto trace = [&](const std::string& text) {
        log_.Write(kClass, kProcedure, " '" + zip_file + "' on '" + message.subject + "': " + text,
                   std::int16_t{kTraceLevel});
    };
    if (!CountEntries(file_path)) {
        const std::int16_t code =
            unzip_engine_ == nullptr ? std::int16_t{0} : unzip_engine_->error_code;
        const bool vanished = !files_.FileExists(file_path);
        last_listing_ = vanished ? ZipListing::kFailed : OutcomeOf(code);
        trace("not listed: " + CodeAndText(code));
        return false;
    }

    last_listing_ = ZipListing::kComplete;
    const std::int32_t count = unzip_engine_->entry_count;
    // An archive without entries takes one step as well, and finds nothing.
    for (std::int32_t i = 0; i == 0 || i < count; ++i) {
        loop.Pump();
        // A client that was served may have ended its session.
        if (index == nullptr || index->State() != kStateOpen) {
            last_listing_ = ZipListing::kFailed;
            trace("listed up to entry " + std::to_string(i) + ": the index was closed");
            break;
        }
        unzip_engine_->Action(kUnzipNext);
        if (unzip_engine_->error_code != 0) {
            if (i >= count) break;
            last_listing_ = OutcomeOf(unzip_engine_->error_code);
            trace("listed up to entry " + std::to_string(i) + ": " +
                  CodeAndText(unzip_engine_->error_code));
            break;
        }
        if (!AddContentRow(zip_file, message, *index, {log_, kClass, kProcedure})) {
            last_listing_ = ZipListing::kFailed;
        }
    }
    if (count == std::numeric_limits<std::int16_t>::max()) {
        trace("listed up to entry " + std::to_string(count) + ", the last that has a number");
    }
    return false;
}

bool CZIP::AddContentRow(const std::string& zip_file, const AttachedTo& message, RecordSet& index,
                         const RowLog& log) {
    AttachedFile file;
    file.file_name = EntryBaseName();
    if (file.file_name.empty()) return true;  // a folder
    // Deliberate: the index wants the compressed size there, and the number in zip_index.
    file.file_index = unzip_engine_->entry_compressed_size;
    const Result<Date> date = ToDate(unzip_engine_->entry_date);
    if (date.ok() && !unzip_engine_->entry_date.empty()) file.file_date = date.value();
    file.file_size = unzip_engine_->entry_size;
    file.zip_file = zip_file;
    file.zip_index = unzip_engine_->entry_number;
    const Status added = AddAttachmentRow(index, file, message, log);
    return added.ok() || added.error().number == kMultipleStep;
}

bool CZIP::CheckZIPContent(const std::string& file_path, const std::string& block) {
    if (!CountEntries(file_path)) return false;
    std::string names;
    // To the real end, not to the 16-bit count: what is dangerous may come late in an archive.
    for (;;) {
        unzip_engine_->Action(kUnzipNext);
        if (unzip_engine_->error_code != 0) break;
        const std::string& name = unzip_engine_->entry_name;
        const bool listed = block.find("." + Extension(name)) != std::string::npos;
        if (listed && !name.empty()) names += name + "\r\n";
    }
    if (names.empty()) return false;

    InitZIPCmdStruct(5);
    const std::int16_t code = AddWarning(file_path, kWarningText + names);
    if (code != 0) LogError("CheckZIPContent", " error: " + CodeAndText(code));
    return true;
}

bool CZIP::ZipAddWarning(const std::string& zip_path, const std::string& file_list,
                         std::int16_t level) {
    constexpr const char* kProcedure = "ZipAddWarning";
    if (file_list.empty()) return true;
    log_.Write(kClass, kProcedure, " for " + zip_path, std::int16_t{kTraceLevel});
    if (zip_engine_ != nullptr) zip_engine_->compression_level = level;
    const std::int16_t code = AddWarning(zip_path, kWarningText + file_list);
    if (code == 0) return true;
    LogError(kProcedure, " error for " + zip_path + ":" + GetErrorDesc(code));
    return false;
}

std::int16_t CZIP::AddWarning(const std::string& archive, const std::string& text) {
    if (zip_engine_ == nullptr) return 0;
    zip_engine_->zip_file = archive;
    zip_engine_->text_buffer = text;
    zip_engine_->item_list = kWarningName;
    zip_engine_->comment_switch = true;
    zip_engine_->comment = CommentOf(text);
    zip_engine_->Action(kZipAddText);
    // The next archive is another message's: it must not get this one's names.
    zip_engine_->text_buffer.clear();
    zip_engine_->comment_switch = false;
    zip_engine_->comment.clear();
    return zip_engine_->error_code;
}

}  // namespace trevix
