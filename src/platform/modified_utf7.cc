#include "platform/modified_utf7.h"

#include <cstdint>

#include "platform/utf8.h"

namespace trevix {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+,";

bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}
bool IsPlain(char32_t c) {
    return c >= 0x20 && c < 0x7F;
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

std::optional<std::string> DecodeModifiedUtf7(std::string_view name) {
    std::string text;
    while (!name.empty()) {
        const char c = name.front();
        if (!IsPlain(static_cast<unsigned char>(c))) return std::nullopt;
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

std::string EncodeModifiedUtf7(std::string_view text) {
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

}  // namespace trevix
