#include "platform/zip/archive_proof.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <optional>

#include "platform/errors.h"

namespace trevix::zip_engine {
namespace {

Error Malformed(const std::string& archive, const std::string& what) {
    return RuntimeError(kFileCouldNotBeRead, archive + ": " + what);
}

// A failure to read, whichever side it was, is one kind: nothing has been learnt about the archive.
Error Unreadable(Error error) {
    error.kind = ErrorKind::kIo;
    return error;
}

Result<std::uint32_t> Crc32Of(const Blob& content) {
    uLong crc = 0;
    const Status read = content.ForEachPiece([&](const char* bytes, std::size_t count) -> Status {
        crc = ::crc32(crc, reinterpret_cast<const Bytef*>(bytes), static_cast<uInt>(count));
        return {};
    });
    if (!read.ok()) return read.error();
    return static_cast<std::uint32_t>(crc);
}

std::string Describe(Code code) {
    if (code == kCannotComplete) return "an entry is encrypted or uses an unknown method";
    return "an entry does not inflate to what the directory says";
}

}  // namespace

Status Proof::Verify(const std::string& archive, const std::vector<Blob>& contents) {
    try {
        return VerifyOpened(archive, contents);
    } catch (const std::exception&) {
        return Unreadable(RuntimeError(kOutOfMemory, archive));
    }
}

Status Proof::VerifyOpened(const std::string& archive, const std::vector<Blob>& contents) {
    FileIdentity identity;
    const UniqueDescriptor file = OpenRegularFile(archive, &identity);
    if (!file.valid()) return Unreadable(SystemError(errno, archive));
    DescriptorBytes bytes(file.get(), identity.size_bytes);

    DirectoryPlace place;
    std::uint64_t count = 0;
    Code code = FindDirectory(bytes, &place);
    if (code == kOk) code = CountEntries(bytes, place, &count);
    if (code == kReadFailed) return Unreadable(RuntimeError(kDeviceIo, archive));
    if (code != kOk) return Malformed(archive, "no archive, or a damaged one");
    const std::uint64_t stated = place.count_is_exact ? count : count & 0xFFFFU;
    const bool plain =
        place.base == 0 && !place.split && place.ends_the_file && stated == place.stated_count;
    if (!plain) return Malformed(archive, "the directory contradicts its end record");
    if (count != contents.size()) {
        return Malformed(archive, "holds " + std::to_string(count) + " entries instead of " +
                                      std::to_string(contents.size()));
    }

    std::vector<DirectoryEntry> entries;
    entries.reserve(contents.size());
    for (DirectoryCursor cursor(place); !cursor.at_end();) {
        code = cursor.Next(bytes, &entries.emplace_back());
        if (code != kOk) return Malformed(archive, "a damaged directory record");
    }
    for (const Blob& content : contents) {
        TREVIX_RETURN_IF_ERROR(FindContent(bytes, archive, content, entries));
    }
    return {};
}

Status Proof::FindContent(ArchiveBytes& bytes, const std::string& archive, const Blob& content,
                          std::vector<DirectoryEntry>& entries) {
    const std::uint64_t size = content.size_bytes();
    const auto same_size = [&](const DirectoryEntry& entry) { return entry.size_bytes == size; };
    const auto candidates = std::count_if(entries.begin(), entries.end(), same_size);

    // The checksum is only needed to choose: comparing the bytes checks it anyway.
    std::optional<std::uint32_t> crc;
    if (candidates > 1) {
        const Result<std::uint32_t> computed = Crc32Of(content);
        if (!computed.ok()) return Unreadable(computed.error());
        crc = computed.value();
    }
    std::string reason = "no entry of " + std::to_string(size) + " bytes with the same checksum";
    for (auto entry = entries.begin(); entry != entries.end(); ++entry) {
        if (!same_size(*entry) || (crc.has_value() && entry->crc32 != *crc)) continue;
        bool equal = false;
        TREVIX_RETURN_IF_ERROR(Compare(bytes, *entry, content, &equal, &reason));
        if (equal) {
            entries.erase(entry);
            return {};
        }
    }
    return Malformed(archive, reason);
}

Status Proof::Compare(ArchiveBytes& bytes, const DirectoryEntry& entry, const Blob& content,
                      bool* equal, std::string* reason) {
    std::uint64_t offset = 0;
    std::string expected;
    Status failure;
    bool differs = false;
    const Code code = reader_.Read(bytes, entry, HeaderCheck::kStrict,
                                   [&](const char* got, std::size_t count) -> Code {
                                       constexpr std::size_t kPiece = std::size_t{256} * 1024;
                                       while (count > 0) {
                                           const std::size_t piece = std::min(count, kPiece);
                                           expected.resize(piece);
                                           failure = content.ReadAt(offset, expected.data(), piece);
                                           if (!failure.ok()) return kReadFailed;
                                           differs = std::memcmp(expected.data(), got, piece) != 0;
                                           if (differs) return kCannotComplete;
                                           offset += piece;
                                           got += piece;
                                           count -= piece;
                                       }
                                       return kOk;
                                   });
    if (!failure.ok()) return Unreadable(failure.error());
    if (code == kReadFailed) return Unreadable(RuntimeError(kDeviceIo, entry.name));
    *equal = code == kOk && offset == content.size_bytes();
    if (!*equal) *reason = entry.name + (differs ? ": other bytes" : ": " + Describe(code));
    return {};
}

}  // namespace trevix::zip_engine
