// A look at a mail store before anything is done to it: what would fail in the middle of a run is
// better said at its beginning.
#pragma once

#include "platform/mail_store.h"
#include "platform/result.h"

namespace trevix::cli {

// What a run is going to do in a store's folders.
enum class FolderUse {
    kSome,   // look at some of them, so nothing is asked of the others
    kRead,   // read them all
    kWrite,  // read them all, and replace messages
};

// Whether the hidden messages can be read and, of a Maildir, the folders be used. The costs are
// some system calls a folder. kIo with the path and, behind "; ", what to do. A server tells what a
// user may do when it opens a folder, and says it of each.
Status CheckStore(MailStore& store, FolderUse use);

}  // namespace trevix::cli
