// Reads any bytes as an archive: its directory, and the contents that it claims to hold.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "platform/zip/archive_directory.h"
#include "platform/zip/entry_reader.h"
#include "platform/zip/entry_text.h"
#include "platform/zip/extractor.h"

namespace trevix::zip_engine {
namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

class MemoryBytes final : public ArchiveBytes {
 public:
    explicit MemoryBytes(std::string_view bytes) : bytes_(bytes) {}
    std::uint64_t size_bytes() const override { return bytes_.size(); }
    Code ReadAt(std::uint64_t offset, char* target, std::size_t count) override {
        if (offset > bytes_.size() || count > bytes_.size() - offset) return kStructure;
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), count, target);
        return kOk;
    }

 private:
    std::string_view bytes_;
};

void CheckName(const DirectoryEntry& entry) {
    Require(IsValidUtf8(entry.name));
    Require(entry.name.find('\0') == std::string::npos);
    std::vector<std::string> parts;
    if (!SplitSafeName(entry, &parts)) return;
    for (const std::string& part : parts) {
        Require(!part.empty() && part != "." && part != "..");
        Require(part.find('/') == std::string::npos && part.find('\\') == std::string::npos);
    }
}

// Whatever is read is no more than was said, and all of it when reading succeeded.
void CheckContent(MemoryBytes& bytes, EntryReader& reader, const DirectoryEntry& entry) {
    constexpr std::uint64_t kEnough = std::uint64_t{8} * 1024 * 1024;
    std::uint64_t got = 0;
    const Code code = reader.Read(bytes, entry, HeaderCheck::kLenient,
                                  [&](const char* piece, std::size_t count) -> Code {
                                      Require(piece != nullptr && count > 0);
                                      got += count;
                                      Require(got <= entry.size_bytes);
                                      return got > kEnough ? kReadFailed : kOk;
                                  });
    Require(code != kOk || got == entry.size_bytes);
}

}  // namespace

void ReadArchive(std::string_view input) {
    MemoryBytes bytes(input);
    DirectoryPlace place;
    if (FindDirectory(bytes, &place) != kOk) return;
    Require(place.offset <= input.size() && place.size_bytes <= input.size() - place.offset);
    std::uint64_t count = 0;
    const bool whole = CountEntries(bytes, place, &count) == kOk;

    EntryReader reader;
    std::uint64_t walked = 0;
    for (DirectoryCursor cursor(place); !cursor.at_end(); ++walked) {
        DirectoryEntry entry;
        if (cursor.Next(bytes, &entry) != kOk) return;
        CheckName(entry);
        const std::string date = DosDateText(entry.dos_date, entry.dos_time);
        Require(date.empty() || date.size() == 19);
        if (walked < 16) CheckContent(bytes, reader, entry);
    }
    Require(whole && walked == count);
}

}  // namespace trevix::zip_engine

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    trevix::zip_engine::ReadArchive({reinterpret_cast<const char*>(data), size});
    return 0;
}
