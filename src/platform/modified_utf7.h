// Modified UTF-7, in which mail servers write the names of mailboxes (RFC 3501, section 5.1.3), on
// the wire and on disk. For adapters.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace trevix {

// The UTF-8 text. Nothing when the name is not what an encoder would have written: it then holds
// bytes outside printable ASCII, a run that is cut short, or units that are no text.
std::optional<std::string> DecodeModifiedUtf7(std::string_view name);

// Bytes of the text that are no UTF-8 become U+FFFD.
std::string EncodeModifiedUtf7(std::string_view text);

}  // namespace trevix
