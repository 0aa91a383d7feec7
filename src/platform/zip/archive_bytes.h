// ArchiveBytes: where the bytes of an archive come from while it is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/unique_descriptor.h"
#include "platform/zip/error_codes.h"

namespace trevix::zip_engine {

class ArchiveBytes {
 public:
    ArchiveBytes() = default;
    ArchiveBytes(const ArchiveBytes&) = delete;
    ArchiveBytes& operator=(const ArchiveBytes&) = delete;
    virtual ~ArchiveBytes() = default;

    virtual std::uint64_t size_bytes() const = 0;

    // Exactly `count` bytes from `offset`. A range that leaves the archive is kStructure, a failed
    // or shortened read kReadFailed.
    virtual Code ReadAt(std::uint64_t offset, char* target, std::size_t count) = 0;
};

// Over an open file, which stays the caller's.
class DescriptorBytes final : public ArchiveBytes {
 public:
    DescriptorBytes(int descriptor, std::uint64_t size_bytes)
        : descriptor_(descriptor), size_bytes_(size_bytes) {}

    std::uint64_t size_bytes() const override { return size_bytes_; }
    Code ReadAt(std::uint64_t offset, char* target, std::size_t count) override;

 private:
    int descriptor_;
    std::uint64_t size_bytes_;
};

// What makes a file the same file with the same content as before.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t size_bytes = 0;
    std::int64_t modified_seconds = 0;
    std::int64_t modified_nanoseconds = 0;

    friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

// Opens a regular file for reading, without following a link in its last component and without
// waiting for anything. On failure errno says why (EISDIR for what is no regular file).
UniqueDescriptor OpenRegularFile(const std::string& path, FileIdentity* identity);

// Opens the file anew for each read, so that a listing that is never finished holds no descriptor.
// A file that has been changed or replaced since is kReadFailed.
class ReopeningBytes final : public ArchiveBytes {
 public:
    ReopeningBytes(std::string path, const FileIdentity& identity)
        : path_(std::move(path)), identity_(identity) {}

    std::uint64_t size_bytes() const override { return identity_.size_bytes; }
    Code ReadAt(std::uint64_t offset, char* target, std::size_t count) override;

 private:
    std::string path_;
    FileIdentity identity_;
};

}  // namespace trevix::zip_engine
