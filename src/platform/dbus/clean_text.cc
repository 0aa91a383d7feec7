#include "platform/dbus/clean_text.h"

#include <cstdint>

namespace trevix::dbus {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

// How many bytes a sequence has by its first byte; 0 for a byte that begins none.
std::size_t SequenceLength(unsigned char first) {
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return 2;
    if (first >= 0xE0 && first <= 0xEF) return 3;
    if (first >= 0xF0 && first <= 0xF4) return 4;
    return 0;
}

// Code points in their shortest form only; the length is right already.
bool IsAccepted(std::uint32_t code, std::size_t length) {
    constexpr std::uint32_t kLeast[] = {0, 1, 0x80, 0x800, 0x10000};
    if (code < kLeast[length] || code > 0x10FFFF) return false;
    if (code >= 0xD800 && code <= 0xDFFF) return false;
    const bool is_noncharacter = (code >= 0xFDD0 && code <= 0xFDEF) || (code & 0xFFFE) == 0xFFFE;
    return !is_noncharacter;
}

// How many bytes at the front of `text` form a sequence; 0 when none do.
std::size_t ReadSequence(std::string_view text, std::uint32_t& code) {
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t length = SequenceLength(first);
    if (length == 0 || length > text.size()) return 0;
    code = length == 1 ? first : first & (0x7FU >> length);
    for (const char c : text.substr(1, length - 1)) {
        const auto next = static_cast<unsigned char>(c);
        if ((next & 0xC0) != 0x80) return 0;
        code = (code << 6) | (next & 0x3FU);
    }
    return length;
}

}  // namespace

std::string CleanText(std::string_view text) {
    std::string clean;
    clean.reserve(text.size());
    while (!text.empty()) {
        std::uint32_t code = 0;
        const std::size_t length = ReadSequence(text, code);
        if (length > 0 && IsAccepted(code, length)) {
            clean += text.substr(0, length);
        } else {
            clean += kReplacement;
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return clean;
}

}  // namespace trevix::dbus
