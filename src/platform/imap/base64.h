// Base64 in lines of 76 characters, as mail carries files.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace trevix::imap {

// Appends the lines, each with its CRLF.
void AppendBase64(std::string& text, const char* bytes, std::size_t count);

// Passes over line ends and blanks. Nothing when the text is not whole base64.
std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace trevix::imap
