#include "platform/imap/base64.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace trevix::imap {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kLineBytes = 57;

std::array<std::int8_t, 256> MakeValues() {
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t at = 0; at < kDigits.size(); ++at)
        values[static_cast<unsigned char>(kDigits[at])] = static_cast<std::int8_t>(at);
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

}  // namespace

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
    static const std::array<std::int8_t, 256> kValues = MakeValues();
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
