// Extractor: writes the entries of an archive below one directory, and nowhere else.
#pragma once

#include <string>
#include <vector>

#include "platform/unique_descriptor.h"
#include "platform/zip/archive_directory.h"
#include "platform/zip/entry_reader.h"
#include "platform/zip/error_codes.h"

namespace trevix::zip_engine {

// The folders and the base name of an entry; false for a name that could leave the destination, or
// that other systems would read differently.
bool SplitSafeName(const DirectoryEntry& entry, std::vector<std::string>* parts);

class Extractor {
 public:
    // `destination` must exist.
    Extractor(const std::string& destination, bool never_overwrite);

    Code opened() const { return opened_; }

    // Makes the entry's folders and writes its content; a file appears complete or not at all.
    Code Extract(ArchiveBytes& archive, const DirectoryEntry& entry);

 private:
    // The directory that `parts` but the last name, made as needed, without following links.
    Code OpenFolder(const std::vector<std::string>& parts, std::size_t depth,
                    UniqueDescriptor* folder) const;
    Code WriteFile(ArchiveBytes& archive, const DirectoryEntry& entry, int folder,
                   const std::string& name);
    Code PutInPlace(int folder, const std::string& temporary, const std::string& name) const;

    UniqueDescriptor destination_;
    Code opened_ = kOk;
    bool never_overwrite_;
    EntryReader reader_;
};

}  // namespace trevix::zip_engine
