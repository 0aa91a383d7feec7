// Reads replies.
#pragma once

#include <string>
#include <string_view>

#include "platform/imap/reply.h"
#include "platform/imap/scanner.h"
#include "platform/imap/spool.h"
#include "platform/result.h"

namespace trevix::imap {

// What content is wanted. A server cannot make anybody keep what was not asked for.
class ContentRules {
 public:
    virtual ~ContentRules() = default;
    virtual bool Wants(const FetchedSection& section) const = 0;
    virtual std::uint64_t most_content_bytes() const = 0;
};

// Content up to this size is kept in memory, as far as the reply's limit allows; larger goes to the
// spool.
inline constexpr std::uint64_t kSmallContent = std::uint64_t{64} * 1024;

// One whole reply with its line end. Its limits are the scanner's; a failure ends the scanner.
Result<Reply> ReadReply(Scanner& scanner, Spool& spool, const ContentRules& rules);

// The words behind OK, NO, BAD, BYE, PREAUTH: "[CODE arguments] text".
Condition ParseCondition(Condition::Kind kind, std::string_view line);

// "HEADER.FIELDS (SUBJECT FROM)" as one spelling of a section: upper case, no quotes, single
// blanks.
std::string NormalSection(std::string_view section);

// NormalSection without the list of fields: what a reply is recognised by.
std::string_view SectionWithoutFields(std::string_view normal_section);

}  // namespace trevix::imap
