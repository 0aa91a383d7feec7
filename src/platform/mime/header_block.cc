#include "platform/mime/header_block.h"

#include "platform/mime/ascii.h"

namespace trevix::mime {
namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

std::size_t LineEnd(std::string_view block, std::size_t from) {
    const std::size_t feed = block.find('\n', from);
    return feed == std::string_view::npos ? block.size() : feed + 1;
}

bool IsBlankLine(std::string_view line) {
    return line == "\n" || line == "\r\n";
}

// Bytes that may stand unescaped in an RFC 2231 value.
bool IsAttributeChar(unsigned char c) {
    constexpr std::string_view kOthers = "!#$&+-.^_`{|}~";
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           kOthers.find(static_cast<char>(c)) != std::string_view::npos;
}

std::string Quoted(std::string_view value) {
    std::string text = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\') text += '\\';
        text += c;
    }
    return text + "\"";
}

bool IsPlainAscii(std::string_view value) {
    for (const char c : value) {
        if (c < ' ' || c > '~') return false;
    }
    return true;
}

// An ASCII stand-in for a value: each character that is not plain becomes one "_".
std::string AsciiForm(std::string_view value) {
    std::string text;
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= ' ' && byte <= '~') {
            text += c;
        } else if ((byte & 0xC0U) != 0x80U) {
            text += '_';
        }
    }
    return text;
}

// Pieces of an RFC 2231 value, no escape and no UTF-8 character cut in two.
std::vector<std::string> ExtendedPieces(std::string_view value, std::size_t longest) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::vector<std::string> pieces(1);
    for (std::size_t at = 0; at < value.size();) {
        std::string unit;
        do {
            const auto c = static_cast<unsigned char>(value[at++]);
            if (IsAttributeChar(c)) {
                unit += static_cast<char>(c);
            } else {
                unit += {'%', kHex[c >> 4U], kHex[c & 15U]};
            }
        } while (at < value.size() && (static_cast<unsigned char>(value[at]) & 0xC0U) == 0x80U);
        if (pieces.back().size() + unit.size() > longest) pieces.emplace_back();
        pieces.back() += unit;
    }
    return pieces;
}

// Whether a raw parameter "filename*0*=..." is a form of `name`.
bool IsParameterNamed(std::string_view raw, std::string_view name) {
    std::string_view key = TrimBlanks(raw.substr(0, raw.find('=')));
    key = key.substr(0, key.find('*'));
    return EqualsIgnoringCase(TrimBlanks(key), name);
}

std::string WithNewlines(std::string_view text, const std::string& newline) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') {
            result += newline;
        } else {
            result += c;
        }
    }
    return result;
}

}  // namespace

void VisitFields(std::string_view block, const std::function<bool(const HeaderField&)>& visit) {
    std::size_t at = 0;
    while (at < block.size()) {
        std::size_t end = LineEnd(block, at);
        if (IsBlankLine(block.substr(at, end - at))) return;
        while (end < block.size() && IsBlank(block[end]))
            end = LineEnd(block, end);
        const std::string_view text = block.substr(at, end - at);
        const std::size_t colon = text.find(':');
        const std::string_view name = text.substr(0, std::min(colon, text.size()));
        std::string_view trimmed = name;
        while (!trimmed.empty() && IsBlank(trimmed.back()))
            trimmed.remove_suffix(1);
        if (colon != std::string_view::npos && !trimmed.empty() &&
            trimmed.find_first_of(" \t\r\n") == std::string_view::npos) {
            if (!visit({trimmed, text.substr(colon + 1), at, end})) return;
        }
        at = end;
    }
}

std::string_view FirstField(std::string_view block, std::string_view name) {
    std::string_view value;
    VisitFields(block, [&](const HeaderField& field) {
        if (!EqualsIgnoringCase(field.name, name)) return true;
        value = field.value;
        return false;
    });
    return value;
}

std::vector<std::string_view> AllFields(std::string_view block, std::string_view name) {
    std::vector<std::string_view> values;
    VisitFields(block, [&](const HeaderField& field) {
        if (EqualsIgnoringCase(field.name, name)) values.push_back(field.value);
        return true;
    });
    return values;
}

std::string BlockNewline(std::string_view block) {
    return block.ends_with("\r\n") ? "\r\n" : "\n";
}

std::string EditBlock(std::string_view block, const std::vector<FieldEdit>& edits,
                      const std::function<bool(std::string_view)>& drop) {
    const std::string newline = BlockNewline(block);
    std::vector<bool> done(edits.size(), false);
    std::string result;
    std::size_t copied = 0;
    VisitFields(block, [&](const HeaderField& field) {
        bool replaced = drop(field.name);
        std::string line;
        for (std::size_t i = 0; i < edits.size(); ++i) {
            if (!EqualsIgnoringCase(edits[i].name, field.name)) continue;
            replaced = true;
            if (!edits[i].remove && !done[i]) line = WithNewlines(edits[i].line, newline) + newline;
            done[i] = true;
        }
        if (replaced) {
            result += block.substr(copied, field.begin - copied);
            result += line;
            copied = field.end;
        }
        return true;
    });
    // The blank line is the end of the block; what is missing goes before it.
    const std::size_t blank = block.size() - std::min(block.size(), newline.size());
    result += block.substr(copied, blank - copied);
    for (std::size_t i = 0; i < edits.size(); ++i) {
        if (!done[i] && !edits[i].remove) {
            result += WithNewlines(edits[i].line, newline) + newline;
        }
    }
    result += block.substr(blank);
    return result;
}

std::string FormatParameter(std::string_view name, std::string_view value) {
    constexpr std::size_t kLongestLine = 76;
    const std::string ascii = AsciiForm(value);
    std::string text = ";\n\t" + std::string(name) + "=" + Quoted(ascii);
    if (IsPlainAscii(value)) return text;

    const std::size_t room = kLongestLine - name.size() - 20;
    const std::vector<std::string> pieces = ExtendedPieces(value, room);
    if (pieces.size() == 1) {
        return text + ";\n\t" + std::string(name) + "*=utf-8''" + pieces.front();
    }
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        text += ";\n\t" + std::string(name) + "*" + std::to_string(i) + "*=";
        text += (i == 0 ? "utf-8''" : "") + pieces[i];
    }
    return text;
}

std::string WithoutParameter(std::string_view value, std::string_view name) {
    std::string result;
    std::size_t begin = 0;
    bool quoted = false;
    int comment = 0;
    for (std::size_t at = 0; at <= value.size(); ++at) {
        const char c = at < value.size() ? value[at] : ';';
        if (at + 1 < value.size() && c == '\\' && (quoted || comment > 0)) {
            ++at;
        } else if (at < value.size() && c == '"' && comment == 0) {
            quoted = !quoted;
        } else if (at < value.size() && !quoted && (c == '(' || (c == ')' && comment > 0))) {
            comment += c == '(' ? 1 : -1;
        } else if (c == ';' && ((!quoted && comment == 0) || at >= value.size())) {
            const std::string_view piece = value.substr(begin, std::min(at, value.size()) - begin);
            // The first piece is the word itself, not a parameter.
            if (begin == 0 || !IsParameterNamed(piece, name)) {
                if (begin > 0) result += ';';
                result += piece;
            }
            begin = at + 1;
        }
    }
    return result;
}

}  // namespace trevix::mime
