#include "platform/zip/archive_directory.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "platform/zip/entry_text.h"
#include "platform/zip/little_endian.h"

namespace trevix::zip_engine {
namespace {

constexpr std::uint32_t kRecordSignature = 0x02014B50;
constexpr std::uint32_t kHeaderSignature = 0x04034B50;
constexpr std::uint32_t kSplitSignature = 0x08074B50;
constexpr std::uint32_t kEndSignature = 0x06054B50;
constexpr std::uint32_t kEnd64Signature = 0x06064B50;
constexpr std::uint32_t kLocatorSignature = 0x07064B50;

constexpr std::size_t kRecordBytes = 46;
constexpr std::size_t kEndBytes = 22;
constexpr std::size_t kEnd64Bytes = 56;
constexpr std::size_t kLocatorBytes = 20;
constexpr std::size_t kLongestComment = 65535;

constexpr std::uint16_t kFull16 = 0xFFFF;
constexpr std::uint32_t kFull32 = 0xFFFFFFFF;

constexpr std::uint16_t kZip64Field = 0x0001;
constexpr std::uint16_t kUnicodePathField = 0x7075;

// What an end record says, before it is checked against the file.
struct EndRecord {
    std::uint64_t position = 0;  // of the record that ends the directory
    std::uint64_t count = 0;
    std::uint64_t size_bytes = 0;
    std::uint64_t offset = 0;
    bool at_file_end = false;
    bool exact = false;
    bool split = false;      // one of several volumes
    bool elsewhere = false;  // and the directory begins in another one
};

bool HasSignature(ArchiveBytes& archive, std::uint64_t offset, std::uint32_t signature) {
    std::array<char, 4> bytes{};
    return archive.ReadAt(offset, bytes.data(), bytes.size()) == kOk &&
           Get32(bytes.data()) == signature;
}

// Replaces what a wide end record says better. Without one, `end` stays as it is.
void ReadWideEnd(ArchiveBytes& archive, EndRecord& end) {
    if (end.position < kLocatorBytes) return;
    const std::uint64_t locator_at = end.position - kLocatorBytes;
    std::array<char, kLocatorBytes> locator{};
    if (archive.ReadAt(locator_at, locator.data(), locator.size()) != kOk) return;
    if (Get32(locator.data()) != kLocatorSignature) return;

    // With something in front of the archive the stated offset is wrong, and then the record
    // stands just before its locator.
    std::uint64_t at = Get64(locator.data() + 8);
    if (!HasSignature(archive, at, kEnd64Signature)) {
        if (locator_at < kEnd64Bytes) return;
        at = locator_at - kEnd64Bytes;
    }
    std::array<char, kEnd64Bytes> wide{};
    if (archive.ReadAt(at, wide.data(), wide.size()) != kOk) return;
    if (Get32(wide.data()) != kEnd64Signature || at > locator_at) return;
    end.position = at;
    end.split = Get32(wide.data() + 16) != 0;
    end.elsewhere = Get32(wide.data() + 16) != Get32(wide.data() + 20);
    end.count = Get64(wide.data() + 32);
    end.size_bytes = Get64(wide.data() + 40);
    end.offset = Get64(wide.data() + 48);
    end.exact = true;
}

EndRecord ReadEnd(const char* bytes, std::uint64_t position, std::uint64_t file_bytes) {
    EndRecord end;
    end.position = position;
    end.at_file_end = position + kEndBytes + Get16(bytes + 20) == file_bytes;
    const std::uint16_t volume = Get16(bytes + 4);
    end.split = volume != 0 && volume != kFull16;
    end.elsewhere = volume != Get16(bytes + 6);
    end.count = Get16(bytes + 10);
    end.size_bytes = Get32(bytes + 12);
    end.offset = Get32(bytes + 16);
    return end;
}

// Where the directory of this end record is; false when it cannot be anywhere.
bool Locate(ArchiveBytes& archive, const EndRecord& end, DirectoryPlace* place) {
    place->stated_count = end.count;
    place->count_is_exact = end.exact;
    place->split = end.split;
    place->ends_the_file = end.at_file_end;
    place->size_bytes = end.size_bytes;
    if (end.size_bytes > end.position) return false;
    if (end.size_bytes == 0) {
        place->offset = end.position;
        place->base = 0;
        return end.count == 0;
    }

    // Directly before its end record, wherever the archive begins in the file.
    const std::uint64_t start = end.position - end.size_bytes;
    if (HasSignature(archive, start, kRecordSignature)) {
        place->offset = start;
        place->base = static_cast<std::int64_t>(start) - static_cast<std::int64_t>(end.offset);
        return end.offset <= static_cast<std::uint64_t>(INT64_MAX);
    }
    // Or where it says, with something unknown in between.
    if (end.offset <= start && HasSignature(archive, end.offset, kRecordSignature)) {
        place->offset = end.offset;
        place->base = 0;
        return true;
    }
    return false;
}

// Why a file without a usable end record is none.
Code WithoutEnd(ArchiveBytes& archive) {
    if (HasSignature(archive, 0, kHeaderSignature)) return kTruncated;
    if (HasSignature(archive, 0, kSplitSignature)) return kMultiVolume;
    return kStructure;
}

// The wide values of an entry, in their fixed order, for those fields that are full.
Code ReadWideField(std::string_view field, DirectoryEntry& entry, std::uint64_t& offset) {
    const auto take = [&](std::uint64_t& value) {
        if (value != kFull32) return true;
        if (field.size() < 8) return false;
        value = Get64(field.data());
        field.remove_prefix(8);
        return true;
    };
    return take(entry.size_bytes) && take(entry.compressed_bytes) && take(offset) ? kOk
                                                                                  : kStructure;
}

// The name that an extra field gives in UTF-8, valid only for the name that it was made for.
void ReadUnicodePath(std::string_view field, DirectoryEntry& entry) {
    constexpr std::size_t kPrefix = 5;
    if (field.size() <= kPrefix || field[0] != 1) return;
    const auto crc = ::crc32(0, reinterpret_cast<const Bytef*>(entry.stored_name.data()),
                             static_cast<uInt>(entry.stored_name.size()));
    if (Get32(field.data() + 1) != crc) return;
    const std::string_view name = field.substr(kPrefix);
    if (IsValidUtf8(name)) entry.name = name;
}

Code ReadExtraFields(std::string_view extra, DirectoryEntry& entry, std::uint64_t& offset) {
    while (extra.size() >= 4) {
        const std::uint16_t id = Get16(extra.data());
        const std::size_t length = Get16(extra.data() + 2);
        extra.remove_prefix(4);
        // Padding and unfinished fields are common and harm nobody.
        if (length > extra.size()) return kOk;
        const std::string_view field = extra.substr(0, length);
        if (id == kZip64Field) {
            if (const Code code = ReadWideField(field, entry, offset); code != kOk) return code;
        } else if (id == kUnicodePathField) {
            ReadUnicodePath(field, entry);
        }
        extra.remove_prefix(length);
    }
    return kOk;
}

// The name up to a NUL, at which every program cuts it, with "/" between folders.
std::string ReadableName(const DirectoryEntry& entry) {
    constexpr std::uint8_t kMadeByDos = 0;
    std::string name = entry.name.substr(0, entry.name.find('\0'));
    const bool dos_folders = entry.made_by == kMadeByDos && name.find('/') == std::string::npos;
    if (dos_folders) std::replace(name.begin(), name.end(), '\\', '/');
    return name;
}

}  // namespace

bool DirectoryEntry::is_link() const {
    constexpr std::uint8_t kMadeByUnix = 3;
    constexpr std::uint8_t kMadeByDarwin = 19;
    constexpr std::uint32_t kTypeMask = 0170000;
    constexpr std::uint32_t kLink = 0120000;
    if (made_by != kMadeByUnix && made_by != kMadeByDarwin) return false;
    // Pipes and devices are harmless: their content is written to an ordinary file, and archives
    // made from a pipe say that they hold one.
    return ((external_attributes >> 16) & kTypeMask) == kLink;
}

Code FindDirectory(ArchiveBytes& archive, DirectoryPlace* place) {
    const std::uint64_t size = archive.size_bytes();
    if (size == 0) return kMissingArchive;
    const auto tail_bytes =
        static_cast<std::size_t>(std::min<std::uint64_t>(size, kEndBytes + kLongestComment));
    const std::uint64_t tail_at = size - tail_bytes;
    std::string tail(tail_bytes, '\0');
    if (const Code code = archive.ReadAt(tail_at, tail.data(), tail.size()); code != kOk) {
        return code;
    }

    bool seen = false;
    for (std::size_t i = tail_bytes >= kEndBytes ? tail_bytes - kEndBytes + 1 : 0; i-- > 0;) {
        const char* bytes = tail.data() + i;
        if (bytes[0] != 'P' || Get32(bytes) != kEndSignature) continue;
        EndRecord end = ReadEnd(bytes, tail_at + i, size);
        ReadWideEnd(archive, end);
        if (end.elsewhere) return kMultiVolume;
        if (Locate(archive, end, place)) return kOk;
        seen = true;
    }
    return seen ? kStructure : WithoutEnd(archive);
}

Code DirectoryCursor::Fill(ArchiveBytes& archive, std::size_t count) {
    constexpr std::uint64_t kPiece = std::uint64_t{64} * 1024;
    const std::uint64_t left = place_.offset + place_.size_bytes - position_;
    if (count > left) return kStructure;
    const bool inside =
        position_ >= buffer_offset_ && position_ + count <= buffer_offset_ + buffer_.size();
    if (inside) return kOk;
    buffer_.resize(
        static_cast<std::size_t>(std::min(left, std::max<std::uint64_t>(kPiece, count))));
    buffer_offset_ = position_;
    const Code code = archive.ReadAt(position_, buffer_.data(), buffer_.size());
    if (code != kOk) buffer_.clear();
    return code;
}

Code DirectoryCursor::Next(ArchiveBytes& archive, DirectoryEntry* entry) {
    if (const Code code = Fill(archive, kRecordBytes); code != kOk) return code;
    const char* record = buffer_.data() + (position_ - buffer_offset_);
    if (Get32(record) != kRecordSignature) return kStructure;
    const std::size_t name_bytes = Get16(record + 28);
    const std::size_t extra_bytes = Get16(record + 30);
    const std::size_t whole = kRecordBytes + name_bytes + extra_bytes + Get16(record + 32);
    if (const Code code = Fill(archive, whole); code != kOk) return code;
    record = buffer_.data() + (position_ - buffer_offset_);
    position_ += whole;
    if (entry == nullptr) return kOk;

    entry->made_by = static_cast<std::uint8_t>(record[5]);
    entry->flags = Get16(record + 8);
    entry->method = Get16(record + 10);
    entry->dos_time = Get16(record + 12);
    entry->dos_date = Get16(record + 14);
    entry->crc32 = Get32(record + 16);
    entry->compressed_bytes = Get32(record + 20);
    entry->size_bytes = Get32(record + 24);
    entry->external_attributes = Get32(record + 38);
    std::uint64_t offset = Get32(record + 42);
    entry->stored_name.assign(record + kRecordBytes, name_bytes);
    entry->name = NameToUtf8(entry->stored_name);
    const Code code =
        ReadExtraFields({record + kRecordBytes + name_bytes, extra_bytes}, *entry, offset);
    entry->name = ReadableName(*entry);
    // An offset outside the file is found out when the content is asked for.
    entry->header_offset = offset + static_cast<std::uint64_t>(place_.base);
    return code;
}

Code CountEntries(ArchiveBytes& archive, const DirectoryPlace& place, std::uint64_t* count) {
    DirectoryCursor cursor(place);
    for (*count = 0; !cursor.at_end(); ++*count) {
        if (const Code code = cursor.Next(archive, nullptr); code != kOk) return code;
    }
    return kOk;
}

}  // namespace trevix::zip_engine
