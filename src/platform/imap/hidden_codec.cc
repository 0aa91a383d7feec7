#include "platform/imap/hidden_codec.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/imap/base64.h"
#include "platform/imap/header_lines.h"
#include "platform/imap/text_escape.h"

namespace trevix::imap {

const char kHiddenHeadSection[] =
    "HEADER.FIELDS (X-Trevix-Message X-Trevix-Revision X-Trevix-Modified X-Trevix-Write "
    "X-Trevix-Class X-Trevix-Subject)";

namespace {

constexpr std::size_t kIdSize = 16;
constexpr std::uint64_t kLargest = std::uint64_t{512} * 1024 * 1024;
constexpr std::size_t kFoldAt = 70;

constexpr const char kForPeople[] =
    "This message is kept by TrevixCI: the results of its last runs over this mailbox, and the\r\n"
    "index of attachments. It is no mail of yours. Without it the next run takes longer.\r\n";

// A word of any length, folded; whoever reads it takes the blanks out.
std::string Field(const std::string& name, std::string_view word) {
    std::string field = name + ":";
    while (!word.empty()) {
        field += " " + std::string(word.substr(0, kFoldAt)) + "\r\n";
        word.remove_prefix(std::min(kFoldAt, word.size()));
    }
    return field;
}

std::string WordOf(std::string_view value) {
    std::string word(value);
    std::erase_if(word, [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; });
    return word;
}

std::string HexOf(std::string_view bytes) {
    std::string text;
    for (const char c : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        text += digits;
    }
    return text;
}

std::optional<std::string> BytesOf(std::string_view hex) {
    std::string escaped = "'";
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2)
        escaped += "%" + std::string(hex.substr(at, 2));
    auto bytes = UnescapeText(escaped);
    if (!bytes || bytes->size() != kIdSize || hex.size() != 2 * kIdSize) return std::nullopt;
    return bytes;
}

template <typename Number>
bool ReadNumber(std::string_view word, Number& number) {
    const auto [end, failure] = std::from_chars(word.data(), word.data() + word.size(), number);
    return failure == std::errc() && !word.empty() && end == word.data() + word.size();
}

// For people; programs read the exact number.
std::string DateText(std::int64_t unix_ns) {
    const std::time_t seconds = unix_ns / 1'000'000'000;
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d +0000", kDays[parts.tm_wday],
                  parts.tm_mday, kMonths[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour,
                  parts.tm_min, parts.tm_sec);
    return text;
}

// Printable ASCII only, and short.
std::string ForPeople(std::string_view text) {
    std::string shown(text.substr(0, 200));
    for (char& c : shown) {
        if (c < ' ' || c > '~' || c == '"' || c == '\\') c = '_';
    }
    return shown;
}

std::string BoundaryOf(const std::string& token) {
    return "=_trevix_" + token;
}

std::string HeaderOf(const HiddenMail& mail, const std::string& token) {
    return "From: TrevixCI <trevix@localhost>\r\nDate: " + DateText(mail.modified_ns) +
           "\r\nSubject: " + ForPeople(mail.subject) + "\r\nMessage-ID: <" + token +
           "@trevix.invalid>\r\n" + Field("X-Trevix-Message", HexOf(mail.id)) +
           Field("X-Trevix-Revision", std::to_string(mail.revision)) +
           Field("X-Trevix-Modified", std::to_string(mail.modified_ns)) +
           Field("X-Trevix-Write", token) +
           Field("X-Trevix-Class", EscapeText(mail.message_class)) +
           Field("X-Trevix-Subject", EscapeText(mail.subject)) +
           "MIME-Version: 1.0\r\nContent-Type: multipart/mixed;\r\n\tboundary=\"" +
           BoundaryOf(token) + "\"\r\n\r\n";
}

Result<std::string> PropertyLines(const HiddenMail& mail) {
    std::string lines;
    for (const HiddenMail::Property& property : mail.properties) {
        const Result<std::string> value = WriteValue(property.value);
        if (!value.ok()) return value.error();
        lines +=
            EscapeText(property.set) + " " + EscapeText(property.name) + " " + value.value() + "\n";
    }
    return lines;
}

bool ReadProperties(std::string_view lines, HiddenMail& mail) {
    while (!lines.empty()) {
        const std::size_t newline = lines.find('\n');
        if (newline == std::string_view::npos) return false;
        const std::string_view line = lines.substr(0, newline);
        lines.remove_prefix(newline + 1);
        const std::size_t first = line.find(' ');
        const std::size_t second =
            first == std::string_view::npos ? first : line.find(' ', first + 1);
        if (second == std::string_view::npos) return false;
        auto set = UnescapeText(line.substr(0, first));
        auto name = UnescapeText(line.substr(first + 1, second - first - 1));
        auto value = ReadValue(line.substr(second + 1));
        if (!set || !name || !value) return false;
        mail.properties.push_back({*std::move(set), *std::move(name), *std::move(value)});
    }
    return true;
}

Status AppendAttachment(std::string& text, const std::string& boundary,
                        const HiddenMail::Part& part) {
    if (part.content.size_bytes() > kLargest) {
        return MessagingError(kNoSupport, part.name + " is too large for a hidden message");
    }
    const Result<std::string> bytes = part.content.ToString();
    if (!bytes.ok()) return bytes.error();
    text += "--" + boundary + "\r\n" + Field("X-Trevix-Name", EscapeText(part.name)) +
            Field("X-Trevix-Method", std::to_string(part.method)) +
            "Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n"
            "Content-Disposition: attachment;\r\n\tfilename=\"" +
            ForPeople(part.name) + "\"\r\n\r\n";
    AppendBase64(text, bytes.value().data(), bytes.value().size());
    return {};
}

// A part of a hidden message: its header and content.
struct RawPart {
    std::string_view header;
    std::string_view content;
};

// Between the boundary lines; nothing when the last one is missing.
std::optional<std::vector<RawPart>> SplitParts(std::string_view body, const std::string& boundary) {
    const std::string line = "--" + boundary;
    std::vector<RawPart> parts;
    std::size_t at = body.find(line);
    while (at != std::string_view::npos) {
        at += line.size();
        if (body.substr(at).starts_with("--")) return parts;
        const std::size_t next = body.find("\r\n" + line, at);
        if (next == std::string_view::npos) return std::nullopt;
        const std::string_view whole = body.substr(at, next + 2 - at);
        const std::size_t blank = whole.find("\r\n\r\n");
        if (!whole.starts_with("\r\n") || blank == std::string_view::npos) return std::nullopt;
        parts.push_back({whole.substr(2, blank), whole.substr(blank + 4)});
        at = next + 2;
    }
    return std::nullopt;
}

std::string FieldWord(std::string_view header, std::string_view lower_name) {
    const std::vector<HeaderLines> fields = FieldsNamed(header, lower_name);
    return fields.size() == 1 ? WordOf(fields.front().value) : std::string();
}

bool ReadAttachment(const RawPart& raw, HiddenMail& mail) {
    auto name = UnescapeText(FieldWord(raw.header, "x-trevix-name"));
    auto bytes = DecodeBase64(raw.content);
    HiddenMail::Part part;
    if (!name || !bytes || !ReadNumber(FieldWord(raw.header, "x-trevix-method"), part.method)) {
        return false;
    }
    part.name = *std::move(name);
    part.content = Blob::FromString(*std::move(bytes));
    mail.attachments.push_back(std::move(part));
    return true;
}

}  // namespace

Result<std::string> WriteHidden(const HiddenMail& mail, const std::string& token) {
    const Result<std::string> properties = PropertyLines(mail);
    if (!properties.ok()) return properties.error();
    const std::string boundary = BoundaryOf(token);
    std::string text = HeaderOf(mail, token) + "--" + boundary +
                       "\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\n" + kForPeople +
                       "--" + boundary +
                       "\r\nContent-Type: text/plain; charset=us-ascii; name=\"properties.txt\"\r\n"
                       "Content-Transfer-Encoding: base64\r\n\r\n";
    AppendBase64(text, properties.value().data(), properties.value().size());
    for (const HiddenMail::Part& part : mail.attachments)
        TREVIX_RETURN_IF_ERROR(AppendAttachment(text, boundary, part));
    return text + "--" + boundary + "--\r\n";
}

std::optional<HiddenHead> ReadHiddenHead(std::string_view header) {
    HiddenHead head;
    auto id = BytesOf(FieldWord(header, "x-trevix-message"));
    auto message_class = UnescapeText(FieldWord(header, "x-trevix-class"));
    auto subject = UnescapeText(FieldWord(header, "x-trevix-subject"));
    head.token = FieldWord(header, "x-trevix-write");
    if (!id || !message_class || !subject || head.token.empty() ||
        !ReadNumber(FieldWord(header, "x-trevix-revision"), head.mail.revision) ||
        !ReadNumber(FieldWord(header, "x-trevix-modified"), head.mail.modified_ns) ||
        head.mail.revision < 1) {
        return std::nullopt;
    }
    head.mail.id = *std::move(id);
    head.mail.message_class = *std::move(message_class);
    head.mail.subject = *std::move(subject);
    return head;
}

std::optional<HiddenMail> ReadHidden(std::string_view mail) {
    const std::size_t blank = mail.find("\r\n\r\n");
    if (blank == std::string_view::npos) return std::nullopt;
    auto head = ReadHiddenHead(mail.substr(0, blank + 2));
    if (!head) return std::nullopt;
    const auto parts = SplitParts(mail.substr(blank + 4), BoundaryOf(head->token));
    if (!parts || parts->size() < 2) return std::nullopt;
    const auto properties = DecodeBase64((*parts)[1].content);
    if (!properties || !ReadProperties(*properties, head->mail)) return std::nullopt;
    for (std::size_t at = 2; at < parts->size(); ++at) {
        if (!ReadAttachment((*parts)[at], head->mail)) return std::nullopt;
    }
    return std::move(head->mail);
}

}  // namespace trevix::imap
