#include "platform/imap/mailbox_name.h"

#include <array>
#include <cstdint>
#include <optional>

#include "platform/imap/ascii.h"

namespace trevix::imap {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+,";
constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kHighest = 0x10FFFF;

bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}
bool IsPlain(char32_t c) {
    return c >= 0x20 && c < 0x7F;
}

void PutUtf8(std::string& text, char32_t c) {
    const auto put = [&text](char32_t byte) { text += static_cast<char>(byte); };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xC0 | c >> 6);
        put(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        put(0xE0 | c >> 12);
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    } else {
        put(0xF0 | c >> 18);
        put(0x80 | (c >> 12 & 0x3F));
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    }
}

// The next character of UTF-8 text; U+FFFD for a byte that starts none.
char32_t TakeUtf8(std::string_view& text) {
    const auto byte = [&text](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    const char32_t first = byte(0);
    const std::size_t more = first < 0x80                    ? 0
                             : first >= 0xC2 && first < 0xE0 ? 1
                             : first >= 0xE0 && first < 0xF0 ? 2
                             : first >= 0xF0 && first < 0xF5 ? 3
                                                             : 4;
    constexpr std::array<char32_t, 4> kFirstMask = {0x7F, 0x1F, 0x0F, 0x07};
    constexpr std::array<char32_t, 4> kLowest = {0, 0x80, 0x800, 0x10000};
    char32_t c = more < 4 ? first & kFirstMask[more] : kReplacement;
    bool valid = more < 4;
    for (std::size_t at = 1; valid && at <= more; ++at) {
        valid = (byte(at) & 0xC0) == 0x80;
        c = c << 6 | (byte(at) & 0x3F);
    }
    valid =
        valid && c >= kLowest[more] && c <= kHighest && !IsHighSurrogate(c) && !IsLowSurrogate(c);
    text.remove_prefix(valid ? more + 1 : 1);
    return valid ? c : kReplacement;
}

// The UTF-16 units between "&" and "-". Nothing unless they are what an encoder would have written.
std::optional<std::u16string> DecodeUnits(std::string_view encoded) {
    std::u16string units;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char c : encoded) {
        const std::size_t value = kAlphabet.find(c);
        if (value == std::string_view::npos) return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        count += 6;
        if (count < 16) continue;
        count -= 16;
        units += static_cast<char16_t>(bits >> count & 0xFFFF);
    }
    const bool padding_is_zero = (bits & ((1U << count) - 1)) == 0;
    if (count >= 6 || !padding_is_zero || units.empty()) return std::nullopt;
    return units;
}

// False when the units are no text.
bool PutUnits(std::string& text, const std::u16string& units) {
    for (std::size_t at = 0; at < units.size(); ++at) {
        char32_t c = units[at];
        if (IsLowSurrogate(c)) return false;
        if (IsHighSurrogate(c)) {
            if (at + 1 == units.size() || !IsLowSurrogate(units[at + 1])) return false;
            c = 0x10000 + ((c - 0xD800) << 10) + (units[++at] - char32_t{0xDC00});
        }
        PutUtf8(text, c);
    }
    return true;
}

std::optional<std::string> Decode(std::string_view name) {
    std::string text;
    while (!name.empty()) {
        const char c = name.front();
        if (static_cast<unsigned char>(c) >= 0x80) return std::nullopt;
        name.remove_prefix(1);
        if (c != '&') {
            text += c;
            continue;
        }
        const std::size_t end = name.find('-');
        if (end == std::string_view::npos) return std::nullopt;
        if (end == 0) {
            text += '&';
        } else {
            const auto units = DecodeUnits(name.substr(0, end));
            if (!units || !PutUnits(text, *units)) return std::nullopt;
        }
        name.remove_prefix(end + 1);
    }
    return text;
}

void PutEncoded(std::string& name, const std::u16string& units) {
    if (units.empty()) return;
    name += '&';
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char16_t unit : units) {
        bits = bits << 16 | unit;
        count += 16;
        while (count >= 6) {
            count -= 6;
            name += kAlphabet[bits >> count & 0x3F];
        }
        bits &= (1U << count) - 1;
    }
    if (count > 0) name += kAlphabet[bits << (6 - count) & 0x3F];
    name += '-';
}

}  // namespace

std::string DecodeMailboxName(std::string_view wire_name) {
    if (auto decoded = Decode(wire_name)) return *std::move(decoded);
    std::string text;
    for (const char c : wire_name) {
        if (static_cast<unsigned char>(c) < 0x80) {
            text += c;
        } else {
            PutUtf8(text, kReplacement);
        }
    }
    return text;
}

std::string EncodeMailboxName(std::string_view text) {
    std::string name;
    std::u16string units;
    while (!text.empty()) {
        const char32_t c = TakeUtf8(text);
        if (IsPlain(c)) {
            PutEncoded(name, units);
            units.clear();
            name += static_cast<char>(c);
            if (c == '&') name += '-';
        } else if (c < 0x10000) {
            units += static_cast<char16_t>(c);
        } else {
            units += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            units += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        }
    }
    PutEncoded(name, units);
    return name;
}

bool SameMailbox(std::string_view wire_name, std::string_view other) {
    if (wire_name == other) return true;
    constexpr std::string_view kInbox = "INBOX";
    return SameLetters(wire_name, kInbox) && SameLetters(other, kInbox);
}

}  // namespace trevix::imap
