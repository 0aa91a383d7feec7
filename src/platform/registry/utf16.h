// Between UTF-16LE, as registry-editor files hold it, and UTF-8, as the port does.
#pragma once

#include <string>
#include <string_view>

namespace trevix::registry {

// Every byte string survives the way to UTF-16 and back: a byte that is not part of valid UTF-8
// becomes the lone surrogate U+DC00 + byte. Other lone surrogates read as their three-byte form. A
// last odd byte of UTF-16 is kept as it is.
std::string Utf16FromUtf8(std::string_view text);
std::string Utf8FromUtf16(std::string_view bytes);

}  // namespace trevix::registry
