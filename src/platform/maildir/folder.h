// An open folder: its directories, and how a message file is found in it.
//
// Every path is resolved component by component without following links, from the descriptor of
// the store's root: nobody can lead a write or a removal out of the store.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/maildir/identity.h"
#include "platform/result.h"
#include "platform/unique_descriptor.h"

namespace trevix::maildir {

// The directory `relative` ("" is `root` itself) below `root`; invalid, with errno set, when it
// cannot be opened, is no directory or is reached over a link.
UniqueDescriptor OpenBelow(int root, std::string_view relative);

struct DirectoryEntry {
    std::string name;
    std::uint64_t inode = 0;
    unsigned char type = 0;  // DT_*, possibly DT_UNKNOWN
};

// All entries but "." and ".."; false, with errno set, when reading failed.
bool ReadDirectory(int directory, const std::function<void(DirectoryEntry&&)>& each);

enum class Whereabouts {
    kThere,    // under the name by which it was known
    kRenamed,  // the same file under another name of the same base
    kChanged,  // something else has its base name
    kGone,
    kUnknown  // the folder could not be read
};

struct Located {
    Whereabouts where = Whereabouts::kGone;
    Identity identity;     // as it is now; for kThere and kRenamed
    int system_error = 0;  // for kUnknown
};

// What makes two files the same: a message of others is compared with its time as well, one of ours
// by inode and size, since anybody may set its time meanwhile.
enum class Match { kWithTime, kWithoutTime };

class Folder {
 public:
    // `relative` as above. Without "new" the folder has no such messages, without "cur" it is
    // no folder (kNotFound). 8004011D with a sentence when it may not be read.
    static Result<Folder> Open(int root, const std::string& relative);

    // Whether the path still leads to the directory that was opened.
    bool IsStillIn(int root) const;

    const std::string& relative() const { return relative_; }
    int directory(Place place) const { return place == Place::kNew ? new_.get() : cur_.get(); }

    // Invalid, with errno set, when there is none.
    UniqueDescriptor OpenTmp() const;

    // Looks for a file by name, then by base name in both places.
    Located Locate(const Identity& known, Match match) const;

 private:
    bool FindByKey(const Identity& known, std::vector<Identity>& found) const;

    std::string relative_;
    UniqueDescriptor folder_;
    UniqueDescriptor cur_;
    UniqueDescriptor new_;
};

}  // namespace trevix::maildir
