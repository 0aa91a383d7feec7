// Folder names for people.
#pragma once

#include <string>
#include <string_view>

namespace trevix::maildir {

// Mail servers keep folder names in modified UTF-7 (the encoding of IMAP mailbox names), others in
// plain UTF-8. A valid modified UTF-7 name is decoded, any other is taken as UTF-8, with U+FFFD in
// the place of bytes that are none.
std::string DisplayName(std::string_view stored);

}  // namespace trevix::maildir
