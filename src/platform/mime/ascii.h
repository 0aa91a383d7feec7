// Text helpers for the ASCII of mail headers; never locale dependent.
#pragma once

#include <string>
#include <string_view>

namespace trevix::mime {

inline char AsciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string AsciiLower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = AsciiLower(c);
    return lower;
}

inline std::string AsciiUpper(std::string_view text) {
    std::string upper(text);
    for (char& c : upper) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return upper;
}

inline bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
    }
    return true;
}

inline bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           EqualsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

inline bool ContainsIgnoringCase(std::string_view text, std::string_view sought) {
    for (std::size_t at = 0; at + sought.size() <= text.size(); ++at) {
        if (EqualsIgnoringCase(text.substr(at, sought.size()), sought)) return true;
    }
    return false;
}

inline std::string_view TrimBlanks(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace trevix::mime
