#include "platform/zip/unzip.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <limits>
#include <new>
#include <string>

#include "platform/zip/entry_text.h"
#include "platform/zip/extractor.h"

namespace trevix::zip_engine {
namespace {

std::int32_t Clamp32(std::uint64_t value) {
    constexpr std::uint64_t kLargest = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::min(value, kLargest));
}

// Refuses what must not be extracted before anything is written.
Code CheckAllEntries(ArchiveBytes& archive, const DirectoryPlace& place) {
    DirectoryCursor cursor(place);
    while (!cursor.at_end()) {
        DirectoryEntry entry;
        if (const Code code = cursor.Next(archive, &entry); code != kOk) return code;
        std::vector<std::string> parts;
        if (entry.is_link() || !SplitSafeName(entry, &parts)) return kStructure;
        if (entry.is_folder()) continue;
        if (entry.encrypted()) return kCannotComplete;
        const bool known = entry.method == kMethodStored || entry.method == kMethodDeflated;
        if (!known) return kCannotComplete;
    }
    return kOk;
}

}  // namespace

void Unzip::Action(std::int16_t action) {
    try {
        error_code = Run(action);
    } catch (const std::bad_alloc&) {
        error_code = kNoMemory;
    } catch (const std::exception&) {
        error_code = kInternal;
    }
}

Code Unzip::Run(std::int16_t action) {
    switch (action) {
        case kUnzipCount: return Count();
        case kUnzipNext: return Next();
        case kUnzipExtract: return Extract();
        default: return kBadCommand;
    }
}

void Unzip::ClearEntry() {
    entry_name.clear();
    entry_path_flag = false;
    entry_size = 0;
    entry_compressed_size = 0;
    entry_number = 0;
    entry_date.clear();
}

Code Unzip::Count() {
    listed_.reset();
    next_number_ = 0;
    entry_count = 0;
    ClearEntry();
    FileIdentity identity;
    const UniqueDescriptor file = OpenRegularFile(zip_file, &identity);
    if (!file.valid()) return OpenCode(errno);
    DescriptorBytes bytes(file.get(), identity.size_bytes);
    DirectoryPlace place;
    if (const Code code = FindDirectory(bytes, &place); code != kOk) return code;
    std::uint64_t count = 0;
    if (const Code code = CountEntries(bytes, place, &count); code != kOk) return code;

    constexpr std::uint64_t kLargest = std::numeric_limits<std::int16_t>::max();
    entry_count = static_cast<std::int16_t>(std::min(count, kLargest));
    listed_ = std::make_unique<ReopeningBytes>(zip_file, identity);
    cursor_ = DirectoryCursor(place);
    return kOk;
}

Code Unzip::Next() {
    ClearEntry();
    if (listed_ == nullptr || cursor_.at_end()) return kNothingToDo;
    DirectoryEntry entry;
    const Code code = cursor_.Next(*listed_, &entry);
    if (code != kOk) {
        listed_.reset();
        return code;
    }
    ShowEntry(entry);
    return kOk;
}

void Unzip::ShowEntry(const DirectoryEntry& entry) {
    entry_name = entry.name;
    entry_path_flag = entry_name.find('/') != std::string::npos;
    entry_size = Clamp32(entry.size_bytes);
    entry_compressed_size = Clamp32(entry.compressed_bytes);
    entry_number = next_number_++;
    entry_date = DosDateText(entry.dos_date, entry.dos_time);
}

Code Unzip::Extract() {
    FileIdentity identity;
    const UniqueDescriptor file = OpenRegularFile(zip_file, &identity);
    if (!file.valid()) return OpenCode(errno);
    DescriptorBytes bytes(file.get(), identity.size_bytes);
    DirectoryPlace place;
    if (const Code code = FindDirectory(bytes, &place); code != kOk) return code;
    if (place.split) return kMultiVolume;
    if (const Code code = CheckAllEntries(bytes, place); code != kOk) return code;

    Extractor extractor(destination, never_overwrite);
    if (extractor.opened() != kOk) return extractor.opened();
    DirectoryCursor cursor(place);
    while (!cursor.at_end()) {
        DirectoryEntry entry;
        if (const Code code = cursor.Next(bytes, &entry); code != kOk) return code;
        if (const Code code = extractor.Extract(bytes, entry); code != kOk) return code;
    }
    return kOk;
}

}  // namespace trevix::zip_engine
