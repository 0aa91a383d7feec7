#include "platform/mime/html_body.h"

#include <utility>
#include <vector>

#include "platform/mime/ascii.h"
#include "platform/mime/decoded_blob.h"
#include "platform/mime/header_text.h"

namespace trevix::mime {
namespace {

constexpr std::uint64_t kTextBytes = std::uint64_t{4} * 1024 * 1024;

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    const char lower = AsciiLower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string Unescape(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool escape = text[at] == '%' && at + 2 < text.size() &&
                            HexValue(text[at + 1]) >= 0 && HexValue(text[at + 2]) >= 0;
        if (escape) {
            result += static_cast<char>(HexValue(text[at + 1]) * 16 + HexValue(text[at + 2]));
            at += 2;
        } else {
            result += text[at];
        }
    }
    return result;
}

std::string ResolveAmpersands(std::string text) {
    constexpr std::string_view kEntity = "&amp;";
    for (std::size_t at = text.find(kEntity); at != std::string::npos;
         at = text.find(kEntity, at + 1)) {
        text.replace(at, kEntity.size(), "&");
    }
    return text;
}

// Offset of the "<body" tag that a browser would see, npos when there is none.
std::size_t FindBodyTag(std::string_view html) {
    for (std::size_t at = html.find('<'); at != std::string_view::npos; at = html.find('<', at)) {
        const std::string_view rest = html.substr(at);
        if (rest.starts_with("<!--")) {
            at = html.find("-->", at + 4);
            if (at == std::string_view::npos) return at;
            continue;
        }
        const bool body = StartsWithIgnoringCase(rest, "<body") && rest.size() > 5 &&
                          std::string_view(" \t\r\n>/").find(rest[5]) != std::string_view::npos;
        if (body) return at;
        ++at;
    }
    return std::string_view::npos;
}

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f';
}

using Attributes = std::vector<std::pair<std::string, std::string>>;

// The attributes of the tag whose name ends at `at`, up to its ">".
Attributes ReadAttributes(std::string_view html, std::size_t at) {
    Attributes attributes;
    const auto skip_space = [&] {
        while (at < html.size() && IsSpace(html[at]))
            ++at;
    };
    for (;;) {
        while (at < html.size() && (IsSpace(html[at]) || html[at] == '/'))
            ++at;
        if (at >= html.size() || html[at] == '>') return attributes;
        const std::size_t name_begin = at;
        while (at < html.size() && !IsSpace(html[at]) && html[at] != '=' && html[at] != '>')
            ++at;
        std::string name = AsciiLower(html.substr(name_begin, at - name_begin));
        if (at == name_begin) ++at;
        skip_space();
        std::string_view value;
        if (at < html.size() && html[at] == '=') {
            ++at;
            skip_space();
            const char quote = at < html.size() ? html[at] : '>';
            if (quote == '"' || quote == '\'') {
                const std::size_t end = std::min(html.find(quote, at + 1), html.size());
                value = html.substr(at + 1, end - at - 1);
                at = std::min(end + 1, html.size());
            } else {
                const std::size_t value_begin = at;
                while (at < html.size() && !IsSpace(html[at]) && html[at] != '>')
                    ++at;
                value = html.substr(value_begin, at - value_begin);
            }
        }
        if (!name.empty()) attributes.emplace_back(std::move(name), value);
    }
}

// The value as it stands between double quotes, on one line, never ending the tag early.
std::string AttributeText(const std::string& value) {
    std::string flat;
    for (const char c : value)
        flat += IsSpace(c) ? ' ' : c;
    const std::string trimmed(TrimBlanks(flat));
    if (StartsWithIgnoringCase(trimmed, "cid:")) {
        flat = "cid:" + Unescape(ResolveAmpersands(trimmed.substr(4)));
    }
    std::string text;
    for (const char c : flat) {
        if (c == '"') {
            text += "&quot;";
        } else if (c == '>') {
            text += "&gt;";
        } else {
            text += c;
        }
    }
    return text;
}

// Decodes one character; the text is valid UTF-8.
unsigned NextCharacter(std::string_view text, std::size_t* at) {
    const auto lead = static_cast<unsigned char>(text[(*at)++]);
    unsigned value = lead;
    if (lead >= 0xF0U) {
        value = lead & 7U;
    } else if (lead >= 0xE0U) {
        value = lead & 15U;
    } else if (lead >= 0xC0U) {
        value = lead & 31U;
    }
    while (lead >= 0x80U && *at < text.size() &&
           (static_cast<unsigned char>(text[*at]) & 0xC0U) == 0x80U) {
        value = value << 6U | (static_cast<unsigned char>(text[(*at)++]) & 63U);
    }
    return value;
}

void AppendUnicodeEscape(unsigned unit, std::string* rtf) {
    *rtf += "\\u" + std::to_string(static_cast<std::int16_t>(unit)) + "?";
}

std::string EscapeRtf(std::string_view text) {
    std::string rtf;
    for (std::size_t at = 0; at < text.size();) {
        const unsigned c = NextCharacter(text, &at);
        if (c == '\\' || c == '{' || c == '}') {
            rtf += '\\';
            rtf += static_cast<char>(c);
        } else if (c < 0x80U) {
            if (c >= ' ') rtf += static_cast<char>(c);
        } else if (c < 0x10000U) {
            AppendUnicodeEscape(c, &rtf);
        } else {
            AppendUnicodeEscape(0xD800U + ((c - 0x10000U) >> 10U), &rtf);
            AppendUnicodeEscape(0xDC00U + ((c - 0x10000U) & 0x3FFU), &rtf);
        }
    }
    return rtf;
}

}  // namespace

std::string ReadTextPart(const Blob& message, const MimePart& part) {
    const Blob encoded = message.Slice(part.content_begin, part.content_end - part.content_begin);
    const Result<Blob> decoded = DecodeBlob(encoded, part.encoding);
    if (!decoded.ok()) return {};
    const Result<std::string> text = decoded.value().Slice(0, kTextBytes).ToString();
    return text.ok() ? ToUtf8(text.value(), part.type.Parameter("charset")) : std::string();
}

std::set<std::string> ReferencedContentIds(std::string_view html) {
    std::set<std::string> ids;
    for (std::size_t colon = html.find(':'); colon != std::string_view::npos;
         colon = html.find(':', colon + 1)) {
        if (colon < 3 || !EqualsIgnoringCase(html.substr(colon - 3, 3), "cid")) continue;
        const std::size_t end =
            std::min(html.find_first_of("\"'<> \t\r\n)\\", colon + 1), html.size());
        const std::string raw(html.substr(colon + 1, end - colon - 1));
        ids.insert(raw);
        ids.insert(Unescape(ResolveAmpersands(raw)));
    }
    return ids;
}

std::string WrapHtmlInRtf(std::string_view html) {
    std::string rtf =
        "{\\rtf1\\ansi\\ansicpg1252\\fromhtml1 \\deff0{\\fonttbl{\\f0\\fswiss Arial;}}\r\n"
        "{\\*\\htmltag19 <html>}{\\*\\htmltag34 <head>}{\\*\\htmltag41 </head>}\r\n";
    const std::size_t tag = FindBodyTag(html);
    if (tag != std::string_view::npos) {
        std::string text = "<body";
        for (const auto& [name, value] : ReadAttributes(html, tag + 5)) {
            text += " " + name + "=\"" + AttributeText(value) + "\"";
        }
        rtf += "{\\*\\htmltag50 " + EscapeRtf(text + ">") + "}\r\n{\\*\\htmltag58 </body>}";
    }
    return rtf + "{\\*\\htmltag27 </html>}}";
}

}  // namespace trevix::mime
