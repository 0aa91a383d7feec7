#include "platform/imap/retirement.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/digest.h"

namespace trevix::imap {
namespace {

// Others may change flags again and again while we look.
constexpr int kLongestChase = 6;

Flags Difference(const Flags& these, const Flags& without) {
    Flags result;
    std::set_difference(these.begin(), these.end(), without.begin(), without.end(),
                        std::back_inserter(result));
    return result;
}

Flags WithoutDeleted(Flags flags) {
    std::erase(flags, kDeleted);
    return flags;
}

bool Holds(const Flags& flags, const Flags& all) {
    return std::includes(flags.begin(), flags.end(), all.begin(), all.end());
}

// A change of flags, in the mailbox of that UIDVALIDITY only. Not repeated here: whether it was
// done shows when the message is looked at again.
Result<UidSet> ChangeFlags(Link& link, const JournalRecord& record, std::uint32_t uid,
                           FlagChange change, const Flags& flags,
                           std::optional<std::uint64_t> unchanged_since) {
    const Result<Client*> client = link.Ready();
    if (!client.ok()) return client.error();
    const auto opened = link.Open(*client.value(), record.mailbox, SelectMode::kReadWrite);
    if (!opened.ok()) return opened.error();
    if (opened.value().uid_validity != record.uid_validity) return MessagingError(kObjectDeleted);
    return client.value()->Store(UidSet::Of(uid), change, flags, unchanged_since);
}

Status ExpungeOne(Link& link, const std::string& mailbox, std::uint32_t uid_validity,
                  std::uint32_t uid) {
    const Result<Client*> client = link.Ready();
    if (!client.ok()) return client.error();
    const auto opened = link.Open(*client.value(), mailbox, SelectMode::kReadWrite);
    if (!opened.ok()) return opened.error();
    if (opened.value().uid_validity != uid_validity) return MessagingError(kObjectDeleted);
    return client.value()->Expunge(UidSet::Of(uid));
}

// The messages of which the server has told since it was asked last that they are gone. Servers
// without QRESYNC tell numbers that may have changed their meaning.
UidSet ToldGone(Link& link) {
    const Result<Client*> client = link.Ready();
    return client.ok() ? client.value()->TakeNews().vanished : UidSet();
}

// Whether a failure may be the connection's, so that another look is worth it.
bool MayPass(const Error& error) {
    return error.kind == ErrorKind::kIo || error.kind == ErrorKind::kBusy;
}

// One replacement's end, step by step.
class Retirement {
 public:
    Retirement(Link& link, const JournalRecord& record, std::uint32_t new_uid, MarkedOld treat,
               bool& marked, const StepHook& hook)
        : link_(link),
          record_(record),
          new_uid_(new_uid),
          treat_(treat),
          marked_(marked),
          hook_(hook) {}

    Result<MessageState> Run() {
        Error last = MessagingError(kStoreBusy, "the message keeps changing");
        for (int turn = 0; turn < kLongestChase; ++turn) {
            const auto seen =
                LookAt(link_, record_.mailbox, record_.uid_validity, {record_.old_uid, new_uid_});
            if (!seen.ok()) return seen.error();
            const Result<bool> done =
                Turn(seen.value().at(record_.old_uid), seen.value().at(new_uid_));
            if (done.ok() && done.value()) return seen.value().at(new_uid_);
            if (done.ok()) continue;
            if (!MayPass(done.error())) return done.error();
            last = done.error();
        }
        return last;
    }

 private:
    // True when the old message is gone by our hand.
    Result<bool> Turn(const MessageState& old_now, const MessageState& new_now) {
        if (!old_now.there) {
            // Whoever it was that removed it after our mark, it was meant to go.
            if (marked_ && new_now.there) return true;
            return MessagingError(kObjectDeleted);
        }
        // Never may the old one go while the new one is not there to stay.
        if (!new_now.there || new_now.is_deleted()) return MessagingError(kObjectDeleted);
        if (old_now.is_deleted() && !marked_ && treat_ == MarkedOld::kLeave) {
            return MessagingError(kObjectChanged);
        }
        Result<bool> carried = Carry(WithoutDeleted(old_now.flags), new_now.flags);
        if (!carried.ok() || !carried.value()) return carried;
        return Remove(old_now);
    }

    // True when the new message has the flags; false when they were just given to it.
    Result<bool> Carry(const Flags& old_flags, const Flags& new_flags) {
        const Flags missing = Difference(old_flags, new_flags);
        Flags extra;
        for (const std::string& lost : Difference(record_.old_flags, old_flags)) {
            if (HasFlag(new_flags, lost)) extra.push_back(lost);
        }
        if (missing.empty() && extra.empty()) return true;
        if (!missing.empty() && Holds(given_, missing)) {
            return MessagingError(kNoAccess, "the server does not keep the message's flags");
        }
        if (!missing.empty()) {
            const auto added = ChangeFlags(link_, record_, new_uid_, FlagChange::kAdd, missing, {});
            if (!added.ok()) return added.error();
            given_ = missing;
        }
        if (!extra.empty()) {
            const auto removed =
                ChangeFlags(link_, record_, new_uid_, FlagChange::kRemove, extra, {});
            if (!removed.ok()) return removed.error();
        }
        return false;
    }

    Result<bool> Remove(const MessageState& old_now) {
        if (!old_now.is_deleted()) {
            // From here on the mark may be there, whatever the answer.
            marked_ = true;
            const auto skipped = ChangeFlags(link_, record_, record_.old_uid, FlagChange::kAdd,
                                             {kDeleted}, old_now.modseq);
            if (!skipped.ok()) return skipped.error();
            if (skipped.value().Contains(record_.old_uid)) {
                // Somebody was faster; nothing was marked.
                marked_ = false;
                return false;
            }
            // Never may both go.
            if (ToldGone(link_).Contains(new_uid_)) return MessagingError(kObjectDeleted);
            At(Step::kMarked);
        }
        marked_ = true;
        TREVIX_RETURN_IF_ERROR(
            ExpungeOne(link_, record_.mailbox, record_.uid_validity, record_.old_uid));
        At(Step::kExpunged);
        // Where the server does not tell, the next look shows that it is gone.
        return ToldGone(link_).Contains(record_.old_uid);
    }

    void At(Step step) const {
        if (hook_) hook_(step);
    }

    Link& link_;
    const JournalRecord& record_;
    std::uint32_t new_uid_;
    MarkedOld treat_;
    bool& marked_;
    const StepHook& hook_;
    Flags given_;  // to the new message, by us
};

}  // namespace

Result<MessageStates> LookAt(Link& link, const std::string& mailbox, std::uint32_t uid_validity,
                             const std::vector<std::uint32_t>& uids) {
    MessageStates states;
    const Status looked = link.Read([&](Client& client) -> Status {
        states.clear();
        for (const std::uint32_t uid : uids)
            states[uid] = {};
        const auto opened = link.OpenFresh(client, mailbox, SelectMode::kReadOnly);
        if (!opened.ok()) return opened.error();
        if (opened.value().uid_validity != uid_validity) return MessagingError(kObjectDeleted);
        FetchRequest request = EntryRequest(UidSet::FromList(uids));
        request.flags = true;
        return client.Fetch(request, [&](FetchedMessage&& message) -> Status {
            const auto state = states.find(message.uid);
            // What comes without being asked for lacks something.
            if (state == states.end() || !message.flags) return {};
            const bool whole = message.internal_date.has_value();
            if (!whole && !state->second.there) return {};
            state->second.there = true;
            state->second.flags = ComparableFlags(*message.flags);
            if (message.modseq) state->second.modseq = message.modseq;
            if (whole) state->second.internal_date = message.internal_date;
            if (auto entry = EntryOf(uid_validity, message)) state->second.entry = entry;
            return {};
        });
    });
    if (!looked.ok()) return looked.error();
    return states;
}

Result<std::uint32_t> FindNew(Link& link, const JournalRecord& record) {
    std::vector<std::uint32_t> candidates;
    const Status searched = link.Read([&](Client& client) -> Status {
        candidates.clear();
        const auto opened = link.OpenFresh(client, record.mailbox, SelectMode::kReadOnly);
        if (!opened.ok()) return opened.error();
        if (opened.value().uid_validity != record.uid_validity) {
            return MessagingError(kObjectDeleted);
        }
        FetchRequest request;
        request.uids = UidSet::From(record.least_new_uid);
        request.size = true;
        return client.Fetch(request, [&](FetchedMessage&& message) -> Status {
            // "n:*" always takes in the last message, also one below n.
            if (message.size_bytes == record.size_bytes && message.uid >= record.least_new_uid) {
                candidates.push_back(message.uid);
            }
            return {};
        });
    });
    if (!searched.ok()) return searched.error();
    std::sort(candidates.begin(), candidates.end());
    for (const std::uint32_t uid : candidates) {
        const Result<Proof> proof = FetchBack(link, record, uid);
        if (proof.ok() && proof.value().holds) return uid;
        if (!proof.ok() && proof.error().kind != ErrorKind::kGone) return proof.error();
    }
    return std::uint32_t{0};
}

Result<Proof> FetchBack(Link& link, const JournalRecord& record, std::uint32_t uid) {
    Proof proof;
    std::optional<Blob> content;
    const Status fetched = link.Read([&](Client& client) -> Status {
        content.reset();
        const auto opened = link.Open(client, record.mailbox, SelectMode::kReadOnly);
        if (!opened.ok()) return opened.error();
        if (opened.value().uid_validity != record.uid_validity) {
            return MessagingError(kObjectDeleted);
        }
        FetchRequest request;
        request.uids = UidSet::Of(uid);
        request.internal_date = true;
        request.sections.push_back({"", {}});
        return client.Fetch(request, [&](FetchedMessage&& message) -> Status {
            const FetchedSection* whole = message.Find("");
            if (whole != nullptr && whole->content) content = whole->content;
            if (message.internal_date) proof.internal_date = message.internal_date;
            return {};
        });
    });
    if (!fetched.ok()) return fetched.error();
    if (!content) return MessagingError(kObjectDeleted);
    if (content->size_bytes() != record.size_bytes) return proof;
    const Result<std::string> digest = DigestOf(*content);
    if (!digest.ok()) return digest.error();
    proof.holds = digest.value() == record.digest;
    return proof;
}

Result<MessageState> RetireOld(Link& link, const JournalRecord& record, std::uint32_t new_uid,
                               MarkedOld treat, bool& marked, const StepHook& hook) {
    return Retirement(link, record, new_uid, treat, marked, hook).Run();
}

Status Unmark(Link& link, const JournalRecord& record) {
    for (int turn = 0; turn < kLongestChase; ++turn) {
        const auto seen = LookAt(link, record.mailbox, record.uid_validity, {record.old_uid});
        if (!seen.ok()) return seen.error();
        const MessageState& now = seen.value().at(record.old_uid);
        if (!now.there || !now.is_deleted()) return {};
        const auto changed = ChangeFlags(link, record, record.old_uid, FlagChange::kRemove,
                                         {kDeleted}, std::nullopt);
        if (!changed.ok() && !MayPass(changed.error())) return changed.error();
    }
    return MessagingError(kStoreBusy, "the message keeps changing");
}

Status RemoveMessage(Link& link, const std::string& mailbox, std::uint32_t uid_validity,
                     std::uint32_t uid) {
    JournalRecord about;
    about.mailbox = mailbox;
    about.uid_validity = uid_validity;
    for (int turn = 0; turn < kLongestChase; ++turn) {
        const auto seen = LookAt(link, mailbox, uid_validity, {uid});
        if (!seen.ok()) return seen.error();
        const MessageState& now = seen.value().at(uid);
        if (!now.there) return {};
        if (!now.is_deleted()) {
            const auto marked =
                ChangeFlags(link, about, uid, FlagChange::kAdd, {kDeleted}, std::nullopt);
            if (!marked.ok() && !MayPass(marked.error())) return marked.error();
            if (!marked.ok()) continue;
        }
        const Status expunged = ExpungeOne(link, mailbox, uid_validity, uid);
        if (expunged.ok() && ToldGone(link).Contains(uid)) return {};
        if (!expunged.ok() && !MayPass(expunged.error())) return expunged.error();
    }
    return MessagingError(kStoreBusy, "a message cannot be removed");
}

}  // namespace trevix::imap
