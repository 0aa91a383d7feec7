#include "platform/mime/parameters.h"

#include <algorithm>

#include "platform/mime/ascii.h"
#include "platform/mime/header_text.h"

namespace trevix::mime {
namespace {

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    const char lower = AsciiLower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// "name*1*": the second piece of an extended value.
struct RawParameter {
    std::string name;
    int piece = -1;         // -1: the whole value
    bool extended = false;  // with % escapes
    std::string value;
};

class Scanner {
 public:
    explicit Scanner(std::string_view text) : text_(text) {}

    bool AtEnd() const { return at_ >= text_.size(); }

    // Blanks and comments.
    void SkipSpace() {
        int depth = 0;
        for (; at_ < text_.size(); ++at_) {
            const char c = text_[at_];
            if (c == '(') {
                ++depth;
            } else if (c == ')' && depth > 0) {
                --depth;
            } else if (c == '\\' && depth > 0) {
                ++at_;
            } else if (depth == 0 && !IsSpace(c)) {
                return;
            }
        }
    }

    std::string TakeUntil(std::string_view stops) {
        const std::size_t end = std::min(text_.find_first_of(stops, at_), text_.size());
        std::string token(TrimBlanks(text_.substr(at_, end - at_)));
        at_ = end;
        return token;
    }

    bool Take(char c) {
        if (AtEnd() || text_[at_] != c) return false;
        ++at_;
        return true;
    }

    std::string TakeValue() {
        SkipSpace();
        if (!Take('"')) return WithoutFolds(TakeUntil(";"));
        std::string value;
        for (; at_ < text_.size() && text_[at_] != '"'; ++at_) {
            if (text_[at_] == '\\' && at_ + 1 < text_.size()) ++at_;
            value += text_[at_];
        }
        Take('"');
        return WithoutFolds(value);
    }

 private:
    // A fold is its line break; the blank behind it stays.
    static std::string WithoutFolds(std::string value) {
        std::erase_if(value, [](char c) { return c == '\r' || c == '\n'; });
        return value;
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

RawParameter ReadName(const std::string& raw) {
    RawParameter parameter;
    std::string name = AsciiLower(raw);
    if (name.ends_with('*')) {
        parameter.extended = true;
        name.pop_back();
    }
    const std::size_t star = name.rfind('*');
    if (star != std::string::npos && star + 1 < name.size() && name.size() - star < 8 &&
        name.find_first_not_of("0123456789", star + 1) == std::string::npos) {
        parameter.piece = std::stoi(name.substr(star + 1));
        name.resize(star);
    }
    parameter.name = name;
    return parameter;
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

// Takes "charset'language'" off an extended value.
std::string TakeCharset(std::string* value) {
    const std::size_t first = value->find('\'');
    const std::size_t second = first == std::string::npos ? first : value->find('\'', first + 1);
    if (second == std::string::npos) return {};
    std::string charset = value->substr(0, first);
    value->erase(0, second + 1);
    return charset;
}

// The pieces numbered 0, 1, 2 ... of a name put together; false when there is no piece 0.
bool JoinPieces(const std::vector<RawParameter>& raw, const std::string& name,
                std::string* decoded) {
    std::string bytes;
    std::string charset;
    for (int piece = 0;; ++piece) {
        const auto found = std::find_if(raw.begin(), raw.end(), [&](const RawParameter& one) {
            return one.name == name && one.piece == piece;
        });
        if (found == raw.end()) {
            if (piece == 0) return false;
            break;
        }
        std::string value = found->value;
        if (piece == 0 && found->extended) charset = TakeCharset(&value);
        bytes += found->extended ? Unescape(value) : value;
    }
    *decoded = ToUtf8(bytes, charset);
    return true;
}

std::string DecodeParameter(const std::vector<RawParameter>& raw, const std::string& name) {
    const auto find_whole = [&](bool extended) {
        return std::find_if(raw.begin(), raw.end(), [&](const RawParameter& one) {
            return one.name == name && one.piece < 0 && one.extended == extended;
        });
    };
    const auto whole = find_whole(true);
    if (whole != raw.end()) {
        std::string value = whole->value;
        const std::string charset = TakeCharset(&value);
        return ToUtf8(Unescape(value), charset);
    }
    std::string joined;
    if (JoinPieces(raw, name, &joined)) return joined;
    const auto plain = find_whole(false);
    return plain == raw.end() ? std::string() : ToUtf8(plain->value, "");
}

}  // namespace

std::string Parameterized::Parameter(std::string_view name) const {
    for (const auto& [key, value] : parameters) {
        if (key == name) return value;
    }
    return {};
}

Parameterized ParseParameterized(std::string_view raw) {
    Parameterized result;
    Scanner scanner(raw);
    scanner.SkipSpace();
    result.word = AsciiLower(scanner.TakeUntil("; \t\r\n("));
    std::vector<RawParameter> parameters;
    while (!scanner.AtEnd()) {
        // Whatever stands between the word or a value and the next ";" says nothing.
        scanner.TakeUntil(";");
        if (!scanner.Take(';')) break;
        scanner.SkipSpace();
        RawParameter parameter = ReadName(scanner.TakeUntil("=;"));
        if (!scanner.Take('=')) continue;
        parameter.value = scanner.TakeValue();
        if (!parameter.name.empty()) parameters.push_back(std::move(parameter));
    }
    for (const RawParameter& parameter : parameters) {
        const bool known =
            std::any_of(result.parameters.begin(), result.parameters.end(),
                        [&](const auto& one) { return one.first == parameter.name; });
        if (known) continue;
        result.parameters.emplace_back(parameter.name, DecodeParameter(parameters, parameter.name));
    }
    return result;
}

Parameterized ParseContentType(std::string_view raw) {
    Parameterized type = ParseParameterized(raw);
    const std::size_t slash = type.word.find('/');
    // A type without a subtype says nothing; the default of the place holds then.
    if (slash == std::string::npos || slash == 0 || slash + 1 == type.word.size()) return {};
    return type;
}

}  // namespace trevix::mime
