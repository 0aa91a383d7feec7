#include "util/text.h"

#include <cstdint>

namespace trevix {
namespace {

bool IsContinuation(std::string_view text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
}

// The simple case pairs of characters below U+0800. Each of them has two bytes in UTF-8 on both
// sides, so that a change of case never changes the length.
std::uint32_t LowerOf(std::uint32_t c) {
    if ((c >= 0xC0 && c <= 0xDE && c != 0xD7) || (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) ||
        (c >= 0x410 && c <= 0x42F)) {
        return c + 0x20;
    }
    if (c >= 0x400 && c <= 0x40F) return c + 0x50;
    if (c == 0x178) return 0xFF;
    const bool even_is_upper =
        (c >= 0x100 && c <= 0x12F) || (c >= 0x132 && c <= 0x137) || (c >= 0x14A && c <= 0x177);
    const bool odd_is_upper = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
    if ((even_is_upper && c % 2 == 0) || (odd_is_upper && c % 2 == 1)) return c + 1;
    return c;
}

std::uint32_t UpperOf(std::uint32_t c) {
    if ((c >= 0xE0 && c <= 0xFE && c != 0xF7) || (c >= 0x3B1 && c <= 0x3C9 && c != 0x3C2) ||
        (c >= 0x430 && c <= 0x44F)) {
        return c - 0x20;
    }
    if (c == 0x3C2) return 0x3A3;  // the sigma at the end of a word
    if (c >= 0x450 && c <= 0x45F) return c - 0x50;
    if (c == 0xFF) return 0x178;
    if (c >= 0x100 && c <= 0x17E && LowerOf(c - 1) == c) return c - 1;
    return c;
}

template <typename Map>
std::string MapCharacters(std::string_view text, char first, char last, int step, Map map) {
    std::string result(text);
    for (std::size_t at = 0; at < result.size();) {
        const std::size_t bytes = Utf8CharacterBytes(text, at);
        if (bytes == 1 && result[at] >= first && result[at] <= last) {
            result[at] = static_cast<char>(result[at] + step);
        } else if (bytes == 2) {
            const auto lead = static_cast<unsigned char>(result[at]);
            const auto next = static_cast<unsigned char>(result[at + 1]);
            const std::uint32_t mapped = map(((lead & 0x1FU) << 6U) | (next & 0x3FU));
            result[at] = static_cast<char>(0xC0U | (mapped >> 6U));
            result[at + 1] = static_cast<char>(0x80U | (mapped & 0x3FU));
        }
        at += bytes == 0 ? 1 : bytes;
    }
    return result;
}

}  // namespace

std::size_t Utf8CharacterBytes(std::string_view text, std::size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4 || !IsContinuation(text, at + 1)) return 0;
    if (lead < 0xE0) return 2;
    const auto second = static_cast<unsigned char>(text[at + 1]);
    if (!IsContinuation(text, at + 2)) return 0;
    if (lead < 0xF0) {
        const bool overlong = lead == 0xE0 && second < 0xA0;
        const bool surrogate = lead == 0xED && second >= 0xA0;
        return overlong || surrogate ? 0 : 3;
    }
    if (!IsContinuation(text, at + 3)) return 0;
    const bool overlong = lead == 0xF0 && second < 0x90;
    const bool beyond = lead == 0xF4 && second >= 0x90;
    return overlong || beyond ? 0 : 4;
}

std::string ToLower(std::string_view text) {
    return MapCharacters(text, 'A', 'Z', 'a' - 'A', LowerOf);
}

std::string ToUpper(std::string_view text) {
    return MapCharacters(text, 'a', 'z', 'A' - 'a', UpperOf);
}

bool EqualsNoCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() && ToLower(left) == ToLower(right);
}

bool ContainsNoCase(std::string_view text, std::string_view part) {
    if (text.empty()) return false;
    return ToLower(text).find(ToLower(part)) != std::string::npos;
}

std::string TrimBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return std::string(text.substr(first, text.find_last_not_of(' ') - first + 1));
}

StringArray Split(std::string_view text, std::string_view separator) {
    StringArray pieces;
    if (text.empty()) return pieces;
    while (!separator.empty()) {
        const std::size_t end = text.find(separator);
        if (end == std::string_view::npos) break;
        pieces.emplace_back(text.substr(0, end));
        text.remove_prefix(end + separator.size());
    }
    pieces.emplace_back(text);
    return pieces;
}

std::size_t Utf16Length(std::string_view text) {
    std::size_t units = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t bytes = Utf8CharacterBytes(text, at);
        units += bytes == 4 ? 2 : 1;
        at += bytes == 0 ? 1 : bytes;
    }
    return units;
}

std::string Utf16Left(std::string_view text, std::size_t units) {
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t bytes = Utf8CharacterBytes(text, at);
        const std::size_t needed = bytes == 4 ? 2 : 1;
        if (needed > units) break;
        units -= needed;
        at += bytes == 0 ? 1 : bytes;
    }
    return std::string(text.substr(0, at));
}

std::string WithoutPassword(std::string_view text) {
    constexpr std::string_view kMark = "://";
    const std::size_t mark = text.find(kMark);
    if (mark == std::string_view::npos) return std::string(text);
    // The host has no "@", but what stands before it may hold one, and a slash as well.
    const std::size_t user = mark + kMark.size();
    const std::size_t host = text.rfind('@');
    const std::size_t colon = text.find(':', user);
    if (host == std::string_view::npos || colon >= host) return std::string(text);
    return std::string(text.substr(0, colon + 1)) + "***" + std::string(text.substr(host));
}

}  // namespace trevix
