#include "cli/text_format.h"

#include <array>
#include <cstdio>

#include "util/format.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

std::string Number(const char* format, double number) {
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), format, number);
    return text.data();
}

bool IsControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (first < 0x20 || first == 0x7F) return true;
    // U+0080 to U+009F steer terminals as well.
    return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

std::size_t Columns(const std::string& text) {
    std::size_t columns = 0;
    for (const char c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++columns;
    }
    return columns;
}

std::string Blanks(const std::string& text, std::size_t columns) {
    const std::size_t used = Columns(text);
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

std::string Printable(const std::string& text) {
    std::string safe;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = Utf8CharacterBytes(text, at);
        const bool keep = length > 0 && !IsControl(std::string_view(text).substr(at, length));
        safe += keep ? text.substr(at, length) : "?";
        at += length > 0 ? length : 1;
    }
    return safe;
}

std::string Shortened(const std::string& text, std::size_t columns) {
    if (Columns(text) <= columns || columns == 0) return text;
    std::size_t end = 0;
    for (std::size_t used = 0; end < text.size(); ++end) {
        if ((static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) continue;
        if (++used == columns) break;
    }
    return text.substr(0, end) + "…";
}

std::string PadRight(const std::string& text, std::size_t columns) {
    return text + Blanks(text, columns);
}

std::string PadLeft(const std::string& text, std::size_t columns) {
    return Blanks(text, columns) + text;
}

std::string PlainText(const std::string& description) {
    const std::size_t code = description.rfind("[Collaboration Data Objects");
    if (code == std::string::npos || code == 0) return description;
    return TrimBlanks(description.substr(0, code));
}

}  // namespace trevix::cli
