// The directory of an archive: where it lies and what its records say.
//
// Reads in pieces, so that neither memory nor time grows with anything but the directory itself.
// Nothing here trusts the archive: each length and offset is checked against the file.
#pragma once

#include <cstdint>
#include <string>

#include "platform/zip/archive_bytes.h"
#include "platform/zip/error_codes.h"

namespace trevix::zip_engine {

inline constexpr std::uint16_t kMethodStored = 0;
inline constexpr std::uint16_t kMethodDeflated = 8;

struct DirectoryPlace {
    std::uint64_t offset = 0;  // of the first record, in the file
    std::uint64_t size_bytes = 0;

    // What stands in front of the archive in its file, and so has to be added to the offsets that
    // the records state. Negative for an archive that lost its beginning.
    std::int64_t base = 0;

    std::uint64_t stated_count = 0;
    bool count_is_exact = false;  // else only its low 16 bits are stated

    // The last volume of a split archive: it can be listed, but contents are elsewhere.
    bool split = false;

    // Nothing follows the end record and its comment.
    bool ends_the_file = false;
};

struct DirectoryEntry {
    std::string stored_name;  // the bytes as they are
    std::string name;         // UTF-8, folders separated by "/"
    std::uint64_t size_bytes = 0;
    std::uint64_t compressed_bytes = 0;
    std::uint64_t header_offset = 0;  // in the file
    std::uint32_t crc32 = 0;
    std::uint32_t external_attributes = 0;
    std::uint16_t flags = 0;
    std::uint16_t method = 0;
    std::uint16_t dos_date = 0;
    std::uint16_t dos_time = 0;
    std::uint8_t made_by = 0;

    bool encrypted() const { return (flags & 1U) != 0; }
    bool is_folder() const { return stored_name.ends_with('/'); }
    bool is_link() const;
};

// Finds the directory from the end of the archive. kMissingArchive for no bytes at all, kTruncated
// when it begins like an archive but has no end, kMultiVolume for a part of a split archive that
// does not hold the directory, else kStructure.
Code FindDirectory(ArchiveBytes& archive, DirectoryPlace* place);

// Steps through the records.
class DirectoryCursor {
 public:
    DirectoryCursor() = default;
    explicit DirectoryCursor(const DirectoryPlace& place)
        : place_(place), position_(place.offset) {}

    bool at_end() const { return position_ >= place_.offset + place_.size_bytes; }

    // Reads the next record, or passes over it when `entry` is null. Not at the end.
    Code Next(ArchiveBytes& archive, DirectoryEntry* entry);

 private:
    // Makes `count` bytes from position_ on available in buffer_.
    Code Fill(ArchiveBytes& archive, std::size_t count);

    DirectoryPlace place_;
    std::uint64_t position_ = 0;
    std::string buffer_;
    std::uint64_t buffer_offset_ = 0;
};

// The number of records, found by walking through them: what the archive states about it may have
// wrapped or be wrong.
Code CountEntries(ArchiveBytes& archive, const DirectoryPlace& place, std::uint64_t* count);

}  // namespace trevix::zip_engine
