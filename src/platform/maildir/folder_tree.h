// Which folders a Maildir has.
//
// Two layouts, also mixed: Maildir++ (a directory ".A.B" with "cur" in it is the folder A/B), and
// plain trees (a directory with "cur" in it is a folder, at any depth; one without, but with
// folders below, only contains them). The top directory, when it is a Maildir itself, is the Inbox.
// Links to directories are not followed: they may lead out of the store, or round in a circle.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/mail_store.h"
#include "platform/result.h"

namespace trevix::maildir {

struct FolderTree {
    bool root_is_maildir = false;
    std::vector<MailFolder> folders;                 // parents before children, without the root
    std::map<std::string, std::string> directories;  // folder path -> directory below the root
};

// `root` is an open directory, `shown` its path for messages.
Result<FolderTree> ReadFolderTree(int root, const std::string& shown);

// The top folder that is called Inbox, in any spelling; "" when there is none or the root is it.
std::string InboxOf(const FolderTree& tree);

}  // namespace trevix::maildir
