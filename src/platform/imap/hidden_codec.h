// A hidden message as a mail, and back.
//
// The mail is one that a person may come across: its header says what it is, its first part who
// keeps it, and each attachment is one. What a program needs is exact: in "X-Trevix-" fields and in
// the second part, one property a line:
//
//     type set name value
//
// Set, name and texts are escaped words (text_escape.h), numbers hexadecimal: a double or a date is
// the bits of its IEEE 754 number. The words of a list of texts stand behind each other.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/mail_store.h"
#include "platform/result.h"

namespace trevix::imap {

// What a hidden message's header tells.
struct HiddenHead {
    HiddenMail mail;    // without properties and attachments
    std::string token;  // of this one writing
};

// The fields that ReadHiddenHead() needs.
extern const char kHiddenHeadSection[];

// The whole mail, CRLF. `token`: 32 hexadecimal digits, new with every writing. kIo when content
// cannot be read, kUnsupported when it is too large for a hidden message.
Result<std::string> WriteHidden(const HiddenMail& mail, const std::string& token);

// Nothing when it is no hidden message's.
std::optional<HiddenHead> ReadHiddenHead(std::string_view header);

// Nothing when it is no hidden message, or damaged.
std::optional<HiddenMail> ReadHidden(std::string_view mail);

// A property's value as its type and words, and back.
Result<std::string> WriteValue(const Variant& value);
std::optional<Variant> ReadValue(std::string_view text);

}  // namespace trevix::imap
