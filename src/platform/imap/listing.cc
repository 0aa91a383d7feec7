#include "platform/imap/listing.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/message_identity.h"

namespace trevix::imap {
namespace {

// By UID, for the order of a listing. A server that tells of more messages than this is not
// believed.
using Entries = std::map<std::uint32_t, MailEntry>;
constexpr std::size_t kMostEntries = 20'000'000;
constexpr std::uint32_t kMostAtOnce = 1'000'000;

bool TakeNumber(const std::string& text, std::size_t& at, std::uint64_t& number) {
    const char* const begin = text.data() + at;
    const auto [stop, failure] = std::from_chars(begin, text.data() + text.size(), number);
    if (failure != std::errc()) return false;
    at += static_cast<std::size_t>(stop - begin) + 1;  // the number and the blank behind it
    return true;
}

// `uid_validity` is looked at when a message comes.
FetchSink Into(Entries& entries, const std::uint32_t& uid_validity) {
    return [&entries, &uid_validity](FetchedMessage&& message) -> Status {
        std::optional<MailEntry> entry = EntryOf(uid_validity, message);
        // Flags that came unasked; the messages of a request come with all that was asked.
        if (!entry) return {};
        if (entries.size() >= kMostEntries) {
            return MessagingError(kTooComplex, "more messages than can be listed");
        }
        entries[message.uid] = *std::move(entry);
        return {};
    };
}

// In several requests when there are more than one answer may hold.
std::vector<UidSet> AllInGroups(const SelectedMailbox& mailbox) {
    std::vector<UidSet> groups;
    const std::uint32_t full = mailbox.uid_next / kMostAtOnce;
    for (std::uint32_t group = 0; group < full; ++group)
        groups.push_back(UidSet::Between(group * kMostAtOnce + 1, (group + 1) * kMostAtOnce));
    groups.push_back(UidSet::From(full * kMostAtOnce + 1));
    return groups;
}

Status ReadVeryMany(Link& link, Client& client, const std::string& mailbox, Entries& entries,
                    std::uint32_t& uid_validity) {
    const auto opened = link.OpenFresh(client, mailbox, SelectMode::kReadOnly);
    if (!opened.ok()) return opened.error();
    uid_validity = opened.value().uid_validity;
    std::vector<FetchRequest> requests;
    for (UidSet& uids : AllInGroups(opened.value()))
        requests.push_back(EntryRequest(std::move(uids)));
    return client.Fetch(requests, Into(entries, uid_validity));
}

Status ReadAll(Link& link, Client& client, const std::string& mailbox, std::uint32_t messages,
               Entries& entries, std::uint32_t& uid_validity) {
    entries.clear();
    if (messages > kMostAtOnce) {
        return ReadVeryMany(link, client, mailbox, entries, uid_validity);
    }
    return link.Fetch(
        client, mailbox, EntryRequest(UidSet::From(1)),
        [&uid_validity](const SelectedMailbox& opened) { uid_validity = opened.uid_validity; },
        Into(entries, uid_validity));
}

Entries KnownEntries(const MailListing& known, std::uint32_t uid_validity) {
    Entries entries;
    for (const MailEntry& entry : known.entries) {
        const auto identity = DecodeLocator(entry.locator);
        if (identity && identity->uid_validity == uid_validity) entries[identity->uid] = entry;
    }
    return entries;
}

void RemoveUids(Entries& entries, const UidSet& gone) {
    std::erase_if(entries, [&gone](const auto& one) { return gone.Contains(one.first); });
}

// What changed after `since`, put into what was known. Without QRESYNC the server does not tell
// which messages went; then a search of all UIDs does.
Status ReadChanges(Link& link, Client& client, const MailboxStatus& since, Entries& entries) {
    FetchRequest request = EntryRequest(UidSet::From(1));
    request.changed_since = since.highest_modseq;
    const FetchSink sink = Into(entries, since.uid_validity);
    if (link.has_qresync()) {
        const Result<UidSet> gone = client.FetchChanges(request, sink);
        if (!gone.ok()) return gone.error();
        RemoveUids(entries, gone.value());
        return {};
    }
    TREVIX_RETURN_IF_ERROR(client.Fetch(request, sink));
    const Result<UidSet> present = client.Search("ALL");
    if (!present.ok()) return present.error();
    std::erase_if(entries, [&](const auto& one) { return !present.value().Contains(one.first); });
    return {};
}

bool CanBuildOn(const Link& link, const std::optional<MailboxStatus>& earlier,
                const MailboxStatus& now) {
    return link.has_condstore() && earlier && earlier->highest_modseq && now.highest_modseq &&
           earlier->uid_validity == now.uid_validity && earlier->uid_next <= now.uid_next &&
           *earlier->highest_modseq > 0 && *earlier->highest_modseq <= *now.highest_modseq;
}

MailListing ListingOf(Entries&& entries, std::string stamp) {
    MailListing listing;
    listing.stamp = std::move(stamp);
    listing.entries.reserve(entries.size());
    for (auto& [uid, entry] : entries)
        listing.entries.push_back(std::move(entry));
    return listing;
}

}  // namespace

std::string StampOf(const MailboxStatus& status) {
    if (status.uid_validity == 0 || status.uid_next == 0) return {};
    return std::to_string(status.uid_validity) + " " + std::to_string(status.uid_next) + " " +
           std::to_string(status.messages) + " " +
           std::to_string(status.highest_modseq.value_or(0));
}

std::optional<MailboxStatus> DecodeStamp(const std::string& stamp) {
    std::size_t at = 0;
    std::uint64_t validity = 0;
    std::uint64_t next = 0;
    std::uint64_t messages = 0;
    std::uint64_t modseq = 0;
    if (!TakeNumber(stamp, at, validity) || at > stamp.size() || !TakeNumber(stamp, at, next) ||
        at > stamp.size() || !TakeNumber(stamp, at, messages) || at > stamp.size() ||
        !TakeNumber(stamp, at, modseq)) {
        return std::nullopt;
    }
    MailboxStatus status;
    status.uid_validity = static_cast<std::uint32_t>(validity);
    status.uid_next = static_cast<std::uint32_t>(next);
    status.messages = static_cast<std::uint32_t>(messages);
    if (modseq != 0) status.highest_modseq = modseq;
    return status;
}

Result<MailListing> ReadListing(Link& link, const std::string& mailbox, const MailboxStatus& status,
                                const MailListing* known) {
    const auto earlier = known == nullptr ? std::nullopt : DecodeStamp(known->stamp);
    Entries entries;
    std::uint32_t uid_validity = 0;
    const Status read = link.Read([&](Client& client) -> Status {
        if (!CanBuildOn(link, earlier, status)) {
            return ReadAll(link, client, mailbox, status.messages, entries, uid_validity);
        }
        const auto opened = link.OpenFresh(client, mailbox, SelectMode::kReadOnly);
        if (!opened.ok()) return opened.error();
        uid_validity = opened.value().uid_validity;
        if (uid_validity == status.uid_validity) {
            entries = KnownEntries(*known, uid_validity);
            TREVIX_RETURN_IF_ERROR(ReadChanges(link, client, *earlier, entries));
            // What the sum does not fit is not trusted. A message may have come or gone since the
            // status was asked; then the long way costs a little more, that is all.
            if (entries.size() == status.messages) return {};
        }
        return ReadAll(link, client, mailbox, status.messages, entries, uid_validity);
    });
    if (!read.ok()) return read.error();
    // A listing that does not belong to the status must not be taken for it next time.
    const bool fits = uid_validity == status.uid_validity && entries.size() == status.messages;
    return ListingOf(std::move(entries), fits ? StampOf(status) : std::string());
}

}  // namespace trevix::imap
