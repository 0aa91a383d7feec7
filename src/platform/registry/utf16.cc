#include "platform/registry/utf16.h"

#include <cstddef>
#include <cstdint>

namespace trevix::registry {
namespace {

struct Character {
    std::uint32_t code = 0;
    std::size_t bytes = 0;  // 0: not valid UTF-8
};

Character Decode(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[at + i]); };
    const std::uint32_t lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    const std::size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() - at < bytes) return {};
    std::uint32_t code = lead & (0x7FU >> bytes);
    for (std::size_t i = 1; i < bytes; ++i) {
        if ((byte(i) & 0xC0U) != 0x80U) return {};
        code = (code << 6U) | (byte(i) & 0x3FU);
    }
    const bool overlong = (bytes == 3 && code < 0x800) || (bytes == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (overlong || surrogate || code > 0x10FFFF) return {};
    return {code, bytes};
}

void AppendUnit(std::string& target, std::uint32_t unit) {
    target += static_cast<char>(unit & 0xFFU);
    target += static_cast<char>(unit >> 8U);
}

void AppendCharacter(std::string& target, std::uint32_t code) {
    const auto tail = [&](unsigned shift) {
        target += static_cast<char>(0x80U | ((code >> shift) & 0x3FU));
    };
    if (code < 0x80) {
        target += static_cast<char>(code);
    } else if (code < 0x800) {
        target += static_cast<char>(0xC0U | (code >> 6U));
        tail(0);
    } else if (code < 0x10000) {
        target += static_cast<char>(0xE0U | (code >> 12U));
        tail(6);
        tail(0);
    } else {
        target += static_cast<char>(0xF0U | (code >> 18U));
        tail(12);
        tail(6);
        tail(0);
    }
}

}  // namespace

std::string Utf16FromUtf8(std::string_view text) {
    std::string result;
    result.reserve(text.size() * 2);
    for (std::size_t at = 0; at < text.size();) {
        const Character character = Decode(text, at);
        if (character.bytes == 0) {
            AppendUnit(result, 0xDC00U + static_cast<unsigned char>(text[at]));
            ++at;
            continue;
        }
        if (character.code < 0x10000) {
            AppendUnit(result, character.code);
        } else {
            const std::uint32_t rest = character.code - 0x10000;
            AppendUnit(result, 0xD800U + (rest >> 10U));
            AppendUnit(result, 0xDC00U + (rest & 0x3FFU));
        }
        at += character.bytes;
    }
    return result;
}

std::string Utf8FromUtf16(std::string_view bytes) {
    const auto unit = [&](std::size_t at) -> std::uint32_t {
        return static_cast<unsigned char>(bytes[at]) |
               (std::uint32_t{static_cast<unsigned char>(bytes[at + 1])} << 8U);
    };
    std::string result;
    result.reserve(bytes.size());
    std::size_t at = 0;
    for (; at + 1 < bytes.size(); at += 2) {
        const std::uint32_t first = unit(at);
        const std::uint32_t second = at + 3 < bytes.size() ? unit(at + 2) : 0;
        const bool pair = first >= 0xD800 && first < 0xDC00 && second >= 0xDC00 && second < 0xE000;
        if (pair) {
            AppendCharacter(result, 0x10000 + ((first - 0xD800) << 10U) + (second - 0xDC00));
            at += 2;
        } else if (first >= 0xDC80 && first <= 0xDCFF) {
            result += static_cast<char>(first - 0xDC00);
        } else {
            AppendCharacter(result, first);
        }
    }
    if (at < bytes.size()) result += bytes[at];
    return result;
}

}  // namespace trevix::registry
