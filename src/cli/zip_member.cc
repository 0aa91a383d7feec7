#include "cli/zip_member.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <optional>

#include "platform/errors.h"
#include "platform/zip/archive_bytes.h"
#include "platform/zip/archive_directory.h"
#include "platform/zip/entry_reader.h"
#include "zip/czip.h"

namespace trevix::cli {
namespace {

using zip_engine::Code;
using zip_engine::DirectoryEntry;

Error ArchiveError(Code code) {
    if (code == zip_engine::kCannotComplete) {
        return {ErrorKind::kMalformed, 0, "it is encrypted, or packed in a way that is not known"};
    }
    return {ErrorKind::kMalformed, 0, "the archive is damaged: " + CZIP::GetErrorDesc(code)};
}

bool IsWanted(const DirectoryEntry& entry, const WantedMember& wanted) {
    constexpr std::uint64_t kLargest = std::numeric_limits<std::int32_t>::max();
    const std::string base = entry.name.substr(entry.name.rfind('/') + 1);
    // The index holds sizes as 32-bit numbers.
    const auto size = static_cast<std::int64_t>(std::min(entry.size_bytes, kLargest));
    return !entry.is_folder() && base == wanted.name && size == wanted.size;
}

// The entry of that number, or the only other one that fits.
Result<DirectoryEntry> FindEntry(zip_engine::ArchiveBytes& bytes, const WantedMember& wanted) {
    zip_engine::DirectoryPlace place;
    if (const Code code = zip_engine::FindDirectory(bytes, &place); code != zip_engine::kOk) {
        return ArchiveError(code);
    }
    std::optional<DirectoryEntry> fitting;
    int count = 0;
    zip_engine::DirectoryCursor cursor(place);
    for (std::int32_t number = 0; !cursor.at_end(); ++number) {
        DirectoryEntry entry;
        if (const Code code = cursor.Next(bytes, &entry); code != zip_engine::kOk) {
            return ArchiveError(code);
        }
        if (!IsWanted(entry, wanted)) continue;
        if (number == wanted.number) return entry;
        fitting = std::move(entry);
        ++count;
    }
    if (count == 1) return *fitting;
    return Error{ErrorKind::kNotFound, 0, "it is not in its zip attachment any more"};
}

}  // namespace

Status ReadZipMember(const std::string& archive, const WantedMember& wanted,
                     const std::function<Status(const char*, std::size_t)>& sink) {
    zip_engine::FileIdentity identity;
    const UniqueDescriptor file = zip_engine::OpenRegularFile(archive, &identity);
    if (!file.valid()) return SystemError(errno, archive);
    zip_engine::DescriptorBytes bytes(file.get(), identity.size_bytes);
    const auto entry = FindEntry(bytes, wanted);
    if (!entry.ok()) return entry.error();

    Status sunk;
    zip_engine::EntryReader reader;
    const Code code = reader.Read(bytes, entry.value(), zip_engine::HeaderCheck::kLenient,
                                  [&](const char* data, std::size_t count) -> Code {
                                      sunk = sink(data, count);
                                      return sunk.ok() ? zip_engine::kOk : zip_engine::kWriteFailed;
                                  });
    if (!sunk.ok()) return sunk;
    if (code != zip_engine::kOk) return ArchiveError(code);
    return {};
}

}  // namespace trevix::cli
