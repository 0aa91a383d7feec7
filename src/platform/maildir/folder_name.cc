#include "platform/maildir/folder_name.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace trevix::maildir {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+,";
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

void AppendUtf8(std::string& text, std::uint32_t code) {
    const auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (code < 0x80) {
        add(code);
    } else if (code < 0x800) {
        add(0xC0 | (code >> 6));
        add(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        add(0xE0 | (code >> 12));
        add(0x80 | ((code >> 6) & 0x3F));
        add(0x80 | (code & 0x3F));
    } else {
        add(0xF0 | (code >> 18));
        add(0x80 | ((code >> 12) & 0x3F));
        add(0x80 | ((code >> 6) & 0x3F));
        add(0x80 | (code & 0x3F));
    }
}

// The UTF-16 units that a run of base64 letters stands for; nothing when bits are left over.
std::optional<std::vector<std::uint32_t>> DecodeUnits(std::string_view letters) {
    std::vector<std::uint32_t> units;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char letter : letters) {
        const std::size_t value = kAlphabet.find(letter);
        if (value == std::string_view::npos) return std::nullopt;
        bits = (bits << 6) | static_cast<std::uint32_t>(value);
        count += 6;
        if (count < 16) continue;
        count -= 16;
        units.push_back((bits >> count) & 0xFFFF);
        bits &= (1U << count) - 1;
    }
    if (units.empty() || count >= 6 || bits != 0) return std::nullopt;
    return units;
}

bool AppendUnits(std::string& text, const std::vector<std::uint32_t>& units) {
    for (std::size_t at = 0; at < units.size(); ++at) {
        std::uint32_t code = units[at];
        if (code == 0 || (code >= 0xDC00 && code <= 0xDFFF)) return false;
        if (code >= 0xD800 && code <= 0xDBFF) {
            if (at + 1 >= units.size() || units[at + 1] < 0xDC00 || units[at + 1] > 0xDFFF) {
                return false;
            }
            code = 0x10000 + ((code - 0xD800) << 10) + (units[++at] - 0xDC00);
        }
        AppendUtf8(text, code);
    }
    return true;
}

std::optional<std::string> DecodeModifiedUtf7(std::string_view stored) {
    std::string text;
    for (std::size_t at = 0; at < stored.size(); ++at) {
        const char c = stored[at];
        if (c < 0x20 || c > 0x7E) return std::nullopt;
        if (c != '&') {
            text += c;
            continue;
        }
        const std::size_t end = stored.find('-', at);
        if (end == std::string_view::npos) return std::nullopt;
        const std::string_view letters = stored.substr(at + 1, end - at - 1);
        at = end;
        if (letters.empty()) {
            text += '&';
            continue;
        }
        const auto units = DecodeUnits(letters);
        if (!units || !AppendUnits(text, *units)) return std::nullopt;
    }
    return text;
}

// The length of the UTF-8 character at the front of `text`; 0 when there is none.
std::size_t CharacterLength(std::string_view text) {
    const auto byte = [text](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    const auto follows = [&byte](std::size_t at) { return (byte(at) & 0xC0U) == 0x80U; };
    const unsigned first = byte(0);
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return follows(1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        const bool good = follows(1) && follows(2) && !(first == 0xE0 && byte(1) < 0xA0) &&
                          !(first == 0xED && byte(1) > 0x9F);
        return good ? 3 : 0;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        const bool good = follows(1) && follows(2) && follows(3) &&
                          !(first == 0xF0 && byte(1) < 0x90) && !(first == 0xF4 && byte(1) > 0x8F);
        return good ? 4 : 0;
    }
    return 0;
}

std::string ValidUtf8(std::string_view stored) {
    std::string text;
    while (!stored.empty()) {
        const std::size_t length = CharacterLength(stored);
        text += length > 0 ? stored.substr(0, length) : kReplacement;
        stored.remove_prefix(length > 0 ? length : 1);
    }
    return text;
}

}  // namespace

std::string DisplayName(std::string_view stored) {
    if (auto decoded = DecodeModifiedUtf7(stored)) return *std::move(decoded);
    return ValidUtf8(stored);
}

}  // namespace trevix::maildir
