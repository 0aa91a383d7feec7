#include "platform/imap/session.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/ascii.h"
#include "platform/imap/refusal_error.h"

namespace trevix::imap {
namespace {

// Commands that are sent ahead of their answers. A server that does not read while it writes still
// finds room for this much in the buffers between.
constexpr std::size_t kMostBytesAhead = std::size_t{32} * 1024;

// Larger content waits until the server is willing: it costs a round trip, and spares the sending
// of what would be refused.
constexpr std::uint64_t kMostUnaskedBytes = std::uint64_t{1} << 20;
constexpr std::uint64_t kMostUnaskedSmall = 4096;  // LITERAL-

constexpr std::size_t kSendBytes = std::size_t{16} * 1024;
constexpr std::size_t kMostVanished = 10'000;
constexpr int kMostPrompts = 4;
constexpr int kMostLastWords = 100;
constexpr std::chrono::milliseconds kLastWords{1000};

std::string TagOf(std::uint64_t id) {
    return "T" + std::to_string(id);
}

template <typename Number>
bool TakeNumber(std::string_view& text, Number& number) {
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    const auto [stop, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return problem == std::errc();
}

}  // namespace

std::optional<AppendedMail> ParseAppendUid(std::string_view arguments) {
    AppendedMail mail;
    if (!TakeNumber(arguments, mail.uid_validity) || !TakeNumber(arguments, mail.uid)) {
        return std::nullopt;
    }
    return mail.uid != 0 && arguments.empty() ? std::optional(mail) : std::nullopt;
}

Session::Session(const ConnectSettings& settings)
    : settings_(settings), spool_(settings.spool_directory), vanished_(kMostVanished) {}

Session::~Session() = default;

Error Session::Malformed(const char* what) const {
    return MessagingError(kCorruptData,
                          host() + ": the server's reply cannot be understood: " + what);
}

Error Session::Unsupported(const char* what) const {
    return MessagingError(kNoSupport, host() + ": the server does not offer " + what);
}

// Opening

Status Session::Open() {
    TREVIX_RETURN_IF_ERROR(OpenTransport());
    SetDeadline(settings_.limits.handshake);
    TREVIX_RETURN_IF_ERROR(TakeGreeting());
    if (settings_.security == Security::kStartTls) TREVIX_RETURN_IF_ERROR(SwitchToTls());
    TREVIX_RETURN_IF_ERROR(LearnCapabilities());
    SetDeadline({});
    return {};
}

Status Session::OpenTransport() {
    auto opened = Transport::Connect(settings_);
    if (!opened.ok()) return GiveUp(opened.error());
    transport_ = std::move(opened).value();
    scanner_ = std::make_unique<Scanner>(*transport_, host(), settings_.limits.kept_bytes,
                                         settings_.limits.skipped_bytes);
    if (settings_.security != Security::kTls) return {};
    SetDeadline(settings_.limits.handshake);
    const Status secured = transport_->StartTls(settings_);
    return secured.ok() ? secured : GiveUp(secured.error());
}

Status Session::TakeGreeting() {
    Result<Reply> reply = ReadReply(*scanner_, spool_, *this);
    if (!reply.ok()) return GiveUp(reply.error());
    const auto* const greeting = std::get_if<ConditionReply>(&reply.value());
    if (greeting == nullptr) return GiveUp(Malformed("it does not begin with a greeting"));
    const Condition& condition = greeting->condition;
    switch (condition.kind) {
        case Condition::Kind::kOk: break;
        case Condition::Kind::kPreauth: preauthenticated_ = true; break;
        case Condition::Kind::kBye:
            // Whatever the reason, another time may be better.
            return GiveUp(MessagingError(kNetworkError, host() + ": the server does not want us: " +
                                                            CleanWords(condition.text)));
        default: return GiveUp(Malformed("its greeting is a refusal"));
    }
    TakeCondition(condition);
    return {};
}

Status Session::SwitchToTls() {
    if (preauthenticated_) {
        return GiveUp(MessagingError(kNoAccess, host() + ": the server knows us before the "
                                                         "connection is encrypted; that is not "
                                                         "accepted"));
    }
    TREVIX_RETURN_IF_ERROR(LearnCapabilities());
    if (!Offers("STARTTLS")) {
        return GiveUp(
            MessagingError(kNoAccess, host() + ": the server offers no encryption (STARTTLS)"));
    }
    const Result<Condition> answer = Ask(Command("STARTTLS"));
    if (!answer.ok()) return answer.error();
    if (answer.value().kind != Condition::Kind::kOk) {
        return GiveUp(MessagingError(kNoAccess, host() + ": the server refused encryption: " +
                                                    CleanWords(answer.value().text)));
    }
    // Whoever sits between could have put it there, to be taken for the server's encrypted words.
    if (scanner_->buffered() > 0) {
        return GiveUp(Malformed("there is something between STARTTLS and the handshake"));
    }
    const Status secured = transport_->StartTls(settings_);
    if (!secured.ok()) return GiveUp(secured.error());
    scanner_ = std::make_unique<Scanner>(*transport_, host(), settings_.limits.kept_bytes,
                                         settings_.limits.skipped_bytes);
    // What was told in the clear may have been told by anybody.
    capabilities_.clear();
    ForgetCapabilities();
    TakeNews();
    bye_.clear();
    return {};
}

Status Session::LearnCapabilities() {
    if (capabilities_told_) return {};
    TREVIX_RETURN_IF_ERROR(Do(Command("CAPABILITY")));
    if (!capabilities_told_) return GiveUp(Malformed("the capabilities are missing"));
    return {};
}

bool Session::Offers(std::string_view capability) const {
    return capabilities_.count(UpperCase(capability)) > 0;
}

// Asking

Status Session::Ready() const {
    if (lost_) return *lost_;
    if (in_sink_) {
        return MessagingError(kCallFailed, host() + ": called from within a fetch");
    }
    return {};
}

std::uint64_t Session::Begin(std::size_t bytes, std::shared_ptr<FetchJob> job) {
    const std::uint64_t id = next_id_++;
    pending_bytes_ += bytes;
    pending_.emplace(id, Pending{bytes, std::move(job), {}});
    return id;
}

Result<Condition> Session::Ask(Command command, Effect effect, const Handler& handler) {
    TREVIX_RETURN_IF_ERROR(Ready());
    if (effect == Effect::kWrites) fate_unknown_ = false;
    if (!command.valid()) {
        return MessagingError(kInvalidParameter, host() + ": a name or flag cannot be sent");
    }
    TREVIX_RETURN_IF_ERROR(FinishAll());
    handler_ = handler ? &handler : nullptr;
    const std::uint64_t id = Begin(command.bytes(), {});
    const Status sent = Send(command, id, effect);
    Result<Condition> answer = sent.ok() ? Await(id) : Result<Condition>(sent.error());
    handler_ = nullptr;
    if (answer.ok()) fate_unknown_ = false;
    return answer;
}

Status Session::Do(Command command, Effect effect, const Handler& handler) {
    const Result<Condition> answer = Ask(std::move(command), effect, handler);
    if (!answer.ok()) return answer.error();
    return Accept(answer.value());
}

Result<Condition> Session::AskThenFetch(Command command, const Handler& handler,
                                        const FetchRequest& request, FetchSink sink,
                                        Client::Ticket& ticket) {
    if (!command.valid()) {
        return MessagingError(kInvalidParameter, host() + ": a name or flag cannot be sent");
    }
    TREVIX_RETURN_IF_ERROR(FinishAll());
    handler_ = &handler;
    const std::uint64_t id = Begin(command.bytes(), {});
    Status status = Send(command, id, Effect::kReads);
    if (status.ok()) {
        const Result<Client::Ticket> started = StartFetch(request, std::move(sink));
        if (started.ok()) ticket = started.value();
        if (!started.ok()) status = started.error();
    }
    Result<Condition> answer = status.ok() ? Await(id) : Result<Condition>(status.error());
    handler_ = nullptr;
    return answer;
}

Result<std::vector<Condition>> Session::AskAll(std::vector<Command> commands,
                                               const Handler& handler) {
    TREVIX_RETURN_IF_ERROR(Ready());
    TREVIX_RETURN_IF_ERROR(FinishAll());
    std::vector<Condition> answers;
    handler_ = &handler;
    Status status;
    std::vector<std::uint64_t> ids;
    for (std::size_t at = 0; at < commands.size() && status.ok(); ++at) {
        if (!commands[at].valid()) continue;
        status = MakeRoom(commands[at].bytes());
        if (!status.ok()) break;
        ids.push_back(Begin(commands[at].bytes(), {}));
        status = Send(commands[at], ids.back(), Effect::kReads);
    }
    std::size_t next = 0;
    for (const Command& command : commands) {
        if (!status.ok()) break;
        if (!command.valid()) {
            answers.push_back({Condition::Kind::kNo, {}, {}, "the name cannot be sent"});
            continue;
        }
        Result<Condition> answer = Await(ids[next++]);
        if (!answer.ok()) {
            status = answer.error();
        } else {
            answers.push_back(std::move(answer).value());
        }
    }
    handler_ = nullptr;
    if (!status.ok()) return status.error();
    return answers;
}

Status Session::Accept(const Condition& answer) {
    if (answer.kind == Condition::Kind::kOk) return {};
    return Refuse(answer, RefusalError(host(), answer));
}

Status Session::Refuse(const Condition& answer, Error error) {
    refusal_ = {answer.code, CleanWords(answer.text)};
    return error;
}

Result<Condition> Session::Authenticate(const std::string& mechanism, std::string_view response) {
    TREVIX_RETURN_IF_ERROR(Ready());
    TREVIX_RETURN_IF_ERROR(FinishAll());
    const std::uint64_t id = Begin(response.size(), {});
    bool given = Offers("SASL-IR");
    out_.reserve(kSendBytes + response.size());
    std::string line = TagOf(id) + " AUTHENTICATE " + mechanism;
    TREVIX_RETURN_IF_ERROR(Put(line));
    if (given) {
        TREVIX_RETURN_IF_ERROR(Put(" "));
        TREVIX_RETURN_IF_ERROR(Put(response));
    }
    TREVIX_RETURN_IF_ERROR(Put("\r\n"));
    for (int prompts = 0;; ++prompts) {
        TREVIX_RETURN_IF_ERROR(Flush());
        const Result<bool> more = AwaitContinuation(id);
        if (!more.ok()) return more.error();
        if (!more.value()) return Await(id);
        if (prompts == kMostPrompts) return GiveUp(Malformed("the log-in does not end"));
        // What a server asks after it has the response are the details of its refusal; an empty
        // line lets it go on.
        if (!given) TREVIX_RETURN_IF_ERROR(Put(response));
        TREVIX_RETURN_IF_ERROR(Put("\r\n"));
        given = true;
    }
}

// Fetching

Status Session::FetchChanges(const FetchRequest& request, FetchSink sink, const Handler& handler) {
    TREVIX_RETURN_IF_ERROR(FinishAll());
    handler_ = &handler;
    const Result<Client::Ticket> ticket = StartFetch(request, std::move(sink), true);
    Status status = ticket.ok() ? Finish(ticket.value()) : Status(ticket.error());
    handler_ = nullptr;
    return status;
}

// Servers refuse the whole request over an item that they do not know.
FetchRequest Session::Offered(FetchRequest request) const {
    request.modseq = request.modseq && (Offers("CONDSTORE") || Offers("QRESYNC"));
    request.save_date = request.save_date && Offers("SAVEDATE");
    request.email_id = request.email_id && Offers("OBJECTID");
    return request;
}

Result<Client::Ticket> Session::StartFetch(const FetchRequest& wanted, FetchSink sink,
                                           bool vanished) {
    TREVIX_RETURN_IF_ERROR(Ready());
    const FetchRequest request = Offered(wanted);
    std::vector<Command> commands;
    for (std::string& text : FetchCommands(request, vanished)) {
        commands.emplace_back(std::move(text));
        if (!commands.back().valid()) {
            return MessagingError(kInvalidParameter, host() + ": a section cannot be asked for");
        }
    }
    const auto job = std::make_shared<FetchJob>(request, std::move(sink));
    const Client::Ticket ticket = next_id_++;
    jobs_.emplace(ticket, job);
    // Before anything can come, for a command that is sent early may be answered early.
    job->open_commands = commands.size();
    for (const Command& command : commands) {
        Status sent = MakeRoom(command.bytes());
        if (sent.ok()) sent = Send(command, Begin(command.bytes(), job), Effect::kReads);
        if (!sent.ok()) {
            jobs_.erase(ticket);
            return sent.error();
        }
    }
    return ticket;
}

Status Session::Finish(Client::Ticket ticket) {
    if (in_sink_) return Ready();
    const auto found = jobs_.find(ticket);
    if (found == jobs_.end()) {
        return lost_ ? *lost_ : MessagingError(kInvalidParameter, host() + ": no such fetch");
    }
    const std::shared_ptr<FetchJob> job = found->second;
    jobs_.erase(found);
    while (job->open_commands > 0) {
        TREVIX_RETURN_IF_ERROR(ReadOne());
    }
    if (job->sink_error()) return *job->sink_error();
    return job->refusal ? Accept(*job->refusal) : Status();
}

Status Session::FinishAll() {
    TREVIX_RETURN_IF_ERROR(Ready());
    while (!pending_.empty()) {
        TREVIX_RETURN_IF_ERROR(ReadOne());
    }
    return {};
}

Status Session::MakeRoom(std::size_t bytes) {
    const auto full = [this, bytes] {
        return std::count_if(pending_.begin(), pending_.end(),
                             [](const auto& entry) { return !entry.second.answer; }) >=
                   static_cast<std::ptrdiff_t>(
                       std::max<std::size_t>(settings_.limits.in_flight, 1)) ||
               (pending_bytes_ > 0 && pending_bytes_ + bytes > kMostBytesAhead);
    };
    while (full()) {
        TREVIX_RETURN_IF_ERROR(ReadOne());
    }
    return {};
}

bool Session::Wants(const FetchedSection& section) const {
    return std::any_of(pending_.begin(), pending_.end(), [&section](const auto& entry) {
        return entry.second.job != nullptr && entry.second.job->Wants(section);
    });
}

std::uint64_t Session::most_content_bytes() const {
    std::uint64_t most = settings_.limits.kept_bytes;
    for (const auto& [id, pending] : pending_) {
        if (pending.job != nullptr) most = std::max(most, pending.job->most_content_bytes());
    }
    return most;
}

void Session::Deliver(FetchedMessage message) {
    for (auto& [id, pending] : pending_) {
        if (pending.job == nullptr || !pending.job->Takes(message)) continue;
        // The commands of one request share it, and it may hold the last reference to itself.
        const std::shared_ptr<FetchJob> job = pending.job;
        in_sink_ = true;
        job->Deliver(std::move(message));
        in_sink_ = false;
        return;
    }
    if (message.flags) news_.flags_changed = true;
}

// Sending

Status Session::Put(std::string_view bytes) {
    out_.append(bytes);
    return out_.size() >= kSendBytes ? Flush() : Status();
}

Status Session::Flush() {
    if (lost_) return *lost_;
    const Status written = transport_->Write(out_.data(), out_.size());
    Wipe(out_);  // there may have been a password in it
    return written.ok() ? written : WriteFailed(written.error());
}

// What the server said before it hung up tells more than that writing has failed.
Status Session::WriteFailed(const Error& error) {
    SetDeadline(kLastWords);
    for (int read = 0; read < kMostLastWords; ++read) {
        TREVIX_RETURN_IF_ERROR(ReadOne());
    }
    return GiveUp(error);
}

Status Session::Send(const Command& command, std::uint64_t id, Effect effect) {
    // In one piece, so that growing leaves no copy of it behind.
    out_.reserve(kSendBytes + command.bytes());
    TREVIX_RETURN_IF_ERROR(Put(TagOf(id) + " "));
    const auto& pieces = command.pieces();
    for (std::size_t at = 0; at < pieces.size(); ++at) {
        if (!pieces[at].literal) {
            TREVIX_RETURN_IF_ERROR(Put(pieces[at].words));
            continue;
        }
        TREVIX_RETURN_IF_ERROR(SendLiteral(pieces[at], id, at + 1 == pieces.size(), effect));
        // Refused before it was sent: the rest is not wanted.
        if (pending_.at(id).answer) return {};
    }
    if (effect == Effect::kWrites) fate_unknown_ = true;
    TREVIX_RETURN_IF_ERROR(Put("\r\n"));
    return Flush();
}

Status Session::SendLiteral(const Command::Piece& piece, std::uint64_t id, bool last,
                            Effect effect) {
    const std::uint64_t size =
        piece.content ? piece.content->size_bytes() : std::uint64_t{piece.words.size()};
    const bool unasked = (Offers("LITERAL+") && size <= kMostUnaskedBytes) ||
                         (Offers("LITERAL-") && size <= kMostUnaskedSmall);
    TREVIX_RETURN_IF_ERROR(Put("{" + std::to_string(size) + (unasked ? "+}\r\n" : "}\r\n")));
    if (!unasked) {
        TREVIX_RETURN_IF_ERROR(Flush());
        const Result<bool> wanted = AwaitContinuation(id);
        if (!wanted.ok()) return wanted.error();
        if (!wanted.value()) {
            if (pending_.at(id).answer->kind != Condition::Kind::kOk) return {};
            return GiveUp(Malformed("it says done before it has the text"));
        }
    }
    return piece.content ? SendContent(*piece.content, last, effect) : Put(piece.words);
}

Status Session::SendContent(const Blob& content, bool last, Effect effect) {
    TREVIX_RETURN_IF_ERROR(Flush());
    std::uint64_t left = content.size_bytes();
    const Status sent = content.ForEachPiece([&](const char* bytes, std::size_t count) -> Status {
        left -= count;
        // From here on the server may have all that it needs.
        if (left == 0 && last && effect == Effect::kWrites) fate_unknown_ = true;
        Status written = transport_->Write(bytes, count);
        return written.ok() ? written : WriteFailed(written.error());
    });
    // Bytes were promised that are not to be had, so the conversation cannot go on.
    return sent.ok() || lost_ ? sent : Status(GiveUp(sent.error()));
}

Result<bool> Session::AwaitContinuation(std::uint64_t id) {
    awaiting_continuation_ = true;
    continuation_came_ = false;
    Status status;
    while (status.ok() && !continuation_came_ && !pending_.at(id).answer) {
        status = ReadOne();
    }
    awaiting_continuation_ = false;
    if (!status.ok()) return status.error();
    return continuation_came_;
}

Result<Condition> Session::Await(std::uint64_t id) {
    while (!pending_.at(id).answer) {
        TREVIX_RETURN_IF_ERROR(ReadOne());
    }
    Condition answer = *std::move(pending_.at(id).answer);
    pending_.erase(id);
    return answer;
}

News Session::TakeNews() {
    News news = std::exchange(news_, News());
    news.vanished_incomplete = !vanished_.complete();
    news.vanished = vanished_.Take();
    vanished_ = UidCollector(kMostVanished);
    return news;
}

void Session::ForgetNewsOfMailbox() {
    std::vector<std::string> alerts = std::move(news_.alerts);
    TakeNews();
    news_.alerts = std::move(alerts);
}

// Ending

Error Session::GiveUp(Error error) {
    if (lost_) return *lost_;
    if (!bye_.empty() && error.kind == ErrorKind::kIo) {
        error =
            MessagingError(kNetworkError, host() + ": the server ended the connection: " + bye_);
    }
    lost_ = std::move(error);
    Close();
    return *lost_;
}

void Session::Close() {
    if (!lost_) lost_ = MessagingError(kNetworkError, host() + ": the connection is closed");
    Wipe(out_);
    selected.clear();
    if (transport_ != nullptr) transport_->Close();
}

}  // namespace trevix::imap
