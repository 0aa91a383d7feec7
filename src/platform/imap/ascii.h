// Letters as protocols see them: ASCII, whatever the locale.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace trevix::imap {

inline char UpperCase(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

inline std::string UpperCase(std::string_view text) {
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(), [](char c) { return UpperCase(c); });
    return upper;
}

inline bool SameLetters(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return UpperCase(x) == UpperCase(y);
           });
}

inline bool IsDigit(int c) {
    return c >= '0' && c <= '9';
}

}  // namespace trevix::imap
