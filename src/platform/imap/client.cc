#include "platform/imap/client.h"

#include <algorithm>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/ascii.h"
#include "platform/imap/refusal_error.h"
#include "platform/imap/session.h"
#include "platform/imap/wiped_text.h"

namespace trevix::imap {
namespace {

constexpr std::string_view kZero("\0", 1);

// Ends the time limit of a log-in whichever way it goes.
class LoginDeadline {
 public:
    explicit LoginDeadline(Session& session) : session_(session) {
        session_.SetDeadline(session.settings().limits.handshake);
    }
    LoginDeadline(const LoginDeadline&) = delete;
    LoginDeadline& operator=(const LoginDeadline&) = delete;
    ~LoginDeadline() { session_.SetDeadline({}); }

 private:
    Session& session_;
};

bool HasZero(std::string_view text) {
    return text.find('\0') != std::string_view::npos;
}

Result<Condition> LogInPlain(Session& session, const Credentials& credentials) {
    const std::size_t size =
        credentials.authorisation.size() + credentials.user.size() + credentials.secret.size() + 2;
    WipedText message(size);
    message.Append(credentials.authorisation);
    message.Append(kZero);
    message.Append(credentials.user);
    message.Append(kZero);
    message.Append(credentials.secret);
    WipedText response(Base64Size(size));
    AppendBase64(response, message.view());
    return session.Authenticate("PLAIN", response.view());
}

Result<Condition> LogInXoauth2(Session& session, const Credentials& credentials) {
    constexpr std::string_view kUser = "user=";
    constexpr std::string_view kToken = "\1auth=Bearer ";
    constexpr std::string_view kEnd = "\1\1";
    // The protocol has no identity beside the user's; the token says who may act for whom.
    const std::string& user =
        credentials.authorisation.empty() ? credentials.user : credentials.authorisation;
    const std::size_t size =
        kUser.size() + user.size() + kToken.size() + credentials.secret.size() + kEnd.size();
    WipedText message(size);
    message.Append(kUser);
    message.Append(user);
    message.Append(kToken);
    message.Append(credentials.secret);
    message.Append(kEnd);
    WipedText response(Base64Size(size));
    AppendBase64(response, message.view());
    return session.Authenticate("XOAUTH2", response.view());
}

Result<Condition> LogInPassword(Session& session, const Credentials& credentials) {
    if (session.Offers("AUTH=PLAIN")) return LogInPlain(session, credentials);
    if (!credentials.authorisation.empty() && credentials.authorisation != credentials.user) {
        return session.Unsupported("to log in for somebody else (AUTH=PLAIN)");
    }
    if (session.Offers("LOGINDISABLED")) {
        return session.Unsupported("to log in with a password here (LOGINDISABLED)");
    }
    Command command("LOGIN");
    command.Text(credentials.user).Text(credentials.secret);
    return session.Ask(std::move(command));
}

}  // namespace

Client::Client(std::unique_ptr<Session> session) : session_(std::move(session)) {}

Client::~Client() = default;

Result<std::unique_ptr<Client>> Client::Connect(const ConnectSettings& settings) {
    auto session = std::make_unique<Session>(settings);
    TREVIX_RETURN_IF_ERROR(session->Open());
    return std::unique_ptr<Client>(new Client(std::move(session)));
}

Status Client::LogIn(const Credentials& credentials) {
    Session& session = *session_;
    if (!session.connected()) return session.GiveUp({});
    if (session.preauthenticated()) return {};
    if (HasZero(credentials.user) || HasZero(credentials.authorisation) ||
        HasZero(credentials.secret)) {
        return MessagingError(kLogonFailed, host() + ": a user name or password with a zero byte");
    }
    const LoginDeadline deadline(session);
    session.ForgetCapabilities();
    const Result<Condition> answer = credentials.method == LoginMethod::kXoauth2
                                         ? LogInXoauth2(session, credentials)
                                         : LogInPassword(session, credentials);
    if (!answer.ok()) return answer.error();
    if (answer.value().kind != Condition::Kind::kOk) {
        return session.Refuse(answer.value(), LoginError(host(), answer.value()));
    }
    return session.LearnCapabilities();
}

bool Client::connected() const {
    return session_->connected();
}

const std::string& Client::host() const {
    return session_->host();
}

const Refusal& Client::refusal() const {
    return session_->refusal();
}

bool Client::fate_unknown() const {
    return session_->fate_unknown();
}

bool Client::Offers(std::string_view capability) const {
    return session_->Offers(capability);
}

const std::string& Client::selected() const {
    return session_->selected;
}

News Client::TakeNews() {
    return session_->TakeNews();
}

Result<std::vector<std::string>> Client::Enable(const std::vector<std::string>& capabilities) {
    std::vector<std::string> enabled;
    if (!Offers("ENABLE") || capabilities.empty()) return enabled;
    Command command("ENABLE");
    for (const std::string& capability : capabilities) {
        command.Words(capability);
    }
    TREVIX_RETURN_IF_ERROR(
        session_->Do(std::move(command), Session::Effect::kReads, [&enabled](Reply& reply) {
            if (auto* const told = std::get_if<EnabledReply>(&reply)) {
                for (const std::string& word : told->capabilities) {
                    enabled.push_back(UpperCase(word));
                }
            }
            return Status();
        }));
    return enabled;
}

Status Client::Noop() {
    return session_->Do(Command("NOOP"));
}

Status Client::LogOut() {
    Status said = session_->Do(Command("LOGOUT"));
    session_->Close();
    return said;
}

}  // namespace trevix::imap
