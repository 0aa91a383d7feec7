// ArchiveOutput: the archive that libzip reads from and the new one that it writes.
//
// The new archive is a temporary file beside the old one, made exclusively and for this user alone,
// and takes the old one's place only when everything is written. On every other way out the
// temporary file is gone and the old archive is as it was. An archive for memory has no place: it
// is a file without a name.
#pragma once

#include <zip.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/unique_descriptor.h"
#include "platform/zip/error_codes.h"
#include "platform/zip/heap_bytes.h"

namespace trevix::zip_engine {

// A file without a name in `directory` ("" is the current one), readable and writable by this
// process alone. Invalid on failure, and errno says why.
UniqueDescriptor OpenScratch(const std::string& directory);

// The directory of a path, "." when it names none.
std::string DirectoryOf(const std::string& path);

// Where scratch files of actions without an archive file go.
std::string ScratchDirectory();

// Everything to the end of `count` bytes. 0 or an errno value.
int WriteFully(int descriptor, std::uint64_t offset, const char* bytes, std::size_t count);

class ArchiveOutput {
 public:
    // `path` is empty for an archive without a name.
    explicit ArchiveOutput(std::string path) : path_(std::move(path)) {}
    ArchiveOutput(const ArchiveOutput&) = delete;
    ArchiveOutput& operator=(const ArchiveOutput&) = delete;
    ~ArchiveOutput();

    // Opens the old archive, if there is one. kCannotCreate for what must not be replaced.
    Code OpenOld();
    bool has_old() const { return old_.valid() && old_bytes_ > 0; }
    int old_descriptor() const { return old_.get(); }
    std::uint64_t old_bytes() const { return old_bytes_; }

    // A source for libzip that is this archive; it refers to this object.
    zip_source_t* MakeSource(zip_error_t* error);

    // After libzip has closed the archive: its bytes are all in this file.
    int new_descriptor() const { return new_.get(); }
    std::uint64_t new_bytes() const { return new_bytes_; }

    // Puts the new archive into the place of the old one.
    Code Publish();

    // What went wrong on our side while libzip was at work.
    Code failure() const { return failure_; }

 private:
    static zip_int64_t OnCommand(void* self, void* data, zip_uint64_t length,
                                 zip_source_cmd_t command);
    zip_int64_t OnReadCommand(void* data, zip_uint64_t length, zip_source_cmd_t command);
    zip_int64_t OnWriteCommand(void* data, zip_uint64_t length, zip_source_cmd_t command);
    void DescribeTo(zip_stat_t* about) const;
    zip_int64_t BeginWriting();
    zip_int64_t BeginCloning(std::uint64_t count);
    zip_int64_t Write(const char* bytes, std::size_t count);
    bool Flush();
    void DropNew();
    zip_int64_t Fail(Code code, int zip_code, int system_error);

    std::string path_;
    UniqueDescriptor old_;
    std::uint64_t old_bytes_ = 0;
    unsigned mode_ = 0600;
    zip_int64_t read_position_ = 0;

    UniqueDescriptor new_;
    std::string new_path_;  // empty once it is published, or without a name
    std::uint64_t new_bytes_ = 0;

    // What was written last, kept together because libzip writes in small pieces and goes back to
    // complete a header: a small archive is one system call.
    HeapBytes window_;
    std::uint64_t window_at_ = 0;  // where the window stands in the new archive
    std::size_t window_used_ = 0;  // bytes in it
    std::uint64_t write_position_ = 0;

    Code failure_ = kOk;
    zip_error_t error_{};
};

}  // namespace trevix::zip_engine
