// Numbers as texts write them, independent of the locale.
#pragma once

#include <charconv>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>

namespace trevix::recordset {

// The number that the whole of `text` is, blanks around it aside.
inline std::optional<double> ParseNumberText(std::string_view text) {
    while (text.starts_with(' '))
        text.remove_prefix(1);
    while (text.ends_with(' '))
        text.remove_suffix(1);
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return std::nullopt;
    }
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (text.empty() || error != std::errc() || stop != end || !std::isfinite(number)) {
        return std::nullopt;
    }
    return number;
}

// The shortest text that is read back as the same number.
inline std::string NumberText(double number) {
    char text[32];
    const auto [end, error] = std::to_chars(text, text + sizeof text, number);
    return error == std::errc() ? std::string(text, end) : std::string();
}

}  // namespace trevix::recordset
