// Numbers, times and foreign text as the command line shows them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace trevix::cli {

// "1,023 bytes", "1.5 KB", "12 MB": three digits, units of 1024.
std::string HumanBytes(std::int64_t bytes);

// "0.4 s", "12 s", "3 min 5 s", "2 h 10 min".
std::string HumanDuration(std::int64_t milliseconds);

// How much smaller `after` is than `before`, in whole percent towards zero; 0 when nothing was.
std::int64_t SavedPercent(std::int64_t before, std::int64_t after);

// Names come from mail, so they may hold anything: control characters and marks of direction, which
// a terminal would obey, and broken UTF-8 become "?".
std::string Printable(std::string_view text);

// What fits into `columns` columns of a terminal, with "…" at the end when that is not all.
std::string Shortened(std::string_view text, std::size_t columns);

// `text` with blanks behind it, or in front of it, up to `columns` columns.
std::string PadRight(std::string_view text, std::size_t columns);
std::string PadLeft(std::string_view text, std::size_t columns);

// An error's text for people: without the code in brackets that ends those of message stores.
std::string PlainText(const std::string& description);

}  // namespace trevix::cli
