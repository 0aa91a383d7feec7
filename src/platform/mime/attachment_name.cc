#include "platform/mime/attachment_name.h"

#include <array>
#include <cstdio>
#include <utility>

#include "platform/mime/ascii.h"
#include "platform/mime/header_block.h"
#include "platform/mime/header_text.h"

namespace trevix::mime {
namespace {

constexpr std::size_t kLongestName = 255;  // UTF-16 units

// The parameter, with the encoded words that some senders put there in spite of the rules.
std::string DecodedParameter(const Parameterized& field, std::string_view name) {
    const std::string value = field.Parameter(name);
    return value.find("=?") == std::string::npos ? value : DecodeHeaderText(value);
}

std::string MadeUpExtension(const MimePart& part) {
    static constexpr std::array<std::pair<const char*, const char*>, 16> kExtensions = {{
        {"text/plain", ".txt"},
        {"text/html", ".htm"},
        {"text/calendar", ".ics"},
        {"text/vcard", ".vcf"},
        {"text/x-vcard", ".vcf"},
        {"text/directory", ".vcf"},
        {"text/csv", ".csv"},
        {"text/xml", ".xml"},
        {"image/png", ".png"},
        {"image/jpeg", ".jpg"},
        {"image/gif", ".gif"},
        {"image/bmp", ".bmp"},
        {"application/pdf", ".pdf"},
        {"application/zip", ".zip"},
        {"message/rfc822", ".eml"},
        {"text/rfc822-headers", ".txt"},
    }};
    for (const auto& [type, extension] : kExtensions) {
        if (part.IsType(type)) return extension;
    }
    return ".dat";
}

// For an attached message the name of its type comes first, for a file that of its disposition.
std::string NameInHeaders(const MimePart& part, AttachmentKind kind) {
    const std::string filename = DecodedParameter(part.disposition, "filename");
    const std::string name = DecodedParameter(part.type, "name");
    const bool message = kind == AttachmentKind::kMessage;
    for (const std::string& candidate :
         message ? std::array{name, filename} : std::array{filename, name}) {
        std::string safe = SafeAttachmentName(candidate);
        if (!safe.empty()) return safe;
    }
    return SafeAttachmentName(DecodeHeaderText(FirstField(part.header, "Content-Description")));
}

std::size_t Utf16Units(unsigned char lead) {
    if ((lead & 0xC0U) == 0x80U) return 0;
    return lead >= 0xF0U ? 2 : 1;
}

// The longest beginning of at most `units` UTF-16 units, no character cut.
std::string_view CutToUnits(std::string_view text, std::size_t units) {
    std::size_t used = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        used += Utf16Units(static_cast<unsigned char>(text[at]));
        if (used > units) return text.substr(0, at);
    }
    return text;
}

std::size_t LengthInUnits(std::string_view text) {
    std::size_t units = 0;
    for (const char c : text)
        units += Utf16Units(static_cast<unsigned char>(c));
    return units;
}

bool IsShortNameChar(char c) {
    constexpr std::string_view kOthers = "!#$%&'()-@^_`{}~";
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
           kOthers.find(c) != std::string_view::npos;
}

std::string ShortChars(std::string_view text) {
    std::string result;
    for (const char c : AsciiUpper(text)) {
        if (IsShortNameChar(c)) result += c;
    }
    return result;
}

}  // namespace

std::string AttachmentName(const PartTree& tree, const AttachmentPart& attachment, int position) {
    const MimePart& part = tree.parts[static_cast<std::size_t>(attachment.part)];
    if (attachment.kind == AttachmentKind::kProtectedMessage) {
        const std::string name = part.IsMultipart() ? "" : NameInHeaders(part, attachment.kind);
        return name.empty() ? "smime.p7m" : name;
    }
    std::string name = NameInHeaders(part, attachment.kind);
    if (attachment.kind == AttachmentKind::kShortcut && !name.empty()) return name + ".url";
    if (!name.empty()) return name;
    if (attachment.kind == AttachmentKind::kTnef) return "winmail.dat";

    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "ATT%05d", position);
    const bool shortcut = attachment.kind == AttachmentKind::kShortcut;
    return number.data() + (shortcut ? std::string(".url") : MadeUpExtension(part));
}

std::string SafeAttachmentName(std::string_view name) {
    // Only what follows the last separator of either kind; a sender's folders are no business here.
    const std::size_t separator = name.find_last_of("/\\");
    if (separator != std::string_view::npos) name.remove_prefix(separator + 1);
    std::string safe;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == '\r' || byte == '\n' || byte == 0) continue;
        const bool illegal = byte < ' ' || byte == 0x7F ||
                             std::string_view(":><|?*\"").find(c) != std::string_view::npos;
        safe += illegal ? '_' : c;
    }
    if (!IsValidUtf8(safe)) safe = ToUtf8(safe, "");
    safe = std::string(TrimBlanks(safe));
    if (safe == "." || safe == "..") return {};
    if (LengthInUnits(safe) > kLongestName) {
        std::string extension = ExtensionOf(safe);
        if (LengthInUnits(extension) > 32) extension.clear();
        const std::string_view base =
            std::string_view(safe).substr(0, safe.size() - extension.size());
        safe = std::string(CutToUnits(base, kLongestName - LengthInUnits(extension))) + extension;
    }
    return safe;
}

std::string ShortNameOf(std::string_view name) {
    const std::string extension = ExtensionOf(name);
    const std::string_view base = name.substr(0, name.size() - extension.size());
    const std::string upper = AsciiUpper(base);
    const std::string upper_extension = AsciiUpper(extension);
    const std::string clean = ShortChars(base);
    const std::string clean_extension = ShortChars(extension);
    const bool fits = !base.empty() && base.size() <= 8 && clean == upper &&
                      extension.size() <= 4 && extension.size() != 1 &&
                      (extension.empty() || "." + clean_extension == upper_extension);
    if (fits) return upper + upper_extension;
    const std::string tail =
        clean_extension.empty() ? std::string() : "." + clean_extension.substr(0, 3);
    return clean.substr(0, 6) + "~1" + tail;
}

std::string ExtensionOf(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string_view::npos ? std::string() : std::string(name.substr(dot));
}

}  // namespace trevix::mime
