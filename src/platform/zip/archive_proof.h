// The independent look at a finished archive. It shares no code with the writing side: the
// directory is read by our own parser and the contents are inflated and compared byte for byte.
#pragma once

#include <string>
#include <vector>

#include "platform/zip/archive_directory.h"
#include "platform/zip/entry_reader.h"
#include "platform/zip_engine.h"

namespace trevix::zip_engine {

class Proof final : public ArchiveProof {
 public:
    Status Verify(const std::string& archive, const std::vector<Blob>& contents) override;

 private:
    Status VerifyOpened(const std::string& archive, const std::vector<Blob>& contents);

    // The entry of `entries` that holds `content` is taken out. kMalformed when there is none.
    Status FindContent(ArchiveBytes& bytes, const std::string& archive, const Blob& content,
                       std::vector<DirectoryEntry>& entries);

    // Whether the entry's bytes are those of `content`. `reason` says why not.
    Status Compare(ArchiveBytes& bytes, const DirectoryEntry& entry, const Blob& content,
                   bool* equal, std::string* reason);

    EntryReader reader_;
};

}  // namespace trevix::zip_engine
