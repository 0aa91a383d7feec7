// The words that replies are made of: atoms, numbers, strings, lists (RFC 3501, section 9).
//
// Each reader starts at the word's first byte and ends behind its last one. What goes wrong is the
// scanner's failure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/imap/scanner.h"
#include "platform/imap/uid_set.h"

namespace trevix::imap {

// Any value, for what is of no fixed form.
struct Value {
    enum class Kind { kNil, kAtom, kString, kList };
    Kind kind = Kind::kNil;
    std::string text;
    std::vector<Value> items;
};

// How many lists may be open inside each other. What is deeper is taken and left out.
inline constexpr std::size_t kMostOpenLists = 100;

// Ranges of one set that are kept, and numbers of one search.
inline constexpr std::size_t kMostRanges = std::size_t{1} << 20;
inline constexpr std::size_t kMostNumbers = std::size_t{4} << 20;

// Up to a blank, parenthesis, quote or line end. Longer than `most_bytes` is malformed.
std::string ReadAtom(Scanner& scanner, std::size_t most_bytes = 1024);

std::uint64_t ReadNumber(Scanner& scanner);
std::uint32_t ReadNumber32(Scanner& scanner);

// The length in "{n}", "{n+}" or "~{n}" with its line end; more than `most_bytes` is malformed.
std::uint64_t ReadLiteralLength(Scanner& scanner, std::uint64_t most_bytes);

bool StartsLiteral(Scanner& scanner);

// Quoted, literal, or an atom that stands for a string; nothing for NIL. A string that must be
// known whole: what is longer than the reply's limit is malformed.
std::optional<std::string> ReadNstring(Scanner& scanner);
std::string ReadAstring(Scanner& scanner);  // an atom "NIL" is a name here

// "(a b c)" of atoms: flags, attributes. Or an atom alone, or NIL: no words.
std::vector<std::string> ReadWords(Scanner& scanner);

// A value and everything in it. `complete` becomes false when some of it was too deep or too large
// to keep; it was taken all the same. Content in it is at most `most_content_bytes` long.
Value ReadValue(Scanner& scanner, std::uint64_t most_content_bytes, bool& complete);
void SkipValue(Scanner& scanner, std::uint64_t most_content_bytes);

// The UIDs of "1:5,9". `complete` becomes false when there were too many ranges.
UidSet ReadUidSet(Scanner& scanner, bool& complete);

// The rest of the line as it is, with its end taken; what is beyond the limit is left out.
std::string ReadLine(Scanner& scanner, std::size_t most_bytes = std::size_t{64} * 1024);

// The rest of a reply that is not understood, with all its strings and its line end.
void SkipReply(Scanner& scanner, std::uint64_t most_content_bytes);

// The line end; what stands before it is skipped, for a later standard may have put it there.
void EndReply(Scanner& scanner, std::uint64_t most_content_bytes);

}  // namespace trevix::imap
