// Names of mailboxes: modified UTF-7 on the wire (modified_utf7.h), UTF-8 for people.
//
// A name is data: whatever a server calls a mailbox ("../x", a name with a line end), it never
// becomes a path of this machine, and it is given back to the server as the server wrote it.
#pragma once

#include <string>
#include <string_view>

namespace trevix::imap {

// For display. A name that is not well-formed modified UTF-7 comes back as it is, with bytes that
// are not ASCII replaced by U+FFFD; so two names can look alike, and only the wire name identifies.
std::string DecodeMailboxName(std::string_view wire_name);

// Whether both name one mailbox: "INBOX" is the same in every spelling, all else is compared as is.
bool SameMailbox(std::string_view wire_name, std::string_view other);

}  // namespace trevix::imap
