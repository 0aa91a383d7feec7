// Texts as the bus accepts them: one that is not clean would not be sent at all, or cut.
#pragma once

#include <string>
#include <string_view>

namespace trevix::dbus {

// `text` with everything that the bus refuses (bytes that are not UTF-8, surrogates, code points
// that stand for no character, NUL) replaced by U+FFFD, one for each byte or code point.
std::string CleanText(std::string_view text);

}  // namespace trevix::dbus
