#include "platform/imap/text_escape.h"

namespace trevix::imap {
namespace {

bool IsPlain(char c) {
    constexpr std::string_view kSigns = "-_.:/\\$()&+=@!*#";
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           kSigns.find(c) != std::string_view::npos;
}

int DigitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

}  // namespace

std::string EscapeText(std::string_view text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string escaped = "'";
    for (const char c : text) {
        if (IsPlain(c)) {
            escaped += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        escaped += '%';
        escaped += kDigits[byte >> 4U];
        escaped += kDigits[byte & 0xFU];
    }
    return escaped;
}

std::optional<std::string> UnescapeText(std::string_view word) {
    if (!word.starts_with('\'')) return std::nullopt;
    std::string text;
    for (std::size_t at = 1; at < word.size(); ++at) {
        if (word[at] != '%') {
            text += word[at];
            continue;
        }
        if (at + 2 >= word.size()) return std::nullopt;
        const int high = DigitValue(word[at + 1]);
        const int low = DigitValue(word[at + 2]);
        if (high < 0 || low < 0) return std::nullopt;
        text += static_cast<char>(high * 16 + low);
        at += 2;
    }
    return text;
}

}  // namespace trevix::imap
