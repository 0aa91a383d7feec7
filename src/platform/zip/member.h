// Member: one entry on its way into an archive.
//
// Either its bytes are ready in memory, deflated or as they are, or it is a large file that is read
// while the archive is written, so that memory stays flat.
#pragma once

#include <zip.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "platform/unique_descriptor.h"
#include "platform/zip/archive_bytes.h"
#include "platform/zip/deflater.h"
#include "platform/zip/error_codes.h"
#include "platform/zip/heap_bytes.h"

namespace trevix::zip_engine {

// Content above this is never held in memory as a whole.
inline constexpr std::uint64_t kWholeLimitBytes = std::uint64_t{32} * 1024 * 1024;

// And all contents that one action holds together stay below this.
inline constexpr std::uint64_t kHeldLimitBytes = std::uint64_t{64} * 1024 * 1024;

class Member {
 public:
    explicit Member(std::string entry_name) : name_(std::move(entry_name)) {}
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;

    // Takes the content of the file, now (if it fits into `may_hold` bytes) or later. Failures are
    // kCannotOpenInput, and kReadFailed when the file changes meanwhile.
    Code TakeFile(const std::string& path, std::int16_t level, std::uint64_t may_hold,
                  Deflater& deflater);

    // Takes bytes as the content, deflated if that makes them smaller.
    void TakeBytes(HeapBytes bytes, std::size_t count, std::int16_t level, Deflater& deflater);

    // Takes an open file that has no name, to be read later.
    void TakeScratch(UniqueDescriptor file, std::uint64_t size_bytes, std::int16_t level,
                     Deflater& deflater);

    // A source for libzip that gives this member's content. It refers to the member, which has to
    // outlive the archive that it is added to. Null when there is no memory.
    zip_source_t* MakeSource(zip_t* archive);

    // The archive's entries of exactly this name go when this one is added.
    void ReplaceNamesakes() { replaces_namesakes_ = true; }
    bool replaces_namesakes() const { return replaces_namesakes_; }

    const std::string& name() const { return name_; }
    bool is_streamed() const { return data_ == nullptr; }
    std::uint64_t size_bytes() const { return size_bytes_; }
    std::uint64_t held_bytes() const { return data_bytes_; }

    // How libzip is to treat a streamed member.
    bool is_to_be_deflated() const { return deflate_; }
    void StoreAsItIs() { deflate_ = false; }

    // What went wrong while libzip read from here.
    Code failure() const { return failure_; }

 private:
    static zip_int64_t OnCommand(void* self, void* data, zip_uint64_t length,
                                 zip_source_cmd_t command);
    zip_int64_t Open();
    zip_int64_t Read(char* target, std::size_t count);
    zip_int64_t ReadFile(char* target, std::size_t count);
    void DescribeTo(zip_stat_t* about) const;
    zip_int64_t Fail(Code code, int system_error);

    // Whether sampling a file that will be streamed says that deflating it pays.
    static bool SamplesShrink(int descriptor, std::uint64_t size_bytes, Deflater& deflater);

    std::string name_;
    bool replaces_namesakes_ = false;
    std::time_t date_ = 0;
    std::uint64_t size_bytes_ = 0;

    // Ready in memory.
    HeapBytes data_;
    std::size_t data_bytes_ = 0;
    std::uint32_t crc32_ = 0;

    // Streamed.
    std::string path_;
    FileIdentity identity_;
    UniqueDescriptor scratch_;
    UniqueDescriptor open_;

    bool deflate_ = false;
    std::uint64_t position_ = 0;
    Code failure_ = kOk;
    zip_error_t error_{};
};

// The member's time as an entry can hold it: 1980 to 2107, local time.
std::time_t ClampToEntryRange(std::time_t when);

}  // namespace trevix::zip_engine
