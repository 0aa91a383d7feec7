// The messages of a folder, and whether they have changed since they were last listed.
#pragma once

#include <cstdint>
#include <string>

#include "platform/mail_store.h"
#include "platform/maildir/folder.h"
#include "platform/result.h"

namespace trevix::maildir {

// Inode and time of last change of both directories of a folder; two calls of the system.
struct FolderStamp {
    std::string text;
    std::int64_t latest_ns = 0;  // the later of the two times
    bool fractional = false;     // the file system keeps fractions of a second
};
FolderStamp StampOf(int root, const std::string& relative);

// Whether a change after `now_ns` would show in the stamp. A directory that is changed twice within
// one step of the file system's clock keeps its time, so only a time some steps back is sure.
bool IsSettled(const FolderStamp& stamp, std::int64_t now_ns);

// Reads the folder. What `known` (may be null) holds under the same name and inode is taken over
// from it without looking at the file: a flag change renames the file, and its content never
// changes.
Result<MailListing> ReadListing(const Folder& folder, const MailListing* known);

MailEntry EntryOf(const Identity& identity);

}  // namespace trevix::maildir
