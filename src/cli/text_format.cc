#include "cli/text_format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "cli/display_width.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

std::string Number(const char* format, double number) {
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), format, number);
    return text.data();
}

// Marks that turn the direction of what follows, so that "gpj.exe" reads "exe.jpg", and those that
// break the line.
constexpr std::string_view kLayoutMarks[] = {
    "\xD8\x9C",     "\xE2\x80\x8E", "\xE2\x80\x8F", "\xE2\x80\xA8", "\xE2\x80\xA9",
    "\xE2\x80\xAA", "\xE2\x80\xAB", "\xE2\x80\xAC", "\xE2\x80\xAD", "\xE2\x80\xAE",
    "\xE2\x81\xA6", "\xE2\x81\xA7", "\xE2\x81\xA8", "\xE2\x81\xA9", "\xEF\xBB\xBF"};

bool IsControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (first < 0x20 || first == 0x7F) return true;
    if (first < 0x80) return false;
    // U+0080 to U+009F steer terminals as well.
    if (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0) return true;
    return std::find(std::begin(kLayoutMarks), std::end(kLayoutMarks), character) !=
           std::end(kLayoutMarks);
}

std::string Blanks(std::string_view text, std::size_t columns) {
    const std::size_t used = DisplayColumns(text);
    return used < columns ? std::string(columns - used, ' ') : std::string();
}

}  // namespace

std::string HumanBytes(std::int64_t bytes) {
    constexpr std::int64_t kStep = 1024;
    if (bytes > -kStep && bytes < kStep) {
        return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    }
    double number = static_cast<double>(bytes);
    const char* unit = "";
    for (const char* next : {"KB", "MB", "GB", "TB", "PB"}) {
        // 999.95 would read "1000.0".
        if (number < 999.5 && number > -999.5) break;
        number /= static_cast<double>(kStep);
        unit = next;
    }
    const double size = number < 0 ? -number : number;
    const char* format = size < 9.995 ? "%.2f " : size < 99.95 ? "%.1f " : "%.0f ";
    return Number(format, number) + unit;
}

std::string HumanDuration(std::int64_t milliseconds) {
    if (milliseconds < 9950) return Number("%.1f s", static_cast<double>(milliseconds) / 1000);
    const std::int64_t seconds = (milliseconds + 500) / 1000;
    if (seconds < 60) return std::to_string(seconds) + " s";
    if (seconds < 3600) {
        return std::to_string(seconds / 60) + " min " + std::to_string(seconds % 60) + " s";
    }
    return std::to_string(seconds / 3600) + " h " + std::to_string(seconds % 3600 / 60) + " min";
}

std::int64_t SavedPercent(std::int64_t before, std::int64_t after) {
    if (before <= 0) return 0;
    return static_cast<std::int64_t>(static_cast<double>(before - after) * 100.0 /
                                     static_cast<double>(before));
}

std::string Printable(std::string_view text) {
    std::string safe;
    safe.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = Utf8CharacterBytes(text, at);
        const std::string_view character = text.substr(at, length);
        if (length > 0 && !IsControl(character)) {
            safe += character;
        } else {
            safe += '?';
        }
        at += length > 0 ? length : 1;
    }
    return safe;
}

std::string Shortened(std::string_view text, std::size_t columns) {
    if (columns == 0) return std::string(text);
    std::size_t used = 0;
    std::size_t end = 0;  // of what fits beside the ellipsis
    std::size_t bytes = 0;
    for (std::size_t at = 0; at < text.size(); at += bytes) {
        used += CharacterColumns(text, at, bytes);
        if (used > columns) return std::string(text.substr(0, end)) + "…";
        if (used < columns) end = at + bytes;
    }
    return std::string(text);
}

std::string PadRight(std::string_view text, std::size_t columns) {
    return std::string(text) + Blanks(text, columns);
}

std::string PadLeft(std::string_view text, std::size_t columns) {
    return Blanks(text, columns) + std::string(text);
}

std::string PlainText(const std::string& description) {
    const std::size_t code = description.rfind("[Collaboration Data Objects");
    if (code == std::string::npos || code == 0) return description;
    return TrimBlanks(description.substr(0, code));
}

}  // namespace trevix::cli
