#include "platform/registry/reg_parser.h"

#include "platform/errors.h"
#include "platform/registry/utf16.h"

namespace trevix::registry {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
constexpr std::string_view kUtf16Mark = "\xFF\xFE";
constexpr std::string_view kBigEndianMark = "\xFE\xFF";
constexpr std::string_view kVersion5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view kVersion4 = "REGEDIT4";

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool IsNothing(std::string_view rest) {
    rest = Trim(rest);
    return rest.empty() || rest.front() == ';';
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// A hexadecimal number of one to eight digits at the start of `rest`, which becomes the rest.
bool TakeHexNumber(std::string_view& rest, std::uint32_t& number) {
    std::size_t count = 0;
    number = 0;
    for (; count < rest.size() && HexDigit(rest[count]) >= 0; ++count) {
        if (count == 8) return false;
        number = number * 16 + static_cast<std::uint32_t>(HexDigit(rest[count]));
    }
    rest.remove_prefix(count);
    return count > 0;
}

bool TakeWord(std::string_view& rest, std::string_view word) {
    if (rest.size() < word.size()) return false;
    if (Fold(std::string(rest.substr(0, word.size()))) != word) return false;
    rest.remove_prefix(word.size());
    return true;
}

bool IsTextType(std::uint32_t type) {
    return type == kRegSz || type == kRegExpandSz || type == kRegMultiSz;
}

}  // namespace

RegParser::RegParser(const std::string& bytes, const std::string& file)
    : bytes_(bytes), file_(file) {}

Error RegParser::Malformed(const std::string& what) const {
    return {ErrorKind::kMalformed, kPathFileAccess,
            file_ + ":" + std::to_string(at_ + 1) + ": " + what};
}

Result<RegDocument> RegParser::Parse() {
    TREVIX_RETURN_IF_ERROR(ReadText());
    TREVIX_RETURN_IF_ERROR(ReadHeader());
    for (; at_ < lines_.size(); ++at_)
        TREVIX_RETURN_IF_ERROR(ReadLine());
    document_.tail_ = std::move(before_);
    return std::move(document_);
}

// Finds the encoding and splits into lines.
Status RegParser::ReadText() {
    if (bytes_.starts_with(kBigEndianMark)) return Malformed("UTF-16 with big-endian bytes");
    if (bytes_.starts_with(kUtf16Mark)) {
        document_.utf16_ = true;
        bytes_ = Utf8FromUtf16(std::string_view(bytes_).substr(kUtf16Mark.size()));
    } else if (bytes_.starts_with(kUtf8Mark)) {
        document_.byte_order_mark_ = true;
        bytes_.erase(0, kUtf8Mark.size());
    }
    std::string_view rest = bytes_;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        if (lines_.empty() && line.ends_with('\r')) document_.carriage_returns_ = true;
        while (line.ends_with('\r'))
            line.remove_suffix(1);
        lines_.emplace_back(line);
        if (line.find('\0') != std::string_view::npos) {
            at_ = lines_.size() - 1;
            return Malformed("a NUL character");
        }
    }
    return {};
}

Status RegParser::ReadHeader() {
    while (at_ < lines_.size() && Trim(lines_[at_]).empty())
        ++at_;
    if (at_ == lines_.size()) return {};
    const std::string_view header = Trim(lines_[at_]);
    document_.single_byte_ = header == kVersion4;
    if (header != kVersion5 && header != kVersion4) {
        return Malformed("the first line is not \"" + std::string(kVersion5) + "\"");
    }
    ++at_;
    return {};
}

Status RegParser::ReadLine() {
    const std::string_view line = Trim(lines_[at_]);
    if (line.empty() || line.front() == ';') {
        before_ += lines_[at_] + "\n";
        return {};
    }
    if (line.front() == '[') return ReadSection(line);
    if (line.front() == '"' || line.front() == '@') return ReadEntry(line);
    return Malformed("neither a key in brackets nor a value");
}

Status RegParser::ReadSection(std::string_view line) {
    std::size_t end = line.find(']');
    while (end != std::string_view::npos && !IsNothing(line.substr(end + 1))) {
        end = line.find(']', end + 1);
    }
    if (end == std::string_view::npos) return Malformed("the closing bracket is missing");
    std::string_view name = line.substr(1, end - 1);
    section_goes_ = name.starts_with('-');
    if (section_goes_) name.remove_prefix(1);
    section_ = CleanPath(std::string(name));
    if (section_.empty()) return Malformed("a key without a name");
    if (!IsWritablePath(section_)) return Malformed("a control character in the name of a key");
    if (section_goes_) {
        document_.RemoveTree(Fold(section_));
    } else if (document_.Find(section_) == nullptr) {
        document_.SectionOf(section_, before_).text = lines_[at_];
        before_.clear();
    }
    return {};
}

Status RegParser::ReadEntry(std::string_view line) {
    if (section_.empty()) return Malformed("a value before the first key");
    RegistryValue value;
    if (line.front() == '@') {
        line.remove_prefix(1);
    } else {
        Result<std::string> name = TakeQuoted(line);
        if (!name.ok()) return name.error();
        value.name = std::move(name).value();
        if (!IsWritableName(value.name)) return Malformed("a control character in a name");
    }
    line = Trim(line);
    if (!line.starts_with('=')) return Malformed("\"=\" is missing after the name");
    line = Trim(line.substr(1));
    if (line.starts_with('-') && IsNothing(line.substr(1))) {
        document_.DeleteValue(section_, value.name);
        return {};
    }
    const std::size_t first = at_;
    TREVIX_RETURN_IF_ERROR(ReadData(line, value));
    std::string text = lines_[first];
    for (std::size_t i = first + 1; i <= at_; ++i)
        text += "\n" + lines_[i];
    if (!section_goes_) Keep(std::move(value), std::move(text));
    return {};
}

void RegParser::Keep(RegistryValue value, std::string text) {
    RegDocument::Section& section = document_.SectionOf(section_, {});
    const std::string folded = Fold(value.name);
    for (RegDocument::Entry& entry : section.entries) {
        if (Fold(entry.value.name) != folded) continue;
        entry = {std::move(value), entry.before + before_, std::move(text)};
        before_.clear();
        return;
    }
    section.entries.push_back({std::move(value), std::move(before_), std::move(text)});
    before_.clear();
}

Status RegParser::ReadData(std::string_view rest, RegistryValue& value) {
    if (rest.starts_with('"')) {
        Result<std::string> text = TakeQuoted(rest);
        if (!text.ok()) return text.error();
        if (!IsNothing(rest)) return Malformed("text after the closing quote");
        value.type = kRegSz;
        value.data = std::move(text).value() + '\0';
        return {};
    }
    if (TakeWord(rest, "dword:")) return ReadDword(rest, value);
    if (TakeWord(rest, "hex")) return ReadHex(rest, value);
    return Malformed("neither a text in quotes nor dword: nor hex:");
}

Status RegParser::ReadDword(std::string_view rest, RegistryValue& value) {
    rest = Trim(rest);
    std::uint32_t number = 0;
    if (!TakeHexNumber(rest, number) || !IsNothing(rest)) {
        return Malformed("dword: needs one to eight hexadecimal digits");
    }
    value.type = kRegDword;
    for (int i = 0; i < 4; ++i, number >>= 8U)
        value.data += static_cast<char>(number & 0xFFU);
    return {};
}

Status RegParser::ReadHex(std::string_view rest, RegistryValue& value) {
    value.type = kRegBinary;
    if (rest.starts_with('(')) {
        rest.remove_prefix(1);
        if (!TakeHexNumber(rest, value.type) || !rest.starts_with(')')) {
            return Malformed("hex( needs a type and a closing parenthesis");
        }
        rest.remove_prefix(1);
    }
    if (!rest.starts_with(':')) return Malformed("\":\" is missing after hex");
    TREVIX_RETURN_IF_ERROR(ReadHexBytes(rest.substr(1), value.data));
    if (IsTextType(value.type) && !document_.single_byte_) value.data = Utf8FromUtf16(value.data);
    return {};
}

// Bytes separated by commas; a backslash at the end of a line goes on in the next one.
Status RegParser::ReadHexBytes(std::string_view rest, std::string& data) {
    bool wants_byte = false;
    while (true) {
        rest = Trim(rest);
        if (rest.starts_with('\\')) {
            if (!IsNothing(rest.substr(1))) return Malformed("text after the backslash");
            if (at_ + 1 == lines_.size())
                return Malformed("the line after the backslash is missing");
            rest = lines_[++at_];
            continue;
        }
        if (IsNothing(rest)) return {};
        if (!data.empty() && !wants_byte) return Malformed("a comma is missing between two bytes");
        std::string_view digits = rest;
        std::uint32_t byte = 0;
        if (!TakeHexNumber(digits, byte) || rest.size() - digits.size() > 2) {
            return Malformed("a byte needs one or two hexadecimal digits");
        }
        data += static_cast<char>(byte);
        rest = Trim(digits);
        wants_byte = rest.starts_with(',');
        if (wants_byte) rest.remove_prefix(1);
    }
}

// A text in quotes at the start of `rest`, which becomes the rest.
Result<std::string> RegParser::TakeQuoted(std::string_view& rest) {
    std::string text;
    for (std::size_t i = 1; i < rest.size(); ++i) {
        if (rest[i] == '"') {
            rest.remove_prefix(i + 1);
            return text;
        }
        if (rest[i] == '\\') {
            ++i;
            if (i == rest.size() || (rest[i] != '\\' && rest[i] != '"')) {
                return Malformed("a backslash inside quotes must be doubled");
            }
        }
        text += rest[i];
    }
    return Malformed("the closing quote is missing");
}

}  // namespace trevix::registry
