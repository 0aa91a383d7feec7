// The conversation under a Client: sends commands, reads replies until the answers are there, hands
// out what was fetched, and knows what the server has told.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/imap/client.h"
#include "platform/imap/command.h"
#include "platform/imap/fetch_job.h"
#include "platform/imap/reply.h"
#include "platform/imap/reply_parser.h"
#include "platform/imap/scanner.h"
#include "platform/imap/spool.h"
#include "platform/imap/transport.h"

namespace trevix::imap {

class Session final : private ContentRules {
 public:
    // Sees the replies to a command that are not FETCH. A failure gives up the connection.
    using Handler = std::function<Status(Reply&)>;
    enum class Effect { kReads, kWrites };

    explicit Session(const ConnectSettings& settings);
    ~Session() override;

    // Connects, up to the greeting and the capabilities.
    Status Open();

    // A command and its answer, whatever it is; what was started before is finished first.
    Result<Condition> Ask(Command command, Effect effect = Effect::kReads,
                          const Handler& handler = {});

    // The same for an answer that has to be OK.
    Status Do(Command command, Effect effect = Effect::kReads, const Handler& handler = {});

    // A command and its answer, with a request for messages sent behind it in the same go. What the
    // request brings comes after the answer, in Finish() of the ticket.
    Result<Condition> AskThenFetch(Command command, const Handler& handler,
                                   const FetchRequest& request, FetchSink sink,
                                   Client::Ticket& ticket);

    // Many at once. The outer error is a lost connection.
    Result<std::vector<Condition>> AskAll(std::vector<Command> commands, const Handler& handler);

    // `response` is base64 already.
    Result<Condition> Authenticate(const std::string& mechanism, std::string_view response);

    Result<Client::Ticket> StartFetch(const FetchRequest& wanted, FetchSink sink,
                                      bool vanished = false);
    // With VANISHED; the handler sees what it tells.
    Status FetchChanges(const FetchRequest& request, FetchSink sink, const Handler& handler);
    Status Finish(Client::Ticket ticket);
    Status FinishAll();

    // An answer that is not OK as an error, and remembered as the last refusal.
    Status Accept(const Condition& answer);
    Status Refuse(const Condition& answer, Error error);

    // Asks for the capabilities unless they were told since ForgetCapabilities().
    Status LearnCapabilities();
    void ForgetCapabilities() { capabilities_told_ = false; }
    bool Offers(std::string_view capability) const;

    // Ends it. What comes later fails with the same error.
    Error GiveUp(Error error);
    void Close();

    void SetDeadline(std::optional<std::chrono::milliseconds> in) { transport_->SetDeadline(in); }
    bool connected() const { return !lost_.has_value(); }
    const ConnectSettings& settings() const { return settings_; }
    const std::string& host() const { return settings_.host; }
    const Refusal& refusal() const { return refusal_; }
    void SetRefusal(Refusal refusal) { refusal_ = std::move(refusal); }
    bool fate_unknown() const { return fate_unknown_; }
    bool preauthenticated() const { return preauthenticated_; }
    std::optional<AppendedMail> TakeAppended() { return std::exchange(appended_, std::nullopt); }
    void ForgetAppended() { appended_.reset(); }
    News TakeNews();
    void ForgetNewsOfMailbox();

    Error Malformed(const char* what) const;
    Error Unsupported(const char* what) const;

    std::string selected;  // wire name of the selected mailbox; empty: none

 private:
    struct Pending {
        std::size_t bytes = 0;
        std::shared_ptr<FetchJob> job;    // of a FETCH that was started
        std::optional<Condition> answer;  // kept until somebody takes it
    };

    bool Wants(const FetchedSection& section) const override;
    std::uint64_t most_content_bytes() const override;

    Status OpenTransport();
    Status TakeGreeting();
    Status SwitchToTls();

    FetchRequest Offered(FetchRequest request) const;
    Status Ready() const;
    std::uint64_t Begin(std::size_t bytes, std::shared_ptr<FetchJob> job);
    Status Send(const Command& command, std::uint64_t id, Effect effect);
    Status SendLiteral(const Command::Piece& piece, std::uint64_t id, bool last, Effect effect);
    Status SendContent(const Blob& content, bool last, Effect effect);
    Status MakeRoom(std::size_t bytes);
    Status Put(std::string_view bytes);
    Status Flush();
    Status WriteFailed(const Error& error);

    // Until the server asks for more (true) or has answered the command (false).
    Result<bool> AwaitContinuation(std::uint64_t id);
    Result<Condition> Await(std::uint64_t id);

    Status ReadOne();
    Status Take(Reply& reply);
    Status TakeAnswer(TaggedReply& reply);
    void TakeCondition(const Condition& condition);
    void TakeVanished(const VanishedReply& vanished);
    void Deliver(FetchedMessage message);

    ConnectSettings settings_;
    std::unique_ptr<Transport> transport_;
    std::unique_ptr<Scanner> scanner_;
    Spool spool_;
    std::string out_;

    std::map<std::uint64_t, Pending> pending_;  // by the number in their tags
    std::map<Client::Ticket, std::shared_ptr<FetchJob>> jobs_;
    std::uint64_t next_id_ = 1;
    std::size_t pending_bytes_ = 0;
    std::uint64_t replies_ = 0;  // since the last answer
    bool awaiting_continuation_ = false;
    bool continuation_came_ = false;
    bool in_sink_ = false;
    const Handler* handler_ = nullptr;

    std::set<std::string, std::less<>> capabilities_;
    bool capabilities_told_ = false;
    bool preauthenticated_ = false;
    std::optional<AppendedMail> appended_;
    News news_;  // without what has vanished
    UidCollector vanished_;
    std::string bye_;
    Refusal refusal_;
    bool fate_unknown_ = false;
    std::optional<Error> lost_;
};

// "38505 3955", the arguments of APPENDUID.
std::optional<AppendedMail> ParseAppendUid(std::string_view arguments);

}  // namespace trevix::imap
