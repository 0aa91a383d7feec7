#include "platform/imap/hidden_mailbox.h"

#include <algorithm>
#include <map>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/digest.h"
#include "platform/imap/folder_names.h"
#include "platform/imap/message_identity.h"

namespace trevix::imap {
namespace {

constexpr std::size_t kIdSize = 16;

std::optional<std::string> RandomId() {
    // Half of the digits' bytes would do; an ID is any 16 bytes.
    const std::string digits = RandomHex(kIdSize / 2);
    if (digits.size() != kIdSize) return std::nullopt;
    return digits;
}

}  // namespace

HiddenMailbox::HiddenMailbox(std::shared_ptr<Link> link, std::string name, Clock& clock)
    : link_(std::move(link)),
      name_(name.empty() ? kUsualHiddenMailbox : std::move(name)),
      clock_(clock) {}

std::vector<std::string> HiddenMailbox::NamesAmong(const std::vector<Mailbox>& mailboxes) const {
    return OwnMailboxNames(mailboxes, name_);
}

Status HiddenMailbox::Locate() {
    if (!mailbox_.empty()) return {};
    std::vector<Mailbox> mailboxes;
    TREVIX_RETURN_IF_ERROR(link_->Read([&](Client& client) -> Status {
        auto listed = client.List();
        if (!listed.ok()) return listed.error();
        mailboxes = std::move(listed).value();
        return {};
    }));
    candidates_ = NamesAmong(mailboxes);
    for (const std::string& candidate : candidates_) {
        const bool there = std::any_of(
            mailboxes.begin(), mailboxes.end(),
            [&candidate](const Mailbox& one) { return one.name == candidate && one.selectable; });
        if (there && mailbox_.empty()) mailbox_ = candidate;
    }
    return {};
}

Status HiddenMailbox::ReadHeads(StoredMails& mails) {
    return link_->Read([&](Client& client) -> Status {
        mails.clear();
        // For writing at once: most who look here write next, and selecting costs a round trip.
        const auto opened = link_->OpenFresh(client, mailbox_, SelectMode::kReadWrite);
        if (!opened.ok()) return opened.error();
        if (opened.value().uid_validity != uid_validity_) last_read_.reset();
        uid_validity_ = opened.value().uid_validity;
        FetchRequest request;
        request.uids = UidSet::From(1);
        request.flags = true;
        request.sections.push_back({kHiddenHeadSection, {}});
        return client.Fetch(request, [&mails](FetchedMessage&& message) -> Status {
            const FetchedSection* header = message.Find(kHiddenHeadSection);
            const bool removed =
                message.flags && HasFlag(ComparableFlags(*message.flags), kDeleted);
            if (header == nullptr || !header->content || removed) return {};
            const Result<std::string> text = header->content->ToString();
            if (!text.ok()) return text.error();
            // Mail of others that strayed here is none of ours.
            auto head = ReadHiddenHead(text.value());
            if (head) mails.push_back({message.uid, *std::move(head)});
            return {};
        });
    });
}

Result<HiddenMailbox::StoredMails> HiddenMailbox::Scan() {
    TREVIX_RETURN_IF_ERROR(Locate());
    StoredMails mails;
    if (mailbox_.empty()) return mails;
    const Status read = ReadHeads(mails);
    if (!read.ok() && read.error().kind == ErrorKind::kNotFound) {
        mailbox_.clear();
        return StoredMails();
    }
    if (!read.ok()) return read.error();
    std::sort(mails.begin(), mails.end(),
              [](const Stored& a, const Stored& b) { return a.uid < b.uid; });
    return mails;
}

const HiddenMailbox::Stored* HiddenMailbox::Newest(const StoredMails& mails,
                                                   const std::string& id) {
    const Stored* newest = nullptr;
    for (const Stored& stored : mails) {
        if (stored.head.mail.id != id) continue;
        const bool newer =
            newest == nullptr || stored.head.mail.revision > newest->head.mail.revision;
        if (newer) newest = &stored;
    }
    return newest;
}

Result<std::vector<HiddenMail>> HiddenMailbox::List() {
    const auto hold = link_->Hold();
    const Result<StoredMails> mails = Scan();
    if (!mails.ok()) return mails.error();
    std::map<std::string, HiddenMail> by_id;
    for (const Stored& stored : mails.value())
        by_id[stored.head.mail.id] = Newest(mails.value(), stored.head.mail.id)->head.mail;
    std::vector<HiddenMail> list;
    for (auto& [id, mail] : by_id)
        list.push_back(std::move(mail));
    return list;
}

Result<Blob> HiddenMailbox::Fetch(std::uint32_t uid) {
    if (last_read_ && last_read_->first == uid) return last_read_->second;
    Result<Blob> content = FetchContent(*link_, mailbox_, {uid_validity_, uid, {}}, {"", {}});
    if (content.ok()) last_read_.emplace(uid, content.value());
    return content;
}

Result<HiddenMail> HiddenMailbox::Read(const std::string& id) {
    const auto hold = link_->Hold();
    const Result<StoredMails> mails = Scan();
    if (!mails.ok()) return mails.error();
    const Stored* newest = Newest(mails.value(), id);
    if (newest == nullptr) return MessagingError(kNotFound);
    const Result<Blob> content = Fetch(newest->uid);
    if (!content.ok()) {
        const bool gone = content.error().kind == ErrorKind::kGone;
        return gone ? MessagingError(kNotFound) : content.error();
    }
    const Result<std::string> text = content.value().ToString();
    if (!text.ok()) return text.error();
    auto mail = ReadHidden(text.value());
    if (!mail || mail->id != id || mail->revision != newest->head.mail.revision) {
        return MessagingError(kCorruptData,
                              "a message in the mailbox " + name_ +
                                  " is damaged; delete it, and the next run makes a new one");
    }
    return *std::move(mail);
}

// At the place that the server takes it at, unless another machine was faster.
Status HiddenMailbox::Make() {
    if (!mailbox_.empty()) return {};
    Status outcome = MessagingError(kCallFailed, "no mailbox can be made");
    const std::vector<std::string> candidates = candidates_;
    for (const std::string& candidate : candidates) {
        const Result<Client*> client = link_->Ready();
        if (!client.ok()) return client.error();
        outcome = client.value()->Create(candidate);
        if (outcome.ok()) {
            mailbox_ = candidate;
            return {};
        }
        TREVIX_RETURN_IF_ERROR(Locate());
        if (!mailbox_.empty()) return {};
    }
    return outcome;
}

Status HiddenMailbox::Append(const HiddenMail& mail, const std::string& token) {
    Result<std::string> text = WriteHidden(mail, token);
    if (!text.ok()) return text.error();
    TREVIX_RETURN_IF_ERROR(Make());
    const Result<Client*> client = link_->Ready();
    if (!client.ok()) return client.error();
    AppendRequest request;
    request.mailbox = mailbox_;
    request.flags = {"\\Seen"};
    request.content = Blob::FromString(std::move(text).value());
    const auto appended = client.value()->Append(request);
    // Where nobody knows whether it was done, the next look at the mailbox tells.
    if (!appended.ok() && !client.value()->fate_unknown()) return appended.error();
    return {};
}

Status HiddenMailbox::Write(HiddenMail& mail) {
    const auto hold = link_->Hold();
    const Result<StoredMails> before = Scan();
    if (!before.ok()) return before.error();
    HiddenMail next = mail;
    if (mail.revision == 0) {
        const auto id = RandomId();
        if (!id) return MessagingError(kCallFailed, "no random number is to be had");
        next.id = *id;
    } else {
        const Stored* stored = Newest(before.value(), mail.id);
        if (stored == nullptr) return MessagingError(kObjectDeleted);
        if (stored->head.mail.revision != mail.revision) return MessagingError(kObjectChanged);
    }
    next.revision = mail.revision + 1;
    next.modified_ns = clock_.UnixNanoseconds();
    const std::string token = RandomHex(16);
    if (token.empty()) return MessagingError(kCallFailed, "no random number is to be had");
    TREVIX_RETURN_IF_ERROR(Append(next, token));

    const Result<StoredMails> after = Scan();
    if (!after.ok()) return after.error();
    const Stored* newest = Newest(after.value(), next.id);
    const bool won = newest != nullptr && newest->head.token == token;
    UidSet surplus;
    bool written = false;
    for (const Stored& stored : after.value()) {
        const bool own = stored.head.token == token;
        written = written || own;
        const bool outdated = won && stored.head.mail.id == next.id && !own;
        if (outdated || (own && !won)) surplus.Add(stored.uid);
    }
    RemoveAll(surplus);
    if (won) {
        mail.id = next.id;
        mail.revision = next.revision;
        mail.modified_ns = next.modified_ns;
        return {};
    }
    if (written || newest != nullptr) return MessagingError(kObjectChanged);
    return MessagingError(kNetworkError, "the hidden message did not arrive");
}

// What cannot be removed now is outdated all the same, and the next writing removes it. Where a
// single message cannot be expunged, its mark is enough: marked ones are not read.
void HiddenMailbox::RemoveAll(const UidSet& uids) {
    if (uids.empty()) return;
    const Result<Client*> client = link_->Ready();
    if (!client.ok()) return;
    const auto opened = link_->Open(*client.value(), mailbox_, SelectMode::kReadWrite);
    if (!opened.ok() || opened.value().uid_validity != uid_validity_) return;
    if (!client.value()->Store(uids, FlagChange::kAdd, {kDeleted}).ok()) return;
    // As said above.
    if (client.value()->Offers("UIDPLUS")) Drop(client.value()->Expunge(uids));
}

Status HiddenMailbox::Remove(const std::string& id) {
    const auto hold = link_->Hold();
    const Result<StoredMails> mails = Scan();
    if (!mails.ok()) return mails.error();
    UidSet uids;
    for (const Stored& stored : mails.value()) {
        if (stored.head.mail.id == id) uids.Add(stored.uid);
    }
    if (uids.empty()) return MessagingError(kNotFound);
    RemoveAll(uids);
    const Result<StoredMails> after = Scan();
    if (!after.ok()) return after.error();
    if (Newest(after.value(), id) == nullptr) return {};
    return MessagingError(kNoAccess, "a message cannot be removed from the mailbox " + name_);
}

}  // namespace trevix::imap
