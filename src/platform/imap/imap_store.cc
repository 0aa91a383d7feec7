#include "platform/imap/imap_store.h"

#include <algorithm>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/listing.h"
#include "platform/imap/recovery.h"

namespace trevix::imap {
namespace {

constexpr std::int32_t kFreshMilliseconds = 5000;
constexpr std::size_t kAskedTogether = 64;

bool IsFresh(std::int32_t then, std::int32_t now) {
    // The ticks wrap.
    const auto age = static_cast<std::uint32_t>(now) - static_cast<std::uint32_t>(then);
    return age < static_cast<std::uint32_t>(kFreshMilliseconds);
}

}  // namespace

ImapStore::ImapStore(StorePlan plan, Connector connect, Pause pause, Clock& clock)
    : plan_(std::move(plan)),
      clock_(clock),
      link_(std::make_shared<Link>(std::move(connect), std::move(pause))),
      hidden_(link_, plan_.hidden_mailbox, clock),
      read_ahead_(link_),
      context_(std::make_shared<ReplacementContext>(plan_.spool_directory)) {
    context_->link = link_;
    context_->store_address = plan_.address;
    context_->journal_directory = plan_.journal_directory;
    context_->clock = &clock_;
}

Result<std::unique_ptr<ImapStore>> ImapStore::Open(StorePlan plan, Connector connect, Pause pause,
                                                   Clock& clock) {
    std::unique_ptr<ImapStore> store(
        new ImapStore(std::move(plan), std::move(connect), std::move(pause), clock));
    const auto hold = store->link_->Hold();
    const Result<Client*> client = store->link_->Ready();
    if (!client.ok()) return client.error();
    if (store->plan_.leftovers == Leftovers::kFinish) {
        const StorePlan& kept = store->plan_;
        for (const std::string& note :
             Recover(*store->link_, kept.journal_directory, kept.address, clock)) {
            if (kept.tell) kept.tell(note);
        }
    }
    return store;
}

Status ImapStore::ReadTree() {
    std::vector<Mailbox> mailboxes;
    TREVIX_RETURN_IF_ERROR(link_->Read([&](Client& client) -> Status {
        auto listed = client.List();
        if (!listed.ok()) return listed.error();
        mailboxes = std::move(listed).value();
        return {};
    }));
    const std::vector<std::string> own = hidden_.NamesAmong(mailboxes);
    std::erase_if(mailboxes, [&own](const Mailbox& one) {
        return std::find(own.begin(), own.end(), one.name) != own.end();
    });
    tree_ = FoldersOf(mailboxes);
    return {};
}

Result<std::vector<MailFolder>> ImapStore::Folders() {
    const auto hold = link_->Hold();
    TREVIX_RETURN_IF_ERROR(ReadTree());
    return tree_.folders;
}

// A folder that was made after the tree was read is found by reading it again. The Inbox is always
// there.
Result<std::string> ImapStore::MailboxOf(const std::string& folder) {
    if (folder == kInboxPath) return std::string(kInboxPath);
    if (!tree_.names.contains(folder)) TREVIX_RETURN_IF_ERROR(ReadTree());
    const auto found = tree_.names.find(folder);
    if (found == tree_.names.end()) return MessagingError(kNotFound, folder);
    return found->second;
}

bool ImapStore::IsContainer(const std::string& folder) const {
    return std::any_of(
        tree_.folders.begin(), tree_.folders.end(),
        [&folder](const MailFolder& one) { return one.path == folder && !one.holds_messages; });
}

// The mailbox and those that come behind it: whoever asks for one folder's changes will most likely
// ask for the next ones', and one question costs as much time as many.
std::vector<std::string> ImapStore::AskTogether(const std::string& folder,
                                                const std::string& mailbox) {
    std::vector<std::string> together = {mailbox};
    auto at = std::find_if(tree_.folders.begin(), tree_.folders.end(),
                           [&folder](const MailFolder& one) { return one.path == folder; });
    if (at != tree_.folders.end()) ++at;
    for (; at != tree_.folders.end() && together.size() < kAskedTogether; ++at) {
        const auto name = tree_.names.find(at->path);
        if (name != tree_.names.end()) together.push_back(name->second);
    }
    return together;
}

Result<MailboxStatus> ImapStore::StatusOf(const std::string& folder, const std::string& mailbox) {
    const std::int32_t now = clock_.TickCount();
    if (context_->written.erase(mailbox) > 0) asked_ahead_.erase(mailbox);
    const auto ahead = asked_ahead_.find(mailbox);
    if (ahead != asked_ahead_.end()) {
        const AskedAhead known = ahead->second;
        asked_ahead_.erase(ahead);
        if (IsFresh(known.tick, now)) return known.status;
    }
    const std::vector<std::string> together = AskTogether(folder, mailbox);
    std::optional<Result<MailboxStatus>> wanted;
    const Status asked = link_->Read([&](Client& client) -> Status {
        // Of the selected mailbox a server tells what this connection has seen of it so far.
        const bool selected =
            std::find(together.begin(), together.end(), client.selected()) != together.end();
        if (selected) TREVIX_RETURN_IF_ERROR(client.Noop());
        const auto answers = client.StatusOf(together);
        if (!answers.ok()) return answers.error();
        wanted = answers.value().front();
        for (std::size_t at = 1; at < together.size() && at < answers.value().size(); ++at) {
            const auto& answer = answers.value()[at];
            if (answer.ok()) asked_ahead_[together[at]] = {answer.value(), now};
        }
        return {};
    });
    if (!asked.ok()) return asked.error();
    if (!wanted) return MessagingError(kCallFailed, mailbox);
    return *wanted;
}

Result<MailChange> ImapStore::List(const std::string& folder, const MailListing* known) {
    const auto hold = link_->Hold();
    if (folder.empty() || IsContainer(folder)) return MailChange{};
    const Result<std::string> mailbox = MailboxOf(folder);
    if (!mailbox.ok()) return mailbox.error();
    if (context_->distrusted.contains(mailbox.value())) known = nullptr;
    const Result<MailboxStatus> status = StatusOf(folder, mailbox.value());
    if (!status.ok()) return status.error();
    if (known != nullptr && !known->stamp.empty() && known->stamp == StampOf(status.value())) {
        MailChange unchanged;
        unchanged.changed = false;
        return unchanged;
    }
    Result<MailListing> listing = ReadListing(*link_, mailbox.value(), status.value(), known);
    if (!listing.ok()) return listing.error();
    context_->distrusted.erase(mailbox.value());
    MailChange change;
    change.listing = std::move(listing).value();
    return change;
}

void ImapStore::Distrust(const std::string& mailbox, const Error& error) {
    if (error.kind == ErrorKind::kChanged || error.kind == ErrorKind::kGone) {
        context_->distrusted.insert(mailbox);
    }
}

Result<Blob> ImapStore::Read(const std::string& folder, const MailEntry& entry) {
    const auto hold = link_->Hold();
    const auto identity = DecodeLocator(entry.locator);
    if (!identity) return MessagingError(kInvalidEntryId, entry.key);
    const Result<std::string> mailbox = MailboxOf(folder);
    if (!mailbox.ok()) return mailbox.error();
    if (const auto ahead = read_ahead_.TakeWhole(mailbox.value(), entry)) return *ahead;
    Result<Blob> content = FetchContent(*link_, mailbox.value(), *identity, {"", {}});
    if (!content.ok()) Distrust(mailbox.value(), content.error());
    return content;
}

void ImapStore::Expect(const std::string& folder, const std::vector<MailEntry>& entries,
                       MailUse use) {
    const auto hold = link_->Hold();
    const Result<std::string> mailbox = MailboxOf(folder);
    if (mailbox.ok()) read_ahead_.Expect(mailbox.value(), entries, use);
}

Result<MailOutline> ImapStore::Outline(const std::string& folder, const MailEntry& entry) {
    const auto hold = link_->Hold();
    const Result<std::string> mailbox = MailboxOf(folder);
    if (!mailbox.ok()) return mailbox.error();
    Result<MailOutline> outline = read_ahead_.Outline(mailbox.value(), entry);
    if (!outline.ok()) Distrust(mailbox.value(), outline.error());
    return outline;
}

Result<std::unique_ptr<StagedMail>> ImapStore::Stage(const std::string& folder,
                                                     const MailEntry& entry, const Blob& content) {
    std::string mailbox;
    {
        const auto hold = link_->Hold();
        const Result<std::string> found = MailboxOf(folder);
        if (!found.ok()) return found.error();
        mailbox = found.value();
    }
    // Not held here: see there.
    return StageReplacement(context_, mailbox, entry, content);
}

Result<std::unique_ptr<MailStore>> OpenImapStore(StorePlan plan, Connector connect, Pause pause,
                                                 Clock& clock) {
    auto store = ImapStore::Open(std::move(plan), std::move(connect), std::move(pause), clock);
    if (!store.ok()) return store.error();
    return std::unique_ptr<MailStore>(std::move(store).value());
}

}  // namespace trevix::imap
