#include "zip/czip.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "util/pending_error.h"

namespace trevix {
namespace {

constexpr const char* kClass = "CZIP";
constexpr std::int16_t kErrorLevel = 1;
constexpr std::int16_t kDetailLevel = 8;
constexpr std::int16_t kNothingToDo = 12;

// Answers to the engine.
constexpr std::int32_t kEndOfInput = 0;
constexpr std::int32_t kGoOn = 3;
constexpr std::int32_t kInputUnreadable = -1;

std::string TrimBlanks(const std::string& text) {
    const auto first = text.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// A list whose names are quoted already stays as it is; one bare path becomes one quoted name.
std::string QuoteItems(const std::string& items) {
    std::string quoted = TrimBlanks(items);
    if (!quoted.starts_with('"')) quoted.insert(quoted.begin(), '"');
    if (!quoted.ends_with('"')) quoted += '"';
    return quoted;
}

// A sum that overflows is a failed step: the sum keeps its value.
void AddChecked(std::int32_t& sum, std::int32_t value) {
    const std::int64_t wide = std::int64_t{sum} + value;
    if (wide < std::numeric_limits<std::int32_t>::min()) return;
    if (wide > std::numeric_limits<std::int32_t>::max()) return;
    sum = static_cast<std::int32_t>(wide);
}

}  // namespace

CZIP::CZIP(ZipFactory& factory, FileSystem& files, Log& log, std::int16_t configured_level)
    : files_(files), log_(log) {
    // An engine that cannot be created stays absent without a word, deliberately: the operations on
    // it show it by their missing results.
    PendingError pending;
    pending.Assign(zip_engine_, factory.CreateZipEngine());
    if (zip_engine_ != nullptr) {
        zip_engine_->on_memory = [this](ZipMemoryCall& call) { OnZipMemory(call); };
    }
    pending.Assign(unzip_engine_, factory.CreateUnzipEngine());
    InitZIPCmdStruct(configured_level);
    InitUNZIPCmdStruct();
}

CZIP::~CZIP() = default;

void CZIP::InitZIPCmdStruct(std::int16_t level) {
    if (zip_engine_ == nullptr) return;
    zip_engine_->compression_level = level;
    zip_engine_->zip_file.clear();
    zip_engine_->item_list.clear();
    zip_engine_->comment_switch = false;
    zip_engine_->comment.clear();
    zip_engine_->text_buffer.clear();
    zip_engine_->memory_input = false;
    // The items are files of a work directory whose name means nothing to the reader of the mail.
    zip_engine_->store_folder_names = false;
}

void CZIP::InitUNZIPCmdStruct() {
    if (unzip_engine_ == nullptr) return;
    unzip_engine_->zip_file.clear();
    unzip_engine_->destination.clear();
    unzip_engine_->never_overwrite = true;
}

std::string CZIP::GetErrorDesc(std::int16_t code) {
    constexpr std::int16_t kFirst = 2;
    constexpr std::array<const char*, 20> kTexts = {
        "Unexpected end of zip file",
        "Zip file structure error",
        "Out of memory",
        "Internal logic error",
        "Entry too large to split",
        "Invalid comment format",
        "Zip test (-T) failed or out of memory",
        "User interrupt or termination",
        "Error using a temp file",
        "Read or seek error",
        "Nothing to do",
        "Missing or empty zip file",
        "Error writing to a file",
        "Couldn't open to write",
        "Bad command line",
        "Could not complete operation",
        "Could not open a specified file to read",
        "Media error or Hardware failure",
        "Invalid combination of control parameters",
        "Improper use of a Multi-Volume Zip file",
    };
    const int index = code - kFirst;
    if (index < 0 || index >= static_cast<int>(kTexts.size())) return "Unknown error";
    return kTexts[static_cast<std::size_t>(index)];
}

std::string CZIP::CodeAndText(std::int16_t code) {
    return std::to_string(code) + " " + GetErrorDesc(code);
}

std::int16_t CZIP::AddItems(const std::string& archive, const std::string& items) {
    if (zip_engine_ == nullptr) return 0;
    zip_engine_->zip_file = archive;
    zip_engine_->item_list = items;
    zip_engine_->Action(kZipAddFiles);
    return zip_engine_->error_code;
}

std::int16_t CZIP::ZIPFiles(const std::string& archive, std::string& items, std::int16_t level) {
    if (zip_engine_ != nullptr) zip_engine_->compression_level = level;
    items = QuoteItems(items);
    const std::int16_t code = AddItems(archive, items);
    if (code != 0) LogError("ZIPFiles", " error: " + CodeAndText(code));
    return code;
}

std::int16_t CZIP::ZIPAttach(const std::string& archive, const std::string& items,
                             std::int16_t /*level*/) {
    const std::int16_t code = AddItems(archive, QuoteItems(items));
    if (code != 0) LogError("ZIPAttach", " error : " + CodeAndText(code));
    return code;
}

std::int16_t CZIP::ZIPExtract(const std::string& archive, std::string& destination) {
    if (!destination.ends_with('/')) destination += '/';
    if (unzip_engine_ == nullptr) return 0;

    unzip_engine_->never_overwrite = false;
    unzip_engine_->zip_file = archive;
    unzip_engine_->destination = destination;
    unzip_engine_->Action(kUnzipExtract);
    const std::int16_t code = unzip_engine_->error_code;
    if (code != 0) LogError("ZIPExtract", " error " + CodeAndText(code));
    return code;
}

bool CZIP::CountEntries(const std::string& archive) {
    if (unzip_engine_ == nullptr) return false;
    unzip_engine_->zip_file = archive;
    unzip_engine_->Action(kUnzipCount);
    return unzip_engine_->error_code == 0;
}

void CZIP::GetZIPBytes(const std::string& archive, std::int32_t& original_bytes,
                       std::int32_t& compressed_bytes) {
    if (!CountEntries(archive)) return;
    const std::int16_t count = unzip_engine_->entry_count;
    for (std::int32_t i = 0; i < count; ++i) {
        unzip_engine_->Action(kUnzipNext);
        AddChecked(original_bytes, unzip_engine_->entry_size);
        AddChecked(compressed_bytes, unzip_engine_->entry_compressed_size);
    }
}

std::string CZIP::EntryBaseName() const {
    const std::string& name = unzip_engine_->entry_name;
    return unzip_engine_->entry_path_flag ? name.substr(name.rfind('/') + 1) : name;
}

CZIP::Entry CZIP::FindEntry(const std::string& archive, const std::string& file_name) {
    if (!CountEntries(archive)) return {};
    const std::int16_t count = unzip_engine_->entry_count;
    for (std::int32_t i = 0; i < count; ++i) {
        unzip_engine_->Action(kUnzipNext);
        if (EntryBaseName() == file_name) {
            return {true, i, unzip_engine_->entry_compressed_size};
        }
    }
    return {};
}

std::int32_t CZIP::GetZIPIndex(const std::string& archive, const std::string& file_name) {
    return FindEntry(archive, file_name).position;
}

std::int32_t CZIP::GetZIPCompressedBytes(const std::string& archive, const std::string& file_name) {
    return FindEntry(archive, file_name).compressed_bytes;
}

std::int16_t CZIP::ZipMemToFileStream(const Variant& input, std::string& file_name,
                                      const std::string& archive, std::int16_t level,
                                      const std::string& comment) {
    constexpr const char* kProcedure = "ZipMemToFileStream";
    const Blob* bytes = std::get_if<Blob>(&input);
    if (bytes == nullptr) {
        LogError(kProcedure, " error: input not array");
        return kNothingToDo;
    }
    log_.Write(kClass, kProcedure,
               " for " + file_name + "; input size: " + std::to_string(bytes->size_bytes()),
               std::int16_t{kDetailLevel});

    if (!file_name.starts_with('"')) file_name = '"' + file_name + '"';
    if (zip_engine_ == nullptr) return 0;
    zip_engine_->memory_input = true;
    zip_engine_->item_list = file_name;
    zip_engine_->zip_file = archive;
    zip_engine_->compression_level = level;
    zip_engine_->comment_switch = !comment.empty();
    if (!comment.empty()) zip_engine_->comment = comment;

    input_ = *bytes;
    zip_engine_->Action(kZipMemoryToFile);
    input_ = Blob();

    const std::int16_t code = zip_engine_->error_code;
    if (code != 0) LogError(kProcedure, " error for " + archive + ":" + GetErrorDesc(code));
    return code;
}

Blob CZIP::ZipMemToMem(const Variant& input, const std::string& file_name,
                       const std::string& archive) {
    constexpr const char* kProcedure = "ZipMemToMem";
    log_.Write(kClass, kProcedure, "", std::int16_t{kDetailLevel});
    const Blob* bytes = std::get_if<Blob>(&input);
    if (bytes == nullptr) {
        LogError(kProcedure, " error: input not array");
        return {};
    }
    log_.Write(kClass, kProcedure, " input size: " + std::to_string(bytes->size_bytes()),
               std::int16_t{kDetailLevel});
    if (zip_engine_ == nullptr) return {};

    zip_engine_->memory_input = true;
    zip_engine_->item_list = file_name;
    zip_engine_->zip_file = archive;
    input_ = *bytes;
    output_.clear();
    zip_engine_->Action(kZipMemoryToMemory);
    input_ = Blob();
    std::string output = std::exchange(output_, std::string());

    const std::int16_t code = zip_engine_->error_code;
    if (code != 0) {
        LogError(kProcedure, " err for " + archive + ":" + GetErrorDesc(code));
        return {};
    }
    log_.Write(kClass, kProcedure, " output size: " + std::to_string(output.size()),
               std::int16_t{kDetailLevel});
    return Blob::FromString(std::move(output));
}

void CZIP::OnZipMemory(ZipMemoryCall& call) {
    call.result = kGoOn;
    if (call.data == nullptr) return;

    if (call.action == 0) {
        // The last byte is deliberately never served: what counts is the distance to the index of
        // the last byte, and callers have learnt to hand over one byte more.
        const std::int64_t last = static_cast<std::int64_t>(input_.size_bytes()) - 1;
        const std::int64_t available = std::min<std::int64_t>(last - call.input_offset, call.count);
        if (available == 0) {
            call.result = kEndOfInput;
            return;
        }
        if (available > 0) {
            const auto count = static_cast<std::size_t>(available);
            if (call.data->size() < count) call.data->resize(count);
            const auto offset = static_cast<std::uint64_t>(call.input_offset);
            // A content that cannot be read must not become a shorter content.
            if (!input_.ReadAt(offset, call.data->data(), count).ok()) {
                call.result = kInputUnreadable;
                return;
            }
        }
        call.count = static_cast<std::int32_t>(available);
    } else if (call.action == 1 && call.count >= 0 && call.output_offset >= 0) {
        // The array's upper bound becomes offset + count, so it holds one byte more than was
        // written; that byte is zero.
        const auto offset = static_cast<std::size_t>(call.output_offset);
        const auto count = std::min(static_cast<std::size_t>(call.count), call.data->size());
        output_.resize(offset + count + 1);
        std::copy_n(call.data->begin(), count,
                    output_.begin() + static_cast<std::ptrdiff_t>(offset));
    }
}

Blob CZIP::ReadFileBinary(const std::string& path) {
    constexpr const char* kProcedure = "ReadFileBinary";
    PendingError pending;
    const std::uint64_t size = pending.ValueOr(files_.FileSize(path), std::uint64_t{0});
    Blob content;
    if (size > 1) pending.Assign(content, files_.OpenBlob(path));

    if (pending.failed()) {
        LogError(kProcedure, " error: " + pending.description());
        return {};
    }
    const auto upper_bound = static_cast<std::int64_t>(content.size_bytes()) - 1;
    log_.Write(kClass, kProcedure, " size: " + std::to_string(upper_bound),
               std::int16_t{kDetailLevel});
    return content;
}

void CZIP::LogError(const char* procedure, const std::string& message) {
    log_.Write(kClass, procedure, message, std::int16_t{kErrorLevel});
}

}  // namespace trevix
