// EntryReader: the content of one entry, inflated and checked against its CRC-32 on the way.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/zip/archive_bytes.h"
#include "platform/zip/archive_directory.h"
#include "platform/zip/error_codes.h"

namespace trevix::zip_engine {

// How closely an entry's own header must agree with its directory record.
enum class HeaderCheck {
    kLenient,  // as far as reading the content needs it
    kStrict    // name, sizes and CRC-32 too: whatever program reads the archive finds the same
};

class EntryReader {
 public:
    // Takes the next bytes; what it returns other than kOk ends the reading.
    using Sink = std::function<Code(const char* bytes, std::size_t count)>;

    EntryReader();
    EntryReader(const EntryReader&) = delete;
    EntryReader& operator=(const EntryReader&) = delete;
    ~EntryReader();

    // Hands over the whole content in pieces. Never more bytes than the directory says; what does
    // not come out as said is kStructure. kCannotComplete for an encrypted entry or a method other
    // than stored and deflated. Memory stays flat whatever the entry claims.
    Code Read(ArchiveBytes& archive, const DirectoryEntry& entry, HeaderCheck check,
              const Sink& sink);

 private:
    struct Inflater;

    Code FindContent(ArchiveBytes& archive, const DirectoryEntry& entry, HeaderCheck check,
                     std::uint64_t* offset);
    Code ReadStored(ArchiveBytes& archive, std::uint64_t offset, const DirectoryEntry& entry,
                    const Sink& sink);
    Code InflateWhole(ArchiveBytes& archive, std::uint64_t offset, const DirectoryEntry& entry,
                      const Sink& sink);
    Code InflateStream(ArchiveBytes& archive, std::uint64_t offset, const DirectoryEntry& entry,
                       const Sink& sink);

    std::unique_ptr<Inflater> inflater_;
};

}  // namespace trevix::zip_engine
