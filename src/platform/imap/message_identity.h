// Which message of which mailbox, and in which state it was listed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/imap/fetch.h"
#include "platform/mail_store.h"

namespace trevix::imap {

struct MessageIdentity {
    std::uint32_t uid_validity = 0;
    std::uint32_t uid = 0;

    // Of the message's flags; nothing where the mailbox keeps no modification numbers. Then flags
    // are no part of what is compared with the listing: they are read when a replacement is staged,
    // and compared from there on.
    std::optional<std::uint64_t> modseq;
};

// The key of a listing's entry is "uidvalidity/uid": a server never gives a UID to other bytes.
// The locator is the same with the modification number: it changes with the flags.
std::string KeyOf(const MessageIdentity& identity);
std::string EncodeLocator(const MessageIdentity& identity);
std::optional<MessageIdentity> DecodeLocator(std::string_view locator);

// What is asked of a message for its entry.
FetchRequest EntryRequest(UidSet uids);

// The entry of a message from the answer to that; nothing when the answer lacks what it must have.
std::optional<MailEntry> EntryOf(std::uint32_t uid_validity, const FetchedMessage& message);

// Flags as they are compared and given to a new message: without "\Recent", which is nobody's to
// set; system flags in one spelling; sorted.
using Flags = std::vector<std::string>;
Flags ComparableFlags(const std::vector<std::string>& flags);

bool HasFlag(const Flags& flags, std::string_view flag);

inline constexpr char kDeleted[] = "\\Deleted";

}  // namespace trevix::imap
