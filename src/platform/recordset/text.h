// Text as record sets keep it: UTF-8 in memory, UTF-16LE in files.
//
// A file may hold unpaired surrogates. They are kept as three bytes each (the generalised form of
// UTF-8), so that what was read is written back unit for unit. Case is ASCII case throughout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace trevix::recordset {

bool IsAscii(std::string_view text);

// `text` in the form that the pool keeps: bytes that are no UTF-8 become U+FFFD, and two surrogates
// that form a pair become one character.
std::string NormalizedText(std::string_view text);

// UTF-16 units of a normalized text.
std::size_t Utf16Units(std::string_view text);

// Appends a normalized text as UTF-16LE.
void AppendUtf16(std::string_view text, std::string& target);

// Replaces `text` by the normalized form of `unit_count` UTF-16LE units.
void AssignFromUtf16(const unsigned char* units, std::size_t unit_count, std::string& text);

// Whether the units are those of `text`, which is ASCII then. False for any other text, also for
// one that the units stand for: it costs nothing but a conversion.
bool IsAsciiOfUtf16(std::string_view text, const unsigned char* units, std::size_t unit_count);

// Texts that are equal without regard to case have equal hashes.
std::uint32_t FoldedHash(std::string_view text);
bool FoldedEqual(std::string_view left, std::string_view right);
// Negative, 0 or positive, in the order of code points of the lower-case forms.
int FoldedCompare(std::string_view left, std::string_view right);

}  // namespace trevix::recordset
