#include "platform/zip/entry_text.h"

#include <array>
#include <cstdio>

namespace trevix::zip_engine {
namespace {

// The upper half of code page 437.
constexpr std::array<char16_t, 128> kCodePage437 = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF,
    0x00EE, 0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9,
    0x00FF, 0x00D6, 0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA,
    0x00F1, 0x00D1, 0x00AA, 0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB,
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557,
    0x255D, 0x255C, 0x255B, 0x2510, 0x2514, 0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F,
    0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550, 0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559,
    0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C, 0x2588, 0x2584, 0x258C, 0x2590, 0x2580,
    0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4, 0x03A6, 0x0398, 0x03A9, 0x03B4,
    0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00F7, 0x2248,
    0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
};

void AppendUtf8(char32_t point, std::string& text) {
    const auto put = [&](char32_t byte) { text += static_cast<char>(byte & 0xFF); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0 | (point >> 6));
        put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        put(0xE0 | (point >> 12));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    } else {
        put(0xF0 | (point >> 18));
        put(0x80 | ((point >> 12) & 0x3F));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    }
}

// The character at the start of `text` and its length; length 0 when there is none. Overlong
// forms, surrogates and what is beyond the last code point are no characters.
std::size_t DecodeOne(std::string_view text, char32_t* point) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    if (text.empty()) return 0;
    const unsigned char lead = byte(0);
    if (lead < 0x80) {
        *point = lead;
        return 1;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
    char32_t value = lead & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
        value = (value << 6) | (byte(i) & 0x3FU);
    }
    constexpr std::array<char32_t, 5> kSmallest = {0, 0, 0x80, 0x800, 0x10000};
    if (value < kSmallest.at(length) || value > 0x10FFFF) return 0;
    if (value >= 0xD800 && value <= 0xDFFF) return 0;
    *point = value;
    return length;
}

// Lower case for the alphabets whose file names meet in practice: Latin, Greek and Cyrillic.
char32_t LowerCase(char32_t point) {
    const bool even = point % 2 == 0;
    if (point >= 'A' && point <= 'Z') return point + 0x20;
    if (point >= 0xC0 && point <= 0xDE && point != 0xD7) return point + 0x20;
    if (point >= 0x100 && point <= 0x137 && point != 0x130 && even) return point + 1;
    if (point >= 0x139 && point <= 0x148 && !even) return point + 1;
    if (point >= 0x14A && point <= 0x177 && even) return point + 1;
    if (point == 0x178) return 0xFF;
    if (point >= 0x179 && point <= 0x17E && !even) return point + 1;
    if (point >= 0x391 && point <= 0x3AB && point != 0x3A2) return point + 0x20;
    if (point == 0x3C2) return 0x3C3;
    if (point >= 0x400 && point <= 0x40F) return point + 0x50;
    if (point >= 0x410 && point <= 0x42F) return point + 0x20;
    if (point >= 0x460 && point <= 0x481 && even) return point + 1;
    if (point >= 0x48A && point <= 0x4BF && even) return point + 1;
    if (point >= 0x1E00 && point <= 0x1E95 && even) return point + 1;
    if (point >= 0x1EA0 && point <= 0x1EFF && even) return point + 1;
    return point;
}

}  // namespace

bool IsValidUtf8(std::string_view text) {
    while (!text.empty()) {
        char32_t point = 0;
        const std::size_t length = DecodeOne(text, &point);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string NameToUtf8(std::string_view stored) {
    if (IsValidUtf8(stored)) return std::string(stored);
    std::string name;
    for (const char c : stored) {
        const auto byte = static_cast<unsigned char>(c);
        AppendUtf8(byte < 0x80 ? char32_t{byte} : char32_t{kCodePage437.at(byte - 0x80U)}, name);
    }
    return name;
}

std::string MakeValidUtf8(std::string_view text) {
    std::string valid;
    while (!text.empty()) {
        char32_t point = 0;
        const std::size_t length = DecodeOne(text, &point);
        if (length == 0) {
            valid += '_';
            text.remove_prefix(1);
        } else {
            valid += text.substr(0, length);
            text.remove_prefix(length);
        }
    }
    return valid;
}

std::string FoldCase(std::string_view utf8) {
    std::string folded;
    while (!utf8.empty()) {
        char32_t point = 0;
        const std::size_t length = DecodeOne(utf8, &point);
        if (length == 0) {
            folded += utf8.front();
            utf8.remove_prefix(1);
        } else {
            AppendUtf8(LowerCase(point), folded);
            utf8.remove_prefix(length);
        }
    }
    return folded;
}

std::string FreeName(const std::string& wanted, const std::unordered_set<std::string>& taken) {
    if (!taken.contains(FoldCase(wanted))) return wanted;
    const auto slash = wanted.rfind('/');
    const std::size_t base = slash == std::string::npos ? 0 : slash + 1;
    auto dot = wanted.rfind('.');
    // A name that only begins with a point has no extension.
    if (dot == std::string::npos || dot <= base) dot = wanted.size();
    const auto numbered = [&](std::uint64_t number) {
        return wanted.substr(0, dot) + " (" + std::to_string(number) + ")" + wanted.substr(dot);
    };
    const auto is_taken = [&](std::uint64_t number) {
        return taken.contains(FoldCase(numbered(number)));
    };
    // Thousands of files of one name are numbered without a gap, so the end of the numbers is found
    // by doubling and halving: trying each number in turn would take as many steps as there are
    // files, for each of them.
    std::uint64_t end = 2;
    while (is_taken(end))
        end *= 2;
    std::uint64_t highest_taken = end / 2;
    while (end - highest_taken > 1) {
        const std::uint64_t middle = highest_taken + (end - highest_taken) / 2;
        (is_taken(middle) ? highest_taken : end) = middle;
    }
    return numbered(end);
}

std::string DosDateText(std::uint16_t dos_date, std::uint16_t dos_time) {
    const unsigned date = dos_date;
    const unsigned time = dos_time;
    const unsigned month = (date >> 5) & 0x0F;
    const unsigned day = date & 0x1F;
    if (month < 1 || month > 12 || day < 1) return {};
    const unsigned hour = (time >> 11) & 0x1F;
    const unsigned minute = (time >> 5) & 0x3F;
    const unsigned second = (time & 0x1F) * 2;
    if (hour > 23 || minute > 59 || second > 59) return {};
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%02u/%02u/%04u %02u:%02u:%02u", month, day,
                  1980 + (date >> 9), hour, minute, second);
    return text.data();
}

}  // namespace trevix::zip_engine
