// What a Client does with mailboxes as a whole.
#include <algorithm>
#include <charconv>
#include <unordered_map>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/ascii.h"
#include "platform/imap/client.h"
#include "platform/imap/mailbox_name.h"
#include "platform/imap/refusal_error.h"
#include "platform/imap/session.h"

namespace trevix::imap {
namespace {

// Of all names of a listing together.
constexpr std::size_t kMostListBytes = std::size_t{64} << 20;

std::string StatusItems(const Client& client) {
    std::string items = "(MESSAGES UIDNEXT UIDVALIDITY";
    if (client.Offers("CONDSTORE") || client.Offers("QRESYNC")) items += " HIGHESTMODSEQ";
    return items + ")";
}

MailboxStatus ToStatus(const StatusReply& reply) {
    return {reply.messages, reply.uid_next, reply.uid_validity, reply.highest_modseq};
}

// "INBOX" for every spelling of it, else the name.
std::string Identity(const std::string& name) {
    return SameMailbox(name, "INBOX") ? "INBOX" : name;
}

bool HasAttribute(const std::vector<std::string>& attributes, std::string_view wanted) {
    return std::any_of(attributes.begin(), attributes.end(),
                       [wanted](const std::string& name) { return SameLetters(name, wanted); });
}

template <typename Number>
Number NumberIn(const std::string& text) {
    Number number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

// "(\\Deleted \\Seen \\*)" of PERMANENTFLAGS.
std::vector<std::string> FlagsIn(std::string_view text) {
    std::vector<std::string> flags;
    std::string flag;
    for (const char c : text) {
        if (c != ' ' && c != '(' && c != ')') {
            flag += c;
        } else if (!flag.empty()) {
            flags.push_back(std::exchange(flag, {}));
        }
    }
    if (!flag.empty()) flags.push_back(flag);
    return flags;
}

// Puts together what SELECT tells.
class Selection {
 public:
    Status Take(Reply& reply) {
        if (auto* const flags = std::get_if<FlagsReply>(&reply)) {
            mailbox_.flags = std::move(flags->flags);
        } else if (const auto* const exists = std::get_if<ExistsReply>(&reply)) {
            mailbox_.exists = exists->count;
        } else if (const auto* const told = std::get_if<ConditionReply>(&reply)) {
            TakeCode(told->condition);
        }
        return {};
    }

    SelectedMailbox Finish(const Condition& answer, SelectMode mode) {
        TakeCode(answer);
        mailbox_.read_only =
            read_only_.value_or(mode == SelectMode::kReadOnly) || mode == SelectMode::kReadOnly;
        return std::move(mailbox_);
    }

 private:
    void TakeCode(const Condition& condition) {
        const std::string& code = condition.code;
        if (code == "CLOSED") {
            mailbox_ = {};  // what came so far was about the one before
        } else if (code == "UIDVALIDITY") {
            mailbox_.uid_validity = NumberIn<std::uint32_t>(condition.arguments);
        } else if (code == "UIDNEXT") {
            mailbox_.uid_next = NumberIn<std::uint32_t>(condition.arguments);
        } else if (code == "HIGHESTMODSEQ") {
            const auto modseq = NumberIn<std::uint64_t>(condition.arguments);
            if (modseq > 0) mailbox_.highest_modseq = modseq;
        } else if (code == "NOMODSEQ") {
            mailbox_.highest_modseq.reset();
        } else if (code == "PERMANENTFLAGS") {
            mailbox_.permanent_flags = FlagsIn(condition.arguments);
        } else if (code == "UIDNOTSTICKY") {
            mailbox_.uids_sticky = false;
        } else if (code == "READ-ONLY") {
            read_only_ = true;
        } else if (code == "READ-WRITE") {
            read_only_ = false;
        }
    }

    SelectedMailbox mailbox_;
    std::optional<bool> read_only_;
};

// Puts together what LIST tells, with STATUS data where that was asked for.
class Listing {
 public:
    Status Take(Reply& reply) {
        if (auto* const list = std::get_if<ListReply>(&reply)) return TakeList(*list);
        if (const auto* const status = std::get_if<StatusReply>(&reply)) {
            bytes_ += status->mailbox.size() + sizeof *status;
            statuses_[Identity(status->mailbox)] = ToStatus(*status);
        }
        return TooMuch();
    }

    std::vector<Mailbox> Finish() {
        for (Mailbox& mailbox : mailboxes_) {
            const auto found = statuses_.find(Identity(mailbox.name));
            if (found != statuses_.end()) mailbox.status = found->second;
        }
        return std::move(mailboxes_);
    }

 private:
    Status TakeList(ListReply& list) {
        bytes_ += list.name.size() + sizeof(Mailbox);
        for (const std::string& attribute : list.attributes) {
            bytes_ += attribute.size() + sizeof(std::string);
        }
        Mailbox mailbox;
        mailbox.name = std::move(list.name);
        mailbox.delimiter = std::move(list.delimiter);
        mailbox.attributes = std::move(list.attributes);
        mailbox.selectable = !HasAttribute(mailbox.attributes, "\\Noselect") &&
                             !HasAttribute(mailbox.attributes, "\\NonExistent");
        mailboxes_.push_back(std::move(mailbox));
        return TooMuch();
    }

    Status TooMuch() const {
        if (bytes_ <= kMostListBytes) return {};
        return MessagingError(kCorruptData, "the list of mailboxes is endless");
    }

    std::vector<Mailbox> mailboxes_;
    std::unordered_map<std::string, MailboxStatus> statuses_;
    std::size_t bytes_ = 0;
};

Command SelectCommand(const Client& client, const std::string& mailbox, SelectMode mode) {
    Command command(mode == SelectMode::kReadWrite ? "SELECT" : "EXAMINE");
    command.Text(mailbox);
    if (client.Offers("CONDSTORE") || client.Offers("QRESYNC")) command.Words("(CONDSTORE)");
    return command;
}

}  // namespace

Result<std::vector<Mailbox>> Client::List(const ListRequest& request) {
    Command command(request.subscribed_only ? "LSUB" : "LIST");
    command.Text(request.reference).Text(request.pattern);
    if (!request.subscribed_only) {
        std::string options;
        if (Offers("SPECIAL-USE") && Offers("LIST-EXTENDED")) options += "SPECIAL-USE ";
        if (request.with_status && Offers("LIST-STATUS")) {
            options += "STATUS " + StatusItems(*this) + " ";
        }
        if (!options.empty()) {
            options.pop_back();
            command.Words("RETURN (" + options + ")");
        }
    }
    Listing listing;
    TREVIX_RETURN_IF_ERROR(session_->Do(std::move(command), Session::Effect::kReads,
                                        [&listing](Reply& reply) { return listing.Take(reply); }));
    return listing.Finish();
}

Result<SelectedMailbox> Client::Select(const std::string& mailbox, SelectMode mode) {
    Selection selection;
    TREVIX_RETURN_IF_ERROR(session_->FinishAll());
    // A SELECT that fails leaves nothing selected.
    session_->selected.clear();
    const Result<Condition> answer =
        session_->Ask(SelectCommand(*this, mailbox, mode), Session::Effect::kReads,
                      [&selection](Reply& reply) { return selection.Take(reply); });
    if (!answer.ok()) return answer.error();
    TREVIX_RETURN_IF_ERROR(session_->Accept(answer.value()));
    session_->selected = mailbox;
    session_->ForgetNewsOfMailbox();
    return selection.Finish(answer.value(), mode);
}

Result<Client::Begun> Client::SelectAndFetch(const std::string& mailbox, SelectMode mode,
                                             const FetchRequest& request, FetchSink sink) {
    Selection selection;
    Begun begun;
    // What comes of a mailbox that was not selected is nobody's.
    const auto is_selected = std::make_shared<bool>(false);
    const FetchSink guarded = [is_selected, sink = std::move(sink)](FetchedMessage&& message) {
        return *is_selected ? sink(std::move(message)) : Status();
    };
    TREVIX_RETURN_IF_ERROR(session_->FinishAll());
    session_->selected.clear();
    const Result<Condition> answer = session_->AskThenFetch(
        SelectCommand(*this, mailbox, mode),
        [&selection](Reply& reply) { return selection.Take(reply); }, request, guarded,
        begun.ticket);
    if (!answer.ok()) return answer.error();
    const Status accepted = session_->Accept(answer.value());
    if (!accepted.ok()) {
        // Refused as well; why is said already.
        const Refusal why = refusal();
        Drop(session_->Finish(begun.ticket));
        session_->SetRefusal(why);
        return accepted.error();
    }
    *is_selected = true;
    session_->selected = mailbox;
    session_->ForgetNewsOfMailbox();
    begun.mailbox = selection.Finish(answer.value(), mode);
    return begun;
}

Result<MailboxStatus> Client::StatusOf(const std::string& mailbox) {
    auto statuses = StatusOf(std::vector<std::string>{mailbox});
    if (!statuses.ok()) return statuses.error();
    return std::move(statuses.value().front());
}

Result<std::vector<Result<MailboxStatus>>> Client::StatusOf(
    const std::vector<std::string>& mailboxes) {
    std::unordered_map<std::string, std::optional<MailboxStatus>> told;
    std::vector<Command> commands;
    const std::string items = StatusItems(*this);
    for (const std::string& mailbox : mailboxes) {
        told.emplace(Identity(mailbox), std::nullopt);
        commands.emplace_back("STATUS");
        commands.back().Text(mailbox).Words(items);
    }
    auto answers = session_->AskAll(std::move(commands), [&told](Reply& reply) {
        if (const auto* const status = std::get_if<StatusReply>(&reply)) {
            const auto found = told.find(Identity(status->mailbox));
            if (found != told.end()) found->second = ToStatus(*status);
        }
        return Status();
    });
    if (!answers.ok()) return answers.error();
    std::vector<Result<MailboxStatus>> statuses;
    for (std::size_t at = 0; at < mailboxes.size(); ++at) {
        const Status accepted = session_->Accept(answers.value()[at]);
        const std::optional<MailboxStatus>& status = told[Identity(mailboxes[at])];
        if (!accepted.ok()) {
            statuses.emplace_back(accepted.error());
        } else if (!status) {
            statuses.emplace_back(session_->Malformed("the status of a mailbox is missing"));
        } else {
            statuses.emplace_back(*status);
        }
    }
    return statuses;
}

Status Client::Create(const std::string& mailbox) {
    Command command("CREATE");
    command.Text(mailbox);
    Status created = session_->Do(std::move(command), Session::Effect::kWrites);
    if (created.ok() || !connected() || !refusal().code.empty()) return created;
    // Some servers only say in words why not.
    const Refusal why = refusal();
    const bool exists = StatusOf(mailbox).ok();
    if (!connected()) return created;
    session_->SetRefusal(why);
    return exists ? MessagingError(kCollision, host() + ": " + why.text) : created;
}

}  // namespace trevix::imap
