#include "platform/imap/outline.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/imap/base64.h"
#include "platform/imap/digest.h"
#include "platform/imap/header_lines.h"
#include "platform/imap/outline_plan.h"

namespace trevix::imap {
namespace {

constexpr std::string_view kNewline = "\r\n";

bool IsToken(std::string_view text) {
    constexpr std::string_view kSpecials = "()<>@,;:\\\"/[]?= \t\r\n";
    return !text.empty() && text.find_first_of(kSpecials) == std::string_view::npos;
}

// Whether a field can hold the text without becoming two.
bool FitsInALine(std::string_view text) {
    return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

bool HasHeaderEnd(std::string_view block) {
    return block == kNewline || block == "\n" || block.ends_with("\r\n\r\n") ||
           block.ends_with("\n\n");
}

class SkeletonWriter {
 public:
    SkeletonWriter(const MessageFacts& facts, const LazyPart& lazy, std::string token)
        : facts_(facts), lazy_(lazy), token_(std::move(token)) {}

    // False when the message cannot be told by its structure.
    Result<bool> Write() {
        WriteHeader(*facts_.header, *facts_.structure);
        return WriteContent(*facts_.structure);
    }

    MailOutline Take() {
        MailOutline outline;
        outline.skeleton = Blob::FromString(std::move(text_));
        outline.gaps = std::move(gaps_);
        outline.exact = false;
        return outline;
    }

 private:
    std::string BoundaryOf(int number) const {
        return "=_" + token_ + "." + std::to_string(number);
    }

    // The header as it is, but for a multipart's boundary.
    void WriteHeader(std::string_view header, const BodyPart& part) {
        for (const HeaderLines& field : FieldsIn(header)) {
            if (field.name.empty()) continue;
            if (part.is_multipart() && LowerText(field.name) == "content-type") continue;
            text_ += field.whole;
            if (!field.whole.ends_with('\n')) text_ += kNewline;
        }
        if (part.is_multipart()) WriteType(part);
        text_ += kNewline;
    }

    Result<bool> WriteContent(const BodyPart& part) {
        if (!part.is_multipart()) return WriteLeaf(part);
        // The last one that was made, with the header just before.
        const std::string boundary = BoundaryOf(boundaries_);
        for (const BodyPart& child : part.children) {
            text_ += "--" + boundary + "\r\n";
            Result<bool> header = WritePartHeader(child);
            if (!header.ok() || !header.value()) return header;
            Result<bool> content = WriteContent(child);
            if (!content.ok() || !content.value()) return content;
            text_ += kNewline;
        }
        text_ += "--" + boundary + "--\r\n";
        return true;
    }

    // As it lies in the message where that was fetched, else from the structure.
    Result<bool> WritePartHeader(const BodyPart& part) {
        const auto fetched = facts_.sections.find(part.section + ".MIME");
        if (fetched == facts_.sections.end()) return WriteFields(part);
        const Result<std::string> block = fetched->second.ToString();
        if (!block.ok()) return block.error();
        if (part.is_multipart()) {
            if (BoundaryIn(block.value()) != ParameterOf(part.parameters, "boundary")) return false;
            WriteHeader(block.value(), part);
            return true;
        }
        // The reader must take it for what the structure says.
        if (TypeWordIn(block.value()).starts_with("multipart/")) return false;
        for (const HeaderLines& field : FieldsIn(block.value())) {
            if (field.name.empty()) return false;
        }
        text_ += block.value();
        if (!HasHeaderEnd(block.value())) {
            if (!block.value().empty() && !block.value().ends_with('\n')) text_ += kNewline;
            text_ += kNewline;
        }
        return true;
    }

    Result<bool> WriteFields(const BodyPart& part) {
        if (!WriteType(part)) return false;
        if (part.disposition && !WriteParameterized("Content-Disposition", part.disposition->type,
                                                    part.disposition->parameters)) {
            return false;
        }
        const bool written = WriteField("Content-Transfer-Encoding", part.encoding) &&
                             WriteField("Content-ID", part.id.value_or("")) &&
                             WriteField("Content-Description", part.description.value_or("")) &&
                             WriteField("Content-Location", part.location.value_or(""));
        text_ += kNewline;
        return written;
    }

    bool WriteField(std::string_view name, const std::string& value) {
        if (!FitsInALine(value)) return false;
        if (!value.empty()) text_ += std::string(name) + ": " + value + "\r\n";
        return true;
    }

    bool WriteType(const BodyPart& part) {
        BodyPart::Parameters parameters = part.parameters;
        if (part.is_multipart()) {
            std::erase_if(parameters,
                          [](const auto& one) { return LowerText(one.first) == "boundary"; });
            parameters.emplace_back("boundary", BoundaryOf(++boundaries_));
        }
        return WriteParameterized("Content-Type", part.type + "/" + part.subtype, parameters);
    }

    bool WriteParameterized(std::string_view name, const std::string& word,
                            const BodyPart::Parameters& parameters) {
        if (!FitsInALine(word)) return false;
        text_ += std::string(name) + ": " + word;
        for (const auto& [key, value] : parameters) {
            if (!IsToken(key) || !FitsInALine(value)) return false;
            text_ += ";\r\n\t" + key + "=" + (IsToken(value) ? value : Quoted(value));
        }
        text_ += kNewline;
        return true;
    }

    Result<bool> WriteLeaf(const BodyPart& part) {
        if (part.size_bytes == 0) return true;
        MailOutline::Gap gap;
        gap.offset = text_.size();
        const Result<std::optional<std::uint64_t>> size = ContentSizeOf(part);
        if (!size.ok()) return size.error();
        gap.decoded_bytes = size.value();
        const auto fetched = facts_.sections.find(part.section);
        const bool any = fetched != facts_.sections.end();
        const bool partial = facts_.partial.contains(part.section);
        if (any && !partial) {
            if (fetched->second.size_bytes() != part.size_bytes) return false;
            gap.content = fetched->second;
        } else {
            gap.content = lazy_(part.section, part.size_bytes,
                                any ? std::optional(fetched->second) : std::nullopt);
        }
        gaps_.push_back(std::move(gap));
        text_ += 'x';
        return true;
    }

    Result<std::optional<std::uint64_t>> ContentSizeOf(const BodyPart& part) const {
        const auto ending = facts_.endings.find(part.section);
        if (ending == facts_.endings.end()) return std::optional<std::uint64_t>();
        const Result<std::string> text = ending->second.ToString();
        if (!text.ok()) return text.error();
        if (text.value().size() != kBase64Ending) return std::optional<std::uint64_t>();
        return Base64ContentSize(part.size_bytes, text.value());
    }

    const MessageFacts& facts_;
    const LazyPart& lazy_;
    std::string token_;
    std::string text_;
    std::vector<MailOutline::Gap> gaps_;
    int boundaries_ = 0;
};

}  // namespace

Status MessageFacts::Take(FetchedMessage&& message) {
    if (message.structure != nullptr) structure = std::move(message.structure);
    for (FetchedSection& section : message.sections) {
        if (!section.content) continue;
        if (section.section.starts_with("HEADER")) {
            const Result<std::string> text = section.content->ToString();
            if (!text.ok()) return text.error();
            header = text.value();
        } else if (section.offset > 0) {
            endings[section.section] = *std::move(section.content);
        } else {
            sections[section.section] = *std::move(section.content);
        }
    }
    return {};
}

Result<std::optional<MailOutline>> MakeOutline(const MessageFacts& facts, const LazyPart& lazy) {
    const std::string token = RandomHex(12);
    if (token.empty()) return std::optional<MailOutline>();
    SkeletonWriter writer(facts, lazy, token);
    const Result<bool> written = writer.Write();
    if (!written.ok()) return written.error();
    if (!written.value()) return std::optional<MailOutline>();
    return std::optional(writer.Take());
}

MailOutline WholeOutline(Blob content) {
    MailOutline outline;
    outline.skeleton = std::move(content);
    return outline;
}

}  // namespace trevix::imap
