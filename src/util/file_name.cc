#include "util/file_name.h"

#include <string_view>

#include "util/text.h"

namespace trevix {
namespace {

constexpr std::size_t kMaximumBytes = 200;
constexpr std::size_t kMaximumExtensionBytes = 40;  // with its dot; longer is no extension

bool IsUnsafe(std::string_view text, std::size_t at, std::size_t bytes) {
    const auto first = static_cast<unsigned char>(text[at]);
    if (bytes == 0) return true;
    if (bytes == 1) {
        return first < 0x20 || first == 0x7F || first == '/' || first == '\\' || first == '"';
    }
    // The second set of control characters, U+0080 to U+009F.
    return first == 0xC2 && static_cast<unsigned char>(text[at + 1]) < 0xA0;
}

std::string ReplaceUnsafe(std::string_view name) {
    std::string result;
    for (std::size_t at = 0; at < name.size();) {
        const std::size_t bytes = Utf8CharacterBytes(name, at);
        if (IsUnsafe(name, at, bytes)) {
            result += '_';
        } else {
            result += name.substr(at, bytes);
        }
        at += bytes == 0 ? 1 : bytes;
    }
    return result;
}

// Valid UTF-8, shortened to at most `bytes` at a character boundary.
std::string CutAtCharacter(const std::string& text, std::size_t bytes) {
    if (text.size() <= bytes) return text;
    while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xC0U) == 0x80U)
        --bytes;
    return text.substr(0, bytes);
}

std::string Shorten(const std::string& name) {
    if (name.size() <= kMaximumBytes) return name;
    const std::size_t dot = name.rfind('.');
    const bool has_extension =
        dot != std::string::npos && dot > 0 && name.size() - dot <= kMaximumExtensionBytes;
    const std::string extension = has_extension ? name.substr(dot) : std::string();
    const std::string stem = has_extension ? name.substr(0, dot) : name;
    return TrimBlanks(CutAtCharacter(stem, kMaximumBytes - extension.size())) + extension;
}

}  // namespace

std::string BaseName(const std::string& name) {
    return name.substr(0, name.rfind('.'));
}

std::string Extension(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? name : name.substr(dot + 1);
}

void MakeFileNameSafe(std::string& text) {
    for (char& c : text) {
        if (std::string_view(":/\\><|?*").find(c) != std::string_view::npos) c = ' ';
    }
}

std::string SafeFileComponent(const std::string& name) {
    std::string result = Shorten(TrimBlanks(ReplaceUnsafe(name)));
    if (result.empty() || result == "." || result == "..") return "attachment";
    return result;
}

}  // namespace trevix
