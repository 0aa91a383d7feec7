// The second half of a replacement, for the process that began it and for the recovery of a dead
// one's: the new message is proved, and the old one goes. replacement.h has the whole order.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/imap/journal.h"
#include "platform/imap/link.h"
#include "platform/imap/message_identity.h"
#include "platform/mail_store.h"

namespace trevix::imap {

// Where tests may stop the world, or do what other programs do.
enum class Step { kStaged, kCompared, kRecorded, kAppended, kProved, kMarked, kExpunged };
using StepHook = std::function<void(Step)>;

// How a message of a mailbox is at this moment.
struct MessageState {
    bool there = false;
    Flags flags;
    std::optional<std::uint64_t> modseq;
    std::optional<DateTime> internal_date;
    std::optional<MailEntry> entry;

    bool is_deleted() const { return HasFlag(flags, kDeleted); }
};
using MessageStates = std::map<std::uint32_t, MessageState>;

// Messages of a mailbox as the server knows them now; one that is not there has an empty state.
// kGone when the mailbox is not the one of that UIDVALIDITY.
Result<MessageStates> LookAt(Link& link, const std::string& mailbox, std::uint32_t uid_validity,
                             const std::vector<std::uint32_t>& uids);

// The UID of the message with the record's content; 0 when there is none.
Result<std::uint32_t> FindNew(Link& link, const JournalRecord& record);

// What a message was found to be when it was fetched back.
struct Proof {
    bool holds = false;  // the record's content, byte for byte
    std::optional<DateTime> internal_date;
};

// kGone when the message is not there.
Result<Proof> FetchBack(Link& link, const JournalRecord& record, std::uint32_t uid);

// What to do about an old message that is marked as deleted. While its replacement runs, somebody
// else has marked it; in recovery it may as well have been the dead process, and its content is
// kept in the new message whoever it was.
enum class MarkedOld { kLeave, kRemove };

// Carries over to the new message what changed of the old one's flags since the record, and removes
// the old one. kGone: the old message was gone before anything was done to it, or the new one is;
// kChanged: it was marked as deleted by somebody else. On a failure the old message stands, perhaps
// marked: `marked` tells whether we have (or may have) done that. The new message as it is then.
Result<MessageState> RetireOld(Link& link, const JournalRecord& record, std::uint32_t new_uid,
                               MarkedOld treat, bool& marked, const StepHook& hook);

// Takes our mark off a message. Ok means that it has none now, or that the message is gone.
Status Unmark(Link& link, const JournalRecord& record);

// Removes one message, this UID only. Ok when it is gone.
Status RemoveMessage(Link& link, const std::string& mailbox, std::uint32_t uid_validity,
                     std::uint32_t uid);

}  // namespace trevix::imap
