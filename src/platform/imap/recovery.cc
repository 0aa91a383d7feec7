#include "platform/imap/recovery.h"

#include <utility>

#include "platform/errors.h"
#include "platform/imap/journal.h"
#include "platform/imap/mailbox_name.h"
#include "platform/imap/retirement.h"

namespace trevix::imap {
namespace {

// A server may show an append only some time after the connection that brought it was cut.
constexpr std::int64_t kPatienceNs = std::int64_t{10} * 60 * 1'000'000'000;

enum class Outcome { kSettled, kLater };

Outcome OutcomeOf(const Error& error) {
    switch (error.kind) {
        // The mailbox or one of the messages is not there any more: nothing is doubled.
        case ErrorKind::kGone:
        case ErrorKind::kNotFound: return Outcome::kSettled;
        default: return Outcome::kLater;
    }
}

class Replay {
 public:
    Replay(Link& link, const JournalRecord& record, Clock& clock)
        : link_(link), record_(record), clock_(clock) {}

    Outcome Run() {
        const Result<std::uint32_t> found =
            record_.new_uid != 0 ? Result<std::uint32_t>(record_.new_uid) : FindNew(link_, record_);
        if (!found.ok()) return Explain(found.error());
        if (found.value() == 0) return Missing();
        const auto seen =
            LookAt(link_, record_.mailbox, record_.uid_validity, {record_.old_uid, found.value()});
        if (!seen.ok()) return Explain(seen.error());
        const MessageState& old_now = seen.value().at(record_.old_uid);
        const MessageState& new_now = seen.value().at(found.value());
        // One of them is the only one; whoever removed the other, there is nothing to do.
        if (!old_now.there || !new_now.there) return Outcome::kSettled;
        return Decide(found.value(), old_now, new_now);
    }

    const std::string& note() const { return note_; }

 private:
    Outcome Missing() const {
        const bool young = clock_.UnixNanoseconds() - record_.begun_ns < kPatienceNs;
        return young ? Outcome::kLater : Outcome::kSettled;
    }

    Outcome Decide(std::uint32_t new_uid, const MessageState& old_now,
                   const MessageState& new_now) {
        const Result<Proof> proof = FetchBack(link_, record_, new_uid);
        if (!proof.ok()) return OutcomeOf(proof.error());
        const bool received_kept =
            old_now.internal_date && proof.value().internal_date &&
            old_now.internal_date->unix_seconds == proof.value().internal_date->unix_seconds;
        // Not what was to be written, or on its way out: the old message is the one that stays.
        if (!proof.value().holds || !received_kept || new_now.is_deleted()) {
            return RemoveNew(new_uid);
        }
        bool marked = false;
        const auto retired = RetireOld(link_, record_, new_uid, MarkedOld::kRemove, marked, {});
        return retired.ok() ? Outcome::kSettled : OutcomeOf(retired.error());
    }

    // The dead process may have marked the old one before it came to this.
    Outcome RemoveNew(std::uint32_t new_uid) {
        const Status unmarked = Unmark(link_, record_);
        if (!unmarked.ok()) return OutcomeOf(unmarked.error());
        const auto seen = LookAt(link_, record_.mailbox, record_.uid_validity, {record_.old_uid});
        if (!seen.ok()) return OutcomeOf(seen.error());
        if (!seen.value().at(record_.old_uid).there) return Outcome::kSettled;
        const Status removed = RemoveMessage(link_, record_.mailbox, record_.uid_validity, new_uid);
        return removed.ok() ? Outcome::kSettled : OutcomeOf(removed.error());
    }

    Outcome Explain(const Error& error) {
        if (error.kind == ErrorKind::kGone) {
            note_ = "The mailbox " + DecodeMailboxName(record_.mailbox) +
                    " has been made anew since a replacement in it was interrupted; a message may "
                    "be there twice, and nothing was touched.";
        }
        return OutcomeOf(error);
    }

    Link& link_;
    const JournalRecord& record_;
    Clock& clock_;
    std::string note_;
};

}  // namespace

std::vector<std::string> Recover(Link& link, const std::string& journal_directory,
                                 const std::string& store_address, Clock& clock) {
    std::vector<std::string> notes;
    for (LeftJournal& journal : LeftJournals(journal_directory, store_address)) {
        std::vector<JournalRecord> left;
        for (const JournalRecord& record : journal.open) {
            Replay replay(link, record, clock);
            if (replay.Run() == Outcome::kLater) left.push_back(record);
            if (!replay.note().empty()) notes.push_back(replay.note());
        }
        Settle(journal, left);
    }
    return notes;
}

}  // namespace trevix::imap
