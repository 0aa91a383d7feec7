#include "platform/recordset/text.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace trevix::recordset {
namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080U;
constexpr std::uint64_t kOnes = 0x0101010101010101U;
constexpr char32_t kReplacement = 0xFFFD;

std::uint64_t LoadEight(const char* bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

std::uint64_t LoadTail(const char* bytes, std::size_t count) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, count);
    return word;
}

// Eight bytes at a time: 'A' to 'Z' become 'a' to 'z', all other bytes stay.
std::uint64_t LowerEight(std::uint64_t word) {
    const std::uint64_t low = word & ~kHighBits;
    const std::uint64_t from_a = low + kOnes * (0x80 - 'A');
    const std::uint64_t after_z = low + kOnes * (0x7F - 'Z');
    const std::uint64_t upper = (from_a ^ after_z) & ~word & kHighBits;
    return word | (upper >> 2);
}

// Words of bytes whose first one is the lowest.
template <typename Word>
Word LittleEndian(Word word) {
    if constexpr (std::endian::native == std::endian::little) return word;
    Word turned = 0;
    for (std::size_t i = 0; i < sizeof word; ++i)
        turned = static_cast<Word>(turned << 8 | (word >> (8 * i) & 0xFF));
    return turned;
}

template <typename Word>
Word LoadLittleEndian(const void* bytes) {
    Word word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return LittleEndian(word);
}

// Bits that no unit of an ASCII character has.
constexpr std::uint64_t kBeyondAscii = 0xFF80FF80FF80FF80U;

// The four characters of such units, the first one lowest.
std::uint32_t PackFourUnits(std::uint64_t units) {
    units |= units >> 8;
    units &= 0x0000FFFF0000FFFFU;
    return static_cast<std::uint32_t>(units | units >> 16);
}

// As many ASCII characters as `units` begin with, in steps of four, and none behind these.
std::size_t PackAscii(const unsigned char* units, std::size_t unit_count, char* target) {
    std::size_t at = 0;
    for (; at + 4 <= unit_count; at += 4) {
        const auto four = LoadLittleEndian<std::uint64_t>(units + 2 * at);
        if ((four & kBeyondAscii) != 0) break;
        const std::uint32_t packed = LittleEndian(PackFourUnits(four));
        std::memcpy(target + at, &packed, sizeof packed);
    }
    return at;
}

unsigned char LowerByte(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return value >= 'A' && value <= 'Z' ? static_cast<unsigned char>(value + 0x20) : value;
}

unsigned char ByteAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

// The character at `at`, which then stands behind it; one byte that begins no character gives
// kReplacement. Surrogates are accepted, overlong forms are not.
char32_t TakeCharacter(std::string_view text, std::size_t& at) {
    const unsigned char first = ByteAt(text, at++);
    if (first < 0x80) return first;
    std::size_t more = 0;
    char32_t character = 0;
    char32_t least = 0;
    if (first >= 0xC2 && first <= 0xDF) {
        more = 1;
        character = first & 0x1FU;
        least = 0x80;
    } else if (first >= 0xE0 && first <= 0xEF) {
        more = 2;
        character = first & 0x0FU;
        least = 0x800;
    } else if (first >= 0xF0 && first <= 0xF4) {
        more = 3;
        character = first & 0x07U;
        least = 0x10000;
    }
    if (more == 0 || text.size() - at < more) return kReplacement;
    for (std::size_t i = 0; i < more; ++i) {
        const unsigned char next = ByteAt(text, at + i);
        if ((next & 0xC0U) != 0x80) return kReplacement;
        character = (character << 6) | (next & 0x3FU);
    }
    if (character < least || character > 0x10FFFF) return kReplacement;
    at += more;
    return character;
}

void AppendCharacter(char32_t character, std::string& text) {
    const auto put = [&text](char32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | (character >> 6));
        put(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        put(0xE0 | (character >> 12));
        put(0x80 | ((character >> 6) & 0x3F));
        put(0x80 | (character & 0x3F));
    } else {
        put(0xF0 | (character >> 18));
        put(0x80 | ((character >> 12) & 0x3F));
        put(0x80 | ((character >> 6) & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

char32_t JoinSurrogates(char32_t high, char32_t low) {
    return 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
}

char32_t UnitAt(const unsigned char* units, std::size_t at) {
    return static_cast<char32_t>(units[2 * at]) | (static_cast<char32_t>(units[2 * at + 1]) << 8);
}

}  // namespace

bool IsAscii(std::string_view text) {
    std::uint64_t seen = 0;
    std::size_t at = 0;
    for (; at + 8 <= text.size(); at += 8)
        seen |= LoadEight(text.data() + at);
    if (at < text.size()) seen |= LoadTail(text.data() + at, text.size() - at);
    return (seen & kHighBits) == 0;
}

std::string NormalizedText(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        char32_t character = TakeCharacter(text, at);
        if (IsHighSurrogate(character) && at < text.size()) {
            std::size_t after = at;
            const char32_t low = TakeCharacter(text, after);
            if (IsLowSurrogate(low)) {
                character = JoinSurrogates(character, low);
                at = after;
            }
        }
        AppendCharacter(character, result);
    }
    return result;
}

std::size_t Utf16Units(std::string_view text) {
    std::size_t units = 0;
    for (const char byte : text) {
        const auto value = static_cast<unsigned char>(byte);
        // A character counts at its first byte; those of four bytes are a pair of units.
        if ((value & 0xC0U) != 0x80) units += value >= 0xF0 ? 2 : 1;
    }
    return units;
}

void AppendUtf16(std::string_view text, std::string& target) {
    if (IsAscii(text)) {
        const std::size_t start = target.size();
        target.resize(start + 2 * text.size());
        char* out = target.data() + start;
        for (const char byte : text) {
            *out++ = byte;
            *out++ = '\0';
        }
        return;
    }
    const auto put = [&target](char32_t unit) {
        target += static_cast<char>(unit & 0xFF);
        target += static_cast<char>(unit >> 8);
    };
    for (std::size_t at = 0; at < text.size();) {
        const char32_t character = TakeCharacter(text, at);
        if (character < 0x10000) {
            put(character);
        } else {
            put(0xD800 + ((character - 0x10000) >> 10));
            put(0xDC00 + ((character - 0x10000) & 0x3FF));
        }
    }
}

void AssignFromUtf16(const unsigned char* units, std::size_t unit_count, std::string& text) {
    text.resize(unit_count);
    unsigned seen = 0;
    std::size_t packed = PackAscii(units, unit_count, text.data());
    // A long rest is not ASCII and turned in another way below.
    if (unit_count - packed >= 4) seen = 1;
    for (; packed < unit_count && seen == 0; ++packed) {
        text[packed] = static_cast<char>(units[2 * packed]);
        seen |= (units[2 * packed] & 0x80U) | units[2 * packed + 1];
    }
    if (seen == 0) return;
    text.clear();
    for (std::size_t i = 0; i < unit_count; ++i) {
        char32_t unit = UnitAt(units, i);
        if (IsHighSurrogate(unit) && i + 1 < unit_count && IsLowSurrogate(UnitAt(units, i + 1))) {
            unit = JoinSurrogates(unit, UnitAt(units, ++i));
        }
        AppendCharacter(unit, text);
    }
}

bool IsAsciiOfUtf16(std::string_view text, const unsigned char* units, std::size_t unit_count) {
    if (text.size() != unit_count) return false;
    std::size_t at = 0;
    for (; at + 4 <= unit_count; at += 4) {
        const auto four = LoadLittleEndian<std::uint64_t>(units + 2 * at);
        const auto expected = LoadLittleEndian<std::uint32_t>(text.data() + at);
        if ((four & kBeyondAscii) != 0 || PackFourUnits(four) != expected) return false;
    }
    for (; at < unit_count; ++at) {
        if (units[2 * at] >= 0x80 || units[2 * at + 1] != 0) return false;
        if (units[2 * at] != ByteAt(text, at)) return false;
    }
    return true;
}

std::uint32_t FoldedHash(std::string_view text) {
    constexpr std::uint64_t kFactor = 0x9E3779B97F4A7C15U;
    std::uint64_t hash = (text.size() + 1) * kFactor;
    std::size_t at = 0;
    const auto mix = [&hash](std::uint64_t word) {
        hash = (hash ^ LowerEight(word)) * kFactor;
        hash ^= hash >> 29;
    };
    for (; at + 8 <= text.size(); at += 8)
        mix(LoadEight(text.data() + at));
    if (at < text.size()) mix(LoadTail(text.data() + at, text.size() - at));
    hash *= kFactor;
    return static_cast<std::uint32_t>(hash >> 32);
}

bool FoldedEqual(std::string_view left, std::string_view right) {
    return left.size() == right.size() && FoldedCompare(left, right) == 0;
}

int FoldedCompare(std::string_view left, std::string_view right) {
    const std::size_t shorter = std::min(left.size(), right.size());
    std::size_t at = 0;
    while (at + 8 <= shorter &&
           LowerEight(LoadEight(left.data() + at)) == LowerEight(LoadEight(right.data() + at))) {
        at += 8;
    }
    for (; at < shorter; ++at) {
        const int difference = LowerByte(left[at]) - LowerByte(right[at]);
        if (difference != 0) return difference;
    }
    if (left.size() == right.size()) return 0;
    return left.size() < right.size() ? -1 : 1;
}

}  // namespace trevix::recordset
