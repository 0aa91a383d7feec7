#include "platform/imap/base64.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace trevix::imap {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kLineBytes = 57;
constexpr std::string_view kLineEnd = "\r\n";

std::array<int, 256> MakeValues() {
    std::array<int, 256> values{};
    values.fill(-1);
    for (std::size_t at = 0; at < kDigits.size(); ++at)
        values[static_cast<unsigned char>(kDigits[at])] = static_cast<int>(at);
    return values;
}

void AppendGroup(std::string& text, const char* bytes, std::size_t count) {
    std::uint32_t group = 0;
    for (std::size_t at = 0; at < 3; ++at) {
        const unsigned byte = at < count ? static_cast<unsigned char>(bytes[at]) : 0U;
        group = (group << 8U) | byte;
    }
    for (std::size_t at = 0; at < 4; ++at) {
        const bool padding = at > count;
        text += padding ? '=' : kDigits[(group >> (18U - 6U * at)) & 63U];
    }
}

bool AreDigits(std::string_view text) {
    return text.find_first_not_of(kDigits) == std::string_view::npos;
}

// Digits, and padding at the end of the last line alone.
bool IsLastLine(std::string_view line) {
    while (line.ends_with('='))
        line.remove_suffix(1);
    return AreDigits(line);
}

std::vector<std::string_view> LinesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    for (;;) {
        const std::size_t end = text.find(kLineEnd);
        lines.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return lines;
        text.remove_prefix(end + kLineEnd.size());
    }
}

// The length that all the lines have; the first of them may have lost its beginning.
std::optional<std::size_t> WidthOf(const std::vector<std::string_view>& lines, bool first_is_cut) {
    if (lines.size() < (first_is_cut ? 2U : 1U)) return std::nullopt;
    const std::size_t width = lines.back().size();
    for (std::size_t at = 0; at < lines.size(); ++at) {
        const bool cut = at == 0 && first_is_cut;
        const bool fits = cut ? lines[at].size() <= width : lines[at].size() == width;
        if (!fits || !AreDigits(lines[at])) return std::nullopt;
    }
    return width;
}

}  // namespace

std::optional<std::uint64_t> Base64ContentSize(std::uint64_t text_bytes, std::string_view ending) {
    const bool is_all = ending.size() == text_bytes;
    std::uint64_t end = text_bytes;
    for (; ending.ends_with(kLineEnd); end -= kLineEnd.size())
        ending.remove_suffix(kLineEnd.size());
    std::vector<std::string_view> lines = LinesOf(ending);
    const std::string_view last = lines.back();
    lines.pop_back();
    if (last.empty() || !IsLastLine(last)) return std::nullopt;

    std::uint64_t digits = last.size();
    if (!is_all || !lines.empty()) {
        const auto width = WidthOf(lines, !is_all);
        if (!width || *width < last.size()) return std::nullopt;
        const std::uint64_t line_bytes = *width + kLineEnd.size();
        const std::uint64_t before = end - last.size();
        if (before % line_bytes != 0) return std::nullopt;
        digits += before / line_bytes * *width;
    }
    const std::size_t padding = last.size() - (last.find_last_not_of('=') + 1);
    if (digits % 4 != 0 || padding > 2) return std::nullopt;
    return digits / 4 * 3 - padding;
}

void AppendBase64(std::string& text, const char* bytes, std::size_t count) {
    text.reserve(text.size() + (count / kLineBytes + 1) * 78);
    for (std::size_t at = 0; at < count; at += kLineBytes) {
        const std::size_t line = std::min(kLineBytes, count - at);
        for (std::size_t in_line = 0; in_line < line; in_line += 3)
            AppendGroup(text, bytes + at + in_line, std::min<std::size_t>(3, line - in_line));
        text += "\r\n";
    }
}

std::optional<std::string> DecodeBase64(std::string_view text) {
    static const std::array<int, 256> kValues = MakeValues();
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t group = 0;
    unsigned digits = 0;
    unsigned padding = 0;
    for (const char c : text) {
        if (c == '\r' || c == '\n' || c == ' ' || c == '\t') continue;
        const int value = kValues[static_cast<unsigned char>(c)];
        if (c == '=') {
            ++padding;
        } else if (value < 0 || padding > 0) {
            return std::nullopt;
        }
        group = (group << 6U) | (value < 0 ? 0U : static_cast<unsigned>(value));
        if (++digits < 4) continue;
        if (padding > 2) return std::nullopt;
        for (unsigned at = 0; at < 3 - padding; ++at)
            bytes += static_cast<char>((group >> (16U - 8U * at)) & 0xFFU);
        digits = 0;
        group = 0;
    }
    if (digits != 0) return std::nullopt;
    return bytes;
}

}  // namespace trevix::imap
