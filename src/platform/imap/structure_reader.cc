#include "platform/imap/structure_reader.h"

#include <charconv>
#include <cstdint>
#include <utility>

#include "platform/imap/ascii.h"

namespace trevix::imap {
namespace {

using Kind = Value::Kind;

constexpr const char* kNoPart = "a part is no list";
constexpr const char* kNoFields = "a part has too few fields";
constexpr const char* kNoText = "a field is a list that must be a text";
constexpr const char* kNoNumber = "a field is no number";
constexpr const char* kNoParameters = "the parameters of a part are no pairs of texts";
constexpr const char* kNoDisposition = "the disposition of a part is no pair";

// The fields of one part's list, taken from left to right. The first thing that is wrong stays.
class Fields {
 public:
    Fields(const std::vector<Value>& items, std::size_t at) : items_(items), at_(at) {}

    bool more() const { return at_ < items_.size(); }
    const std::string& problem() const { return problem_; }
    const Value* Peek() const { return more() ? &items_[at_] : nullptr; }

    const Value* Take() {
        if (!more()) {
            Wrong(kNoFields);
            return nullptr;
        }
        return &items_[at_++];
    }

    std::optional<std::string> Text() {
        const Value* const value = Take();
        if (value == nullptr || value->kind == Kind::kNil) return std::nullopt;
        if (value->kind == Kind::kList) {
            Wrong(kNoText);
            return std::nullopt;
        }
        return value->text;
    }

    std::optional<std::uint64_t> Number() {
        const auto text = Text();
        if (!text) return std::nullopt;
        std::uint64_t number = 0;
        const auto [end, error] =
            std::from_chars(text->data(), text->data() + text->size(), number);
        if (error != std::errc() || end != text->data() + text->size()) {
            Wrong(kNoNumber);
            return std::nullopt;
        }
        return number;
    }

    BodyPart::Parameters Parameters() {
        const Value* const value = Take();
        BodyPart::Parameters parameters;
        if (value == nullptr || value->kind == Kind::kNil) return parameters;
        if (value->kind != Kind::kList || value->items.size() % 2 != 0) {
            Wrong(kNoParameters);
            return parameters;
        }
        for (std::size_t i = 0; i < value->items.size(); i += 2) {
            const Value& name = value->items[i];
            const Value& text = value->items[i + 1];
            if (name.kind == Kind::kList || text.kind == Kind::kList) Wrong(kNoParameters);
            // A name that is NIL names nothing.
            if (name.kind != Kind::kNil) parameters.emplace_back(name.text, text.text);
        }
        return parameters;
    }

    std::optional<BodyPart::Disposition> Disposition() {
        const Value* const value = Take();
        if (value == nullptr || value->kind == Kind::kNil) return std::nullopt;
        if (value->kind != Kind::kList) return BodyPart::Disposition{value->text, {}};
        Fields fields(value->items, 0);
        BodyPart::Disposition disposition;
        if (auto type = fields.Text()) disposition.type = *std::move(type);
        if (fields.more()) disposition.parameters = fields.Parameters();
        if (!fields.problem().empty()) Wrong(kNoDisposition);
        return disposition;
    }

    std::vector<std::string> Languages() {
        const Value* const value = Take();
        std::vector<std::string> languages;
        if (value == nullptr || value->kind == Kind::kNil) return languages;
        if (value->kind != Kind::kList) return {value->text};
        for (const Value& item : value->items) {
            if (item.kind == Kind::kAtom || item.kind == Kind::kString) {
                languages.push_back(item.text);
            }
        }
        return languages;
    }

    void Wrong(const char* what) {
        if (problem_.empty()) problem_ = what;
    }

 private:
    const std::vector<Value>& items_;
    std::size_t at_;
    std::string problem_;
};

std::string Numbered(const std::string& prefix, std::size_t number) {
    return prefix.empty() ? std::to_string(number) : prefix + '.' + std::to_string(number);
}

bool IsList(const Value* value) {
    return value != nullptr && value->kind == Kind::kList;
}

// Disposition, languages and location: the end of every part's list.
void TakeExtension(Fields& fields, BodyPart& part) {
    if (fields.more()) part.disposition = fields.Disposition();
    if (fields.more()) part.languages = fields.Languages();
    if (fields.more()) part.location = fields.Text();
}

std::string ParsePart(const Value& value, const std::string& section, BodyPart& part);

// A message's body: a multipart has no number of its own, anything else is part 1.
std::string ParseBody(const Value& value, const std::string& message_section, BodyPart& part) {
    const bool multipart = !value.items.empty() && IsList(&value.items.front());
    if (!multipart) return ParsePart(value, Numbered(message_section, 1), part);
    std::string problem = ParsePart(value, message_section, part);
    part.section.clear();
    return problem;
}

std::string ParseMultipart(const Value& value, const std::string& section, BodyPart& part) {
    part.type = "MULTIPART";
    std::size_t at = 0;
    for (; at < value.items.size() && IsList(&value.items[at]); ++at) {
        BodyPart child;
        std::string problem = ParsePart(value.items[at], Numbered(section, at + 1), child);
        if (!problem.empty()) return problem;
        part.children.push_back(std::move(child));
    }
    Fields fields(value.items, at);
    if (fields.more()) part.subtype = fields.Text().value_or(std::string());
    part.has_extension = fields.more();
    if (fields.more()) part.parameters = fields.Parameters();
    TakeExtension(fields, part);
    return fields.problem();
}

std::string ParseLeaf(const Value& value, const std::string& section, BodyPart& part) {
    Fields fields(value.items, 0);
    part.type = fields.Text().value_or(std::string());
    part.subtype = fields.Text().value_or(std::string());
    part.parameters = fields.Parameters();
    part.id = fields.Text();
    part.description = fields.Text();
    part.encoding = fields.Text().value_or(std::string());
    part.size_bytes = fields.Number().value_or(0);
    if (!fields.problem().empty()) return fields.problem();
    const bool message =
        SameLetters(part.type, "MESSAGE") &&
        (SameLetters(part.subtype, "RFC822") || SameLetters(part.subtype, "GLOBAL"));
    // Servers describe an attached message that they have not opened like any other part.
    if (message && IsList(fields.Peek())) {
        fields.Take();  // the envelope
        const Value* const body = fields.Take();
        if (IsList(body)) {
            BodyPart child;
            std::string problem = ParseBody(*body, section, child);
            if (!problem.empty()) return problem;
            part.children.push_back(std::move(child));
        }
        part.lines = fields.Number();
    } else if (SameLetters(part.type, "TEXT") && fields.more()) {
        part.lines = fields.Number();
    }
    part.has_extension = fields.more();
    if (fields.more()) fields.Text();  // MD5
    TakeExtension(fields, part);
    return fields.problem();
}

// The depth is that of the lists, which their reader has limited.
std::string ParsePart(const Value& value, const std::string& section, BodyPart& part) {
    if (value.kind != Kind::kList || value.items.empty()) return kNoPart;
    part.section = section;
    return IsList(&value.items.front()) ? ParseMultipart(value, section, part)
                                        : ParseLeaf(value, section, part);
}

}  // namespace

bool BodyPart::is_multipart() const {
    return SameLetters(type, "MULTIPART");
}

bool BodyPart::is_message() const {
    return SameLetters(type, "MESSAGE") && !children.empty();
}

std::size_t BodyPart::held_bytes() const {
    const auto of_all = [](const Parameters& list) {
        std::size_t bytes = 0;
        for (const auto& [name, value] : list)
            bytes += sizeof(Parameters::value_type) + name.size() + value.size();
        return bytes;
    };
    std::size_t bytes = sizeof *this + type.size() + subtype.size() + encoding.size() +
                        section.size() + of_all(parameters);
    for (const auto* text : {&id, &description, &location})
        bytes += text->has_value() ? (*text)->size() : 0;
    if (disposition) bytes += disposition->type.size() + of_all(disposition->parameters);
    for (const std::string& language : languages)
        bytes += sizeof(std::string) + language.size();
    for (const BodyPart& child : children)
        bytes += child.held_bytes();
    return bytes;
}

std::string ParseStructure(const Value& value, BodyPart& part) {
    if (value.kind != Kind::kList) return kNoPart;
    return ParseBody(value, {}, part);
}

}  // namespace trevix::imap
