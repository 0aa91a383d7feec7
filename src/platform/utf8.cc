#include "platform/utf8.h"

#include <array>

namespace trevix {
namespace {

constexpr char32_t kHighest = 0x10FFFF;

bool IsSurrogate(char32_t c) {
    return c >= 0xD800 && c < 0xE000;
}

}  // namespace

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
    char32_t c = more < 4 ? first & kFirstMask[more] : kReplacementCharacter;
    bool valid = more < 4;
    for (std::size_t at = 1; valid && at <= more; ++at) {
        valid = (byte(at) & 0xC0) == 0x80;
        c = c << 6 | (byte(at) & 0x3F);
    }
    valid = valid && c >= kLowest[more] && c <= kHighest && !IsSurrogate(c);
    text.remove_prefix(valid ? more + 1 : 1);
    return valid ? c : kReplacementCharacter;
}

}  // namespace trevix
