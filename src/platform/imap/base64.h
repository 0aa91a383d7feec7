// Base64 in lines of 76 characters, as mail carries files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace trevix::imap {

// Appends the lines, each with its CRLF.
void AppendBase64(std::string& text, const char* bytes, std::size_t count);

// So many bytes from the end of a text tell how long its content is.
inline constexpr std::uint64_t kBase64Ending = 256;

// The size of the content of a base64 text of `text_bytes` bytes, of which only the end is at hand:
// `ending` is its last kBase64Ending bytes, or all of a shorter text. Nothing unless the text is
// laid out as usual, in lines of one length with CRLF, as far as that shows: the lines in `ending`,
// and that the rest is a whole number of them.
std::optional<std::uint64_t> Base64ContentSize(std::uint64_t text_bytes, std::string_view ending);

// Passes over line ends and blanks. Nothing when the text is not whole base64.
std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace trevix::imap
