// The zip engine and the unzip engine: set properties, run an action, read the error code.
//
// Actions never throw and never report in any other way than through `error_code`: 0 is success, 2
// to 21 are failures with the meanings of CZIP's error texts. A failed action leaves the archive as
// it was: a missing one stays missing, an existing one keeps its bytes.
// Paths are UTF-8 and '/' separated. One engine serves one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/blob.h"
#include "platform/result.h"

namespace trevix {

inline constexpr std::int16_t kZipAddFiles = 4;        // the files of item_list, to zip_file
inline constexpr std::int16_t kZipAddText = 5;         // text_buffer as the entry named item_list
inline constexpr std::int16_t kZipMemoryToMemory = 6;  // memory input to memory output
inline constexpr std::int16_t kZipMemoryToFile = 7;    // memory input as item_list, to zip_file

inline constexpr std::int16_t kUnzipCount = 1;    // open and count
inline constexpr std::int16_t kUnzipNext = 2;     // step to the next entry
inline constexpr std::int16_t kUnzipExtract = 8;  // all entries, to destination

// One question of the zip engine during the memory actions.
//   action 0: wants input. `data` is the engine's buffer of `count` bytes; the answer puts bytes
//             from `input_offset` on into it and their number into `count`; result 0 is the end of
//             the input, 3 is "go on", anything else says that the input cannot be read: the action
//             fails with error 11. A count of 0 or less with result 3 is the end of the input too.
//   action 1: hands over output: `count` bytes in `data` that belong at `output_offset`.
struct ZipMemoryCall {
    std::int32_t action = 0;
    std::string* data = nullptr;
    std::int32_t count = 0;
    std::int64_t input_offset = 0;
    std::int64_t output_offset = 0;
    std::int32_t result = 0;
};

class ZipEngine {
 public:
    virtual ~ZipEngine() = default;

    // Properties, set before the action. They keep their values from one action to the next.
    std::int16_t compression_level = 0;  // 0 stores, 1 is fastest, 9 is smallest
    std::string zip_file;                // archive to create or to extend
    std::string item_list;               // one or more names, each in double quotes
    bool comment_switch = false;
    std::string comment;  // the archive's comment, written when the switch is on
    std::string text_buffer;
    bool memory_input = false;
    bool store_folder_names = false;  // names keep their folders as given; off: base names only
    std::function<void(ZipMemoryCall&)> on_memory;

    std::int16_t error_code = 0;

    // Adding an entry whose name the archive already holds keeps both: the new one becomes
    // "name (2).ext", "name (3).ext" and so on. Only kZipAddText, meant for texts of our own,
    // replaces the entry of exactly that name. An unknown action is error 16.
    virtual void Action(std::int16_t action) = 0;
};

class UnzipEngine {
 public:
    virtual ~UnzipEngine() = default;

    std::string zip_file;
    std::string destination;       // ends in "/"; must exist
    bool never_overwrite = false;  // an existing file is error 15 instead of replaced
    std::int16_t error_code = 0;

    // After kUnzipCount. The count is 16-bit: a larger archive counts as 32767.
    std::int16_t entry_count = 0;

    // After kUnzipNext.
    std::string entry_name;        // UTF-8, folders separated by "/"
    bool entry_path_flag = false;  // the name carries a folder
    std::int32_t entry_size = 0;   // bytes before compression, at most 2147483647
    std::int32_t entry_compressed_size = 0;
    std::int32_t entry_number = 0;  // 0-based
    std::string entry_date;         // "MM/DD/YYYY HH:MM:SS", empty when there is none

    // kUnzipExtract writes nothing outside the destination, whatever the names say (absolute
    // names, "..", links: error 3), and replaces existing files.
    virtual void Action(std::int16_t action) = 0;
};

// An independent look at a finished archive, before the only other copy of its content goes.
class ArchiveProof {
 public:
    virtual ~ArchiveProof() = default;

    // Success when `archive`, opened anew from disk, holds exactly as many entries as `contents`
    // and for each of these one entry of its own with equal size and CRC-32 whose inflated bytes
    // are equal. kMalformed when it does not; the description says what is wrong. kIo when the
    // archive or a content cannot be read.
    virtual Status Verify(const std::string& archive, const std::vector<Blob>& contents) = 0;
};

class ZipFactory {
 public:
    virtual ~ZipFactory() = default;
    virtual Result<std::unique_ptr<ZipEngine>> CreateZipEngine() = 0;
    virtual Result<std::unique_ptr<UnzipEngine>> CreateUnzipEngine() = 0;
    virtual ArchiveProof& Proof() = 0;
};

}  // namespace trevix
