// Any bytes as one word of printable ASCII without blanks, and back.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace trevix::imap {

// Begins with "'", so that it is never empty; all but letters, digits and a few signs are "%" and
// two hexadecimal digits.
std::string EscapeText(std::string_view text);
std::optional<std::string> UnescapeText(std::string_view word);

}  // namespace trevix::imap
