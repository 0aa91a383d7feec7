#include "platform/imap/link.h"

#include <optional>
#include <utility>

#include "platform/errors.h"

namespace trevix::imap {
namespace {

constexpr int kSeries = 5;
constexpr std::chrono::milliseconds kFirstPause{1000};
constexpr int kReadTurns = 3;

}  // namespace

Link::Link(Connector connect, Pause pause)
    : connect_(std::move(connect)), pause_(std::move(pause)) {}

Result<Client*> Link::Ready() {
    if (client_ != nullptr && client_->connected()) return client_.get();
    client_.reset();
    // The first opening is answered at once: a person waits for it.
    const int tries = generation_ > 0 && !failed_before_ ? kSeries : 1;
    std::chrono::milliseconds pause = kFirstPause;
    for (int turn = 1;; ++turn) {
        Result<Client*> made = Connect();
        if (made.ok()) return made;
        const bool final = made.error().kind == ErrorKind::kDenied;
        if (final || turn >= tries) {
            failed_before_ = true;
            return made.error();
        }
        pause_(pause);
        pause *= 2;
    }
}

Result<Client*> Link::Connect() {
    Result<std::unique_ptr<Client>> made = connect_();
    if (!made.ok()) return made.error();
    client_ = std::move(made).value();
    const Status turned_on = TurnOnExtensions();
    if (!turned_on.ok()) {
        client_.reset();
        return turned_on.error();
    }
    ++generation_;
    failed_before_ = false;
    return client_.get();
}

Status Link::TurnOnExtensions() {
    has_qresync_ = client_->Offers("QRESYNC");
    has_condstore_ = has_qresync_ || client_->Offers("CONDSTORE");
    if (!has_qresync_ || !client_->Offers("ENABLE")) {
        has_qresync_ = false;
        return {};
    }
    const auto enabled = client_->Enable({"QRESYNC"});
    // A server that refuses is used without.
    if (!enabled.ok() && client_->connected()) {
        has_qresync_ = false;
        return {};
    }
    if (!enabled.ok()) return enabled.error();
    has_qresync_ = !enabled.value().empty();
    return {};
}

Status Link::Read(const std::function<Status(Client&)>& work) {
    for (int turn = 1;; ++turn) {
        const Result<Client*> client = Ready();
        if (!client.ok()) return client.error();
        Status outcome = work(*client.value());
        if (outcome.ok() || client.value()->connected() || turn >= kReadTurns) return outcome;
    }
}

Result<SelectedMailbox> Link::Open(Client& client, const std::string& mailbox, SelectMode mode) {
    const bool will_do = mode == SelectMode::kReadOnly || mode_ == SelectMode::kReadWrite;
    if (!mailbox.empty() && client.selected() == mailbox && will_do) return selected_;
    const Result<SelectedMailbox> selected = client.Select(mailbox, mode);
    if (!selected.ok()) return selected.error();
    return Remember(client, selected.value(), mode);
}

Result<SelectedMailbox> Link::Remember(Client& client, const SelectedMailbox& selected,
                                       SelectMode mode) {
    if (selected.uid_validity == 0 || !selected.uids_sticky) {
        return MessagingError(kNoSupport, client.host() +
                                              ": the server gives messages no lasting numbers in "
                                              "the mailbox " +
                                              client.selected());
    }
    selected_ = selected;
    mode_ = mode;
    return selected_;
}

Status Link::Fetch(Client& client, const std::string& mailbox, const FetchRequest& request,
                   const std::function<void(const SelectedMailbox&)>& opened,
                   const FetchSink& sink) {
    if (client.selected() == mailbox) {
        const auto fresh = OpenFresh(client, mailbox, SelectMode::kReadOnly);
        if (!fresh.ok()) return fresh.error();
        opened(fresh.value());
        return client.Fetch(request, sink);
    }
    const auto begun = client.SelectAndFetch(mailbox, SelectMode::kReadOnly, request, sink);
    if (!begun.ok()) return begun.error();
    const auto known = Remember(client, begun.value().mailbox, SelectMode::kReadOnly);
    if (known.ok()) opened(known.value());
    const Status fetched = client.Finish(begun.value().ticket);
    return known.ok() ? fetched : known.error();
}

Result<SelectedMailbox> Link::OpenFresh(Client& client, const std::string& mailbox,
                                        SelectMode mode) {
    const bool was_selected = client.selected() == mailbox;
    Result<SelectedMailbox> opened = Open(client, mailbox, mode);
    if (!opened.ok()) return opened.error();
    if (was_selected) TREVIX_RETURN_IF_ERROR(client.Noop());
    return opened;
}

Result<Blob> FetchContent(Link& link, const std::string& mailbox, const MessageIdentity& identity,
                          const SectionRequest& section) {
    std::optional<Blob> content;
    const Status fetched = link.Read([&](Client& client) -> Status {
        // Some servers go on to show a removed message to who has not been told yet. Whoever reads
        // a part has been shown the message already.
        const auto opened = section.section.empty()
                                ? link.OpenFresh(client, mailbox, SelectMode::kReadOnly)
                                : link.Open(client, mailbox, SelectMode::kReadOnly);
        if (!opened.ok()) return opened.error();
        if (opened.value().uid_validity != identity.uid_validity) return {};
        FetchRequest request;
        request.uids = UidSet::Of(identity.uid);
        request.sections = {section};
        return client.Fetch(request, [&](FetchedMessage&& message) -> Status {
            const FetchedSection* found = message.Find(section.section);
            if (message.uid == identity.uid && found != nullptr && found->content) {
                content = found->content;
            }
            return {};
        });
    });
    if (!fetched.ok()) return fetched.error();
    if (!content) return MessagingError(kObjectDeleted);
    return *std::move(content);
}

}  // namespace trevix::imap
