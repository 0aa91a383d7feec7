// What a Client does with messages.
#include <algorithm>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/ascii.h"
#include "platform/imap/client.h"
#include "platform/imap/refusal_error.h"
#include "platform/imap/session.h"

namespace trevix::imap {
namespace {

constexpr std::size_t kMostSetBytes = 4096;
constexpr std::size_t kMostRefused = 100'000;
constexpr std::size_t kMostFound = std::size_t{1} << 20;  // ranges of messages, found or gone

// A flag is one word. What servers call their flags is not always an atom, so only what would end
// the word is refused.
bool IsFlag(const std::string& flag) {
    return !flag.empty() && std::all_of(flag.begin(), flag.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte > ' ' && byte != 0x7F &&
               std::string_view("(){\"%*").find(c) == std::string::npos;
    });
}

// "(\\Seen $Label)". \Recent is the server's alone.
Result<std::string> FlagList(const std::vector<std::string>& flags) {
    std::string list;
    for (const std::string& flag : flags) {
        if (SameLetters(flag, "\\Recent")) continue;
        if (!IsFlag(flag)) return MessagingError(kInvalidParameter, "no flag: " + CleanWords(flag));
        list += (list.empty() ? "" : " ") + flag;
    }
    return "(" + list + ")";
}

}  // namespace

Status Client::Fetch(const FetchRequest& request, const FetchSink& sink) {
    return Fetch(std::vector<FetchRequest>{request}, sink);
}

Status Client::Fetch(const std::vector<FetchRequest>& requests, const FetchSink& sink) {
    // One sink for all, not a copy for each.
    const FetchSink shared = [&sink](FetchedMessage&& message) { return sink(std::move(message)); };
    std::vector<Ticket> tickets;
    Status status;
    for (const FetchRequest& request : requests) {
        const Result<Ticket> ticket = StartFetch(request, shared);
        if (!ticket.ok()) {
            status = ticket.error();
            break;
        }
        tickets.push_back(ticket.value());
    }
    for (const Ticket ticket : tickets) {
        const Status finished = Finish(ticket);
        if (status.ok()) status = finished;
    }
    return status;
}

Result<Client::Ticket> Client::StartFetch(const FetchRequest& request, FetchSink sink) {
    return session_->StartFetch(request, std::move(sink));
}

Status Client::Finish(Ticket ticket) {
    return session_->Finish(ticket);
}

Result<UidSet> Client::FetchChanges(const FetchRequest& request, const FetchSink& sink) {
    if (!Offers("QRESYNC")) return session_->Unsupported("to tell what is gone (QRESYNC)");
    UidCollector vanished(kMostFound);
    TREVIX_RETURN_IF_ERROR(session_->FetchChanges(request, sink, [&vanished](Reply& reply) {
        if (const auto* const told = std::get_if<VanishedReply>(&reply)) {
            vanished.Add(told->uids);
            if (!told->complete) vanished.MarkIncomplete();
        }
        return Status();
    }));
    if (!vanished.complete()) return session_->Malformed("too many messages are gone");
    return vanished.Take();
}

Result<UidSet> Client::Search(const std::string& criteria) {
    Command command("UID SEARCH");
    if (Offers("ESEARCH")) command.Words("RETURN (ALL)");
    command.Words(criteria);
    UidCollector found(kMostFound);
    TREVIX_RETURN_IF_ERROR(
        session_->Do(std::move(command), Session::Effect::kReads, [&found](Reply& reply) {
            if (const auto* const told = std::get_if<SearchReply>(&reply)) {
                found.Add(told->uids);
                if (!told->complete) found.MarkIncomplete();
            }
            return Status();
        }));
    if (!found.complete()) return session_->Malformed("the search has found too much");
    return found.Take();
}

Result<std::optional<AppendedMail>> Client::Append(const AppendRequest& request) {
    Command command("APPEND");
    command.Text(request.mailbox);
    const Result<std::string> flags = FlagList(request.flags);
    if (!flags.ok()) return flags.error();
    command.Words(flags.value());
    if (request.internal_date) command.Text(FormatDateTime(*request.internal_date));
    command.Content(request.content);
    session_->ForgetAppended();
    TREVIX_RETURN_IF_ERROR(session_->Do(std::move(command), Session::Effect::kWrites));
    return session_->TakeAppended();
}

Result<UidSet> Client::Store(const UidSet& uids, FlagChange change,
                             const std::vector<std::string>& flags,
                             std::optional<std::uint64_t> unchanged_since) {
    const Result<std::string> list = FlagList(flags);
    if (!list.ok()) return list.error();
    const std::string sign = change == FlagChange::kAdd      ? "+"
                             : change == FlagChange::kRemove ? "-"
                                                             : "";
    UidSet left_alone;
    for (const std::string& set : uids.ToTexts(kMostSetBytes)) {
        Command command("UID STORE");
        command.Words(set);
        if (unchanged_since) {
            command.Words("(UNCHANGEDSINCE " + std::to_string(*unchanged_since) + ")");
        }
        command.Words(sign + "FLAGS.SILENT").Words(list.value());
        const Result<Condition> answer =
            session_->Ask(std::move(command), Session::Effect::kWrites);
        if (!answer.ok()) return answer.error();
        if (answer.value().code == "MODIFIED") {
            const auto modified = UidSet::Parse(answer.value().arguments, kMostRefused);
            if (!modified)
                return session_->GiveUp(session_->Malformed("a set of messages is none"));
            left_alone.AddAll(*modified);
        } else if (unchanged_since && answer.value().text.starts_with('[')) {
            // A code that does not end could be the one that matters.
            return session_->GiveUp(session_->Malformed("a code in brackets does not end"));
        } else {
            TREVIX_RETURN_IF_ERROR(session_->Accept(answer.value()));
        }
    }
    return left_alone;
}

Status Client::Expunge(const UidSet& uids) {
    // Without it there is only EXPUNGE, which removes what others have marked.
    if (!Offers("UIDPLUS")) return session_->Unsupported("to remove single messages (UIDPLUS)");
    for (const std::string& set : uids.ToTexts(kMostSetBytes)) {
        Command command("UID EXPUNGE");
        command.Words(set);
        TREVIX_RETURN_IF_ERROR(session_->Do(std::move(command), Session::Effect::kWrites));
    }
    return {};
}

}  // namespace trevix::imap
