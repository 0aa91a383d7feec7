// Folders of a server by path: the names of a mailbox's levels joined by "/".
//
// A path keeps the server's spelling of each level (modified UTF-7), so it identifies. Where the
// server separates levels by something else, a "/" that stands in a level is written "&AC8-": the
// modified UTF-7 of a slash, which no well-formed name holds, since a slash stands for itself
// there, and which reads as a slash when it is decoded for people. The Inbox is "INBOX" however the
// server spells it.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/imap/client.h"
#include "platform/mail_store.h"

namespace trevix::imap {

inline constexpr char kInboxPath[] = "INBOX";

std::string PathOfMailbox(std::string_view wire_name, std::string_view delimiter);

struct ServerFolders {
    std::vector<MailFolder> folders;           // parents before children, the Inbox first
    std::map<std::string, std::string> names;  // path to wire name, of those that hold messages
};

// A level that the server does not list is added as one that holds no messages. Of two mailboxes
// that would have one path (a server that breaks the rules of names), the first is taken.
ServerFolders FoldersOf(const std::vector<Mailbox>& mailboxes);

// The wire names under which a mailbox of ours may stand, the likeliest first: some servers take
// new mailboxes at the top, others below the Inbox only.
std::vector<std::string> OwnMailboxNames(const std::vector<Mailbox>& mailboxes,
                                         const std::string& name);

}  // namespace trevix::imap
