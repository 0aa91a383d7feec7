#include "platform/imap/open_imap_store.h"

#include <cstdlib>
#include <string>
#include <thread>
#include <utility>

#include "platform/errors.h"

namespace trevix::imap {

Connector ConnectorFor(const ServerSettings& settings, SecretReader secret) {
    return [settings, secret = std::move(secret)]() -> Result<std::unique_ptr<Client>> {
        // First the server, then the secret: a command that asks a person is not run in vain.
        Result<std::unique_ptr<Client>> client = Client::Connect(settings.connection);
        if (!client.ok()) return client.error();
        const Result<Secret> password = secret();
        if (!password.ok()) return password.error();
        Credentials credentials;
        credentials.method = settings.method;
        credentials.user = settings.login;
        credentials.authorisation = settings.authorisation;
        credentials.secret = password.value().text();
        const Status logged_in = client.value()->LogIn(credentials);
        if (!logged_in.ok()) return logged_in.error();
        return client;
    };
}

std::string StateDirectory() {
    const char* configured = std::getenv("XDG_STATE_HOME");
    if (configured != nullptr && configured[0] == '/') return std::string(configured) + "/trevix";
    const char* home = std::getenv("HOME");
    if (home == nullptr || home[0] != '/') return {};
    return std::string(home) + "/.local/state/trevix";
}

Result<std::unique_ptr<MailStore>> OpenImapStore(const ServerSettings& settings,
                                                 Leftovers leftovers, Tell tell, Clock& clock) {
    StorePlan plan;
    plan.address = settings.address;
    plan.display_name = settings.user;
    plan.hidden_mailbox = settings.hidden_mailbox;
    plan.journal_directory = StateDirectory();
    plan.spool_directory = settings.connection.spool_directory;
    plan.leftovers = leftovers;
    plan.tell = std::move(tell);
    SecretReader secret = [source = settings.secret] { return ReadSecret(source); };
    auto store = OpenImapStore(
        std::move(plan), ConnectorFor(settings, std::move(secret)),
        [](std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }, clock);
    if (store.ok()) return store;
    // As every store that cannot be opened; the reason is what helps.
    const bool denied = store.error().kind == ErrorKind::kDenied;
    Error error =
        MessagingError(denied ? kLogonFailed : kFailOneProvider, store.error().description);
    return error;
}

}  // namespace trevix::imap
