// Replacing one message: a new message of the same mailbox takes the place of the old one.
//
// IMAP cannot change a message, and cannot put one in another's place. So the new one is appended
// and proved, and then the old one is removed. For the moment between the two, other programs see
// both, each whole. The order of the steps, and what a death or a cut connection at each leaves; O
// is the old message, N the new one.
//
//   1  Stage: N is written to a file of this machine without a name. The mailbox must be one in
//      which a single message can be removed.
//         Death: nothing has happened.
//   2  Commit: O must be as listed (flags included, where the server counts modifications), and not
//      marked as deleted. The record (mailbox, UIDVALIDITY, O's UID and flags, the
//      least UID that N can have, N's size and digest) is written to the journal and synced.
//         Death: recovery looks for N, does not find it, and is done.
//   3  N is appended with O's flags, keywords and received time.
//         Cut at any byte of it: on a new connection N is looked for by its size and digest among
//         the messages from the least UID on. An append is never repeated.
//   4  N is fetched back and compared: every byte, flags, received time. If it differs, it is
//      removed again, which its UID and the record prove to be ours.
//   5  O's flags are read again. What changed since is carried over to N. O that somebody has
//      removed or marked as deleted meanwhile means that N is removed again: kGone, kChanged.
//   6  O is marked as deleted, on the condition that its flags are still those of step 5 (where the
//      server can do that). If the server has told by now that N is gone, the mark is taken off
//      again: kGone. Else O is expunged: this one UID, never anything else.
//         Death between 3 and 6: recovery finds N by UID or digest, and goes on from step 4.
//   7  The record is closed.
//
// REPLACE (RFC 8508) would do steps 3 to 6 at once, and is not used: with it the old message goes
// before the new one can be proved, and a change of flags between step 2 and the command is lost
// without a trace.
//
// Recovery on a record of any age removes only what the record proves: O (by UIDVALIDITY and UID)
// when N is there with every byte, or N when O is there. When UIDVALIDITY has changed, nothing is
// touched.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <utility>

#include "platform/clock.h"
#include "platform/imap/journal.h"
#include "platform/imap/link.h"
#include "platform/imap/message_identity.h"
#include "platform/imap/retirement.h"
#include "platform/imap/spool.h"
#include "platform/mail_store.h"

namespace trevix::imap {

// What the replacements of a store share.
struct ReplacementContext {
    explicit ReplacementContext(std::string spool_directory) : spool(std::move(spool_directory)) {}

    std::shared_ptr<Link> link;
    std::string store_address;
    std::string journal_directory;
    Spool spool;  // for the new messages
    Clock* clock = nullptr;
    std::shared_ptr<Journal> journal;  // made by the first replacement
    StepHook hook;

    // Mailboxes in which we have changed something since their status was asked, and those whose
    // listing has proved wrong.
    std::set<std::string> written;
    std::set<std::string> distrusted;

    void At(Step step) const {
        if (hook) hook(step);
    }
};

// Writes the replacement for a message as listed. kUnsupported (80040102) where the server cannot
// remove a single message, kDenied where the mailbox is read-only; a Commit() is kDenied when the
// message is marked as deleted. In either case nothing is modified.
Result<std::unique_ptr<StagedMail>> StageReplacement(
    const std::shared_ptr<ReplacementContext>& context, const std::string& mailbox,
    const MailEntry& entry, const Blob& content);

}  // namespace trevix::imap
