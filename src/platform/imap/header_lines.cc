#include "platform/imap/header_lines.h"

#include <algorithm>

namespace trevix::imap {
namespace {

std::size_t LineEnd(std::string_view text, std::size_t from) {
    const std::size_t newline = text.find('\n', from);
    return newline == std::string_view::npos ? text.size() : newline + 1;
}

bool IsNamed(std::string_view name, std::string_view lower) {
    return std::equal(name.begin(), name.end(), lower.begin(), lower.end(), [](char a, char b) {
        return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
    });
}

HeaderLines FieldOf(std::string_view whole) {
    HeaderLines field;
    field.whole = whole;
    const std::size_t colon = whole.find(':');
    if (colon == std::string_view::npos || whole.substr(0, colon).find('\n') < colon) return field;
    field.name = whole.substr(0, colon);
    while (field.name.ends_with(' ') || field.name.ends_with('\t'))
        field.name.remove_suffix(1);
    field.value = whole.substr(colon + 1);
    return field;
}

}  // namespace

std::vector<HeaderLines> FieldsIn(std::string_view header) {
    std::vector<HeaderLines> fields;
    std::size_t at = 0;
    while (at < header.size() && header[at] != '\n' && !header.substr(at).starts_with("\r\n")) {
        std::size_t end = LineEnd(header, at);
        while (end < header.size() && (header[end] == ' ' || header[end] == '\t'))
            end = LineEnd(header, end);
        fields.push_back(FieldOf(header.substr(at, end - at)));
        at = end;
    }
    return fields;
}

std::vector<HeaderLines> FieldsNamed(std::string_view header, std::string_view name) {
    std::vector<HeaderLines> fields = FieldsIn(header);
    std::erase_if(fields, [name](const HeaderLines& one) { return !IsNamed(one.name, name); });
    return fields;
}

}  // namespace trevix::imap
