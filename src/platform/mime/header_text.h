// Reading header values: encoded words, addresses, dates, character sets. All of GMime
// that deals with text is behind this file. Results are valid UTF-8.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace trevix::mime {

// Must be called before anything else of GMime; safe to call any number of times.
void StartGmime();

// Unfolds and decodes encoded words; raw 8-bit bytes are UTF-8 or else Windows-1252.
std::string DecodeHeaderText(std::string_view raw);

struct Mailbox {
    std::string name;  // the address when there is no name
    std::string address;
};

// All mailboxes of an address list, groups taken apart.
std::vector<Mailbox> ParseAddresses(std::string_view raw);

// Nanoseconds since 1970 UTC of a mail date.
std::optional<std::int64_t> ParseMailDate(std::string_view raw);

// Text of a character set as UTF-8. An unknown set, or bytes that are not of it, are read as UTF-8
// and failing that as Windows-1252, so that any bytes give some text.
std::string ToUtf8(std::string_view bytes, const std::string& charset);

bool IsValidUtf8(std::string_view text);

}  // namespace trevix::mime
