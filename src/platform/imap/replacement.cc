#include "platform/imap/replacement.h"

#include <utility>

#include "platform/errors.h"
#include "platform/imap/digest.h"
#include "platform/imap/retirement.h"

namespace trevix::imap {
namespace {

Error Gone() {
    return MessagingError(kObjectDeleted);
}
Error Changed() {
    return MessagingError(kObjectChanged);
}

struct Spooled {
    Blob content;
    std::string digest;
};

Result<Spooled> SpoolContent(Spool& spool, const Blob& content) {
    Digest digest;
    TREVIX_RETURN_IF_ERROR(spool.Begin());
    TREVIX_RETURN_IF_ERROR(
        content.ForEachPiece([&](const char* bytes, std::size_t count) -> Status {
            digest.Add(bytes, count);
            return spool.Write(bytes, count);
        }));
    Spooled spooled{spool.End(), digest.Finish()};
    if (spooled.digest.empty()) return MessagingError(kCallFailed, "no checksum can be made");
    return spooled;
}

// The message must be as it was listed, flags included where the listing tells of them.
Status AsListed(const MessageIdentity& listed, const MessageState& now) {
    if (!now.there) return Gone();
    if (listed.modseq && now.modseq && *listed.modseq != *now.modseq) return Changed();
    if (now.is_deleted()) {
        return MessagingError(kNoAccess, "the message is marked as deleted");
    }
    return {};
}

Status CanReplaceIn(Link& link, const std::string& mailbox, std::uint32_t uid_validity,
                    std::uint32_t& uid_next) {
    return link.Read([&](Client& client) -> Status {
        if (!client.Offers("UIDPLUS")) {
            return MessagingError(kNoSupport,
                                  client.host() +
                                      ": the server cannot remove a single message (UIDPLUS), so "
                                      "none is replaced");
        }
        const auto opened = link.Open(client, mailbox, SelectMode::kReadWrite);
        if (!opened.ok()) return opened.error();
        if (opened.value().read_only) {
            return MessagingError(kNoAccess, "the mailbox " + mailbox + " is read-only");
        }
        uid_next = opened.value().uid_next;
        return opened.value().uid_validity == uid_validity ? Status() : Gone();
    });
}

class StagedMessage final : public StagedMail {
 public:
    StagedMessage(std::shared_ptr<ReplacementContext> context, std::string mailbox,
                  MessageIdentity listed, Spooled spooled)
        : context_(std::move(context)), content_(std::move(spooled.content)), listed_(listed) {
        record_.mailbox = std::move(mailbox);
        record_.uid_validity = listed.uid_validity;
        record_.old_uid = listed.uid;
        record_.size_bytes = content_.size_bytes();
        record_.digest = std::move(spooled.digest);
    }

    // Whether a message of the mailbox can be replaced at all.
    Status Check();

    // What is on this machine: the server's own bytes are compared with these before the old
    // message goes.
    Blob content() const override { return content_; }

    Result<MailEntry> Commit() override;

 private:
    Link& link() const { return *context_->link; }
    Status Compare();
    Status Record();
    Result<std::uint32_t> Append();
    Status Prove(std::uint32_t uid);
    Result<MailEntry> PutInPlace(std::uint32_t uid);
    void Undo(std::uint32_t uid, const Error& why);

    std::shared_ptr<ReplacementContext> context_;
    Blob content_;
    MessageIdentity listed_;
    MessageState old_;
    JournalRecord record_;
    bool spent_ = false;
    bool marked_ = false;  // the old message as deleted, by us, or perhaps
};

Status StagedMessage::Check() {
    std::uint32_t uid_next = 0;
    TREVIX_RETURN_IF_ERROR(CanReplaceIn(link(), record_.mailbox, record_.uid_validity, uid_next));
    record_.least_new_uid = std::max(record_.old_uid + 1, uid_next);
    return {};
}

Status StagedMessage::Compare() {
    TREVIX_RETURN_IF_ERROR(Check());
    const auto seen = LookAt(link(), record_.mailbox, record_.uid_validity, {record_.old_uid});
    if (!seen.ok()) return seen.error();
    const MessageState& now = seen.value().at(record_.old_uid);
    const Status as_listed = AsListed(listed_, now);
    if (!as_listed.ok()) {
        context_->distrusted.insert(record_.mailbox);
        return as_listed.error();
    }
    if (!now.internal_date) return MessagingError(kCallFailed, "the received time is not known");
    old_ = now;
    record_.old_flags = now.flags;
    return {};
}

Status StagedMessage::Record() {
    if (context_->journal == nullptr) {
        auto journal = Journal::Create(context_->journal_directory, context_->store_address);
        if (!journal.ok()) return journal.error();
        context_->journal = std::move(journal).value();
    }
    record_.begun_ns = context_->clock->UnixNanoseconds();
    return context_->journal->Begin(record_);
}

Result<MailEntry> StagedMessage::Commit() {
    if (std::exchange(spent_, true)) {
        return MessagingError(kCallFailed, "the replacement was committed before;");
    }
    const auto hold = link().Hold();
    TREVIX_RETURN_IF_ERROR(Compare());
    context_->At(Step::kCompared);
    TREVIX_RETURN_IF_ERROR(Record());
    context_->At(Step::kRecorded);
    context_->written.insert(record_.mailbox);
    const Result<std::uint32_t> uid = Append();
    if (!uid.ok()) return uid.error();
    context_->At(Step::kAppended);
    context_->journal->Note(record_.number, uid.value());
    Result<MailEntry> placed = PutInPlace(uid.value());
    if (placed.ok()) {
        context_->journal->End(record_.number);
    } else {
        Undo(uid.value(), placed.error());
    }
    return placed;
}

// The new message's UID. When the answer was lost, the message is looked for; when it is not found,
// the record stays open for the next opening of the store, for a slow server may still be at it.
Result<std::uint32_t> StagedMessage::Append() {
    const Result<Client*> ready = link().Ready();
    if (!ready.ok()) {
        context_->journal->End(record_.number);
        return ready.error();
    }
    Client& client = *ready.value();
    const auto opened = link().Open(client, record_.mailbox, SelectMode::kReadWrite);
    AppendRequest request{record_.mailbox, old_.flags, old_.internal_date, content_};
    const Result<std::optional<AppendedMail>> appended =
        opened.ok() ? client.Append(request) : opened.error();
    if (!appended.ok() && (!opened.ok() || !client.fate_unknown())) {
        context_->journal->End(record_.number);
        return appended.error();
    }
    if (appended.ok() && appended.value() && appended.value()->uid != 0 &&
        appended.value()->uid_validity == record_.uid_validity) {
        return appended.value()->uid;
    }
    const Result<std::uint32_t> found = FindNew(link(), record_);
    if (!found.ok()) return found.error();
    if (found.value() != 0) return found.value();
    return appended.ok() ? MessagingError(kCallFailed, "the new message cannot be found")
                         : appended.error();
}

Status StagedMessage::Prove(std::uint32_t uid) {
    const Result<Proof> proof = FetchBack(link(), record_, uid);
    if (!proof.ok()) return proof.error();
    if (!proof.value().holds) {
        return MessagingError(kDiskError, "the server has altered the new message");
    }
    const auto& received = proof.value().internal_date;
    if (!received || received->unix_seconds != old_.internal_date->unix_seconds) {
        return MessagingError(kNoAccess, "the server does not keep the received time");
    }
    return {};
}

Result<MailEntry> StagedMessage::PutInPlace(std::uint32_t uid) {
    TREVIX_RETURN_IF_ERROR(Prove(uid));
    context_->At(Step::kProved);
    const Result<MessageState> placed =
        RetireOld(link(), record_, uid, MarkedOld::kLeave, marked_, context_->hook);
    if (!placed.ok()) return placed.error();
    if (placed.value().entry) return *placed.value().entry;
    // The replacement is done, however little the server tells of it.
    MailEntry entry;
    entry.key = KeyOf({record_.uid_validity, uid, {}});
    entry.locator = EncodeLocator({record_.uid_validity, uid, {}});
    entry.size_bytes = record_.size_bytes;
    return entry;
}

// Takes the new message away again. Where that cannot be done both stay, and so does the record:
// the next opening of the store finishes the replacement.
void StagedMessage::Undo(std::uint32_t uid, const Error& why) {
    // A mark of ours must be off before the only other copy goes.
    if (marked_ && !Unmark(link(), record_).ok()) return;
    const auto seen = LookAt(link(), record_.mailbox, record_.uid_validity, {record_.old_uid});
    if (!seen.ok()) return;
    const MessageState& old_now = seen.value().at(record_.old_uid);
    const bool stands = old_now.there && !old_now.is_deleted();
    // Somebody else has removed the message, or wants it removed, and that is to stay so.
    const bool unwanted = !marked_ && (!old_now.there || old_now.is_deleted()) &&
                          (why.kind == ErrorKind::kGone || why.kind == ErrorKind::kChanged);
    if (!stands && !unwanted) {
        // The old message went in spite of the failure: the new one is the only one.
        if (!old_now.there) context_->journal->End(record_.number);
        return;
    }
    if (RemoveMessage(link(), record_.mailbox, record_.uid_validity, uid).ok()) {
        context_->journal->End(record_.number);
    }
}

}  // namespace

Result<std::unique_ptr<StagedMail>> StageReplacement(
    const std::shared_ptr<ReplacementContext>& context, const std::string& mailbox,
    const MailEntry& entry, const Blob& content) {
    const auto identity = DecodeLocator(entry.locator);
    if (!identity) return MessagingError(kInvalidEntryId, entry.key);
    // First of all, and without holding the connection: the content may have to be fetched itself.
    Result<Spooled> spooled = SpoolContent(context->spool, content);
    if (!spooled.ok()) return spooled.error();
    const auto hold = context->link->Hold();
    auto staged =
        std::make_unique<StagedMessage>(context, mailbox, *identity, std::move(spooled).value());
    TREVIX_RETURN_IF_ERROR(staged->Check());
    context->At(Step::kStaged);
    return std::unique_ptr<StagedMail>(std::move(staged));
}

}  // namespace trevix::imap
