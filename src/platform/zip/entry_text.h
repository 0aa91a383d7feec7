// Names and dates of entries as text, and names for entries that are to be written.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>

namespace trevix::zip_engine {

bool IsValidUtf8(std::string_view text);

// A stored name as UTF-8. Names that are flagged as UTF-8, or are UTF-8 without saying so, stay as
// they are; all others are in code page 437, which is what archives were written in before.
std::string NameToUtf8(std::string_view stored);

// Text that every reader can take for UTF-8: each byte that belongs to no character becomes "_".
std::string MakeValidUtf8(std::string_view text);

// The form of a name in which two names are equal when a file system that disregards case takes
// them for one file.
std::string FoldCase(std::string_view utf8);

// `wanted`, or "name (2).ext", "name (3).ext" ... when `taken` (folded names) holds it already.
// Where the taken numbers have gaps it may be a later one than the first that is free.
std::string FreeName(const std::string& wanted, const std::unordered_set<std::string>& taken);

// "MM/DD/YYYY HH:MM:SS", empty when the entry has no date.
std::string DosDateText(std::uint16_t dos_date, std::uint16_t dos_time);

}  // namespace trevix::zip_engine
