#include "assembly/open_stores.h"

#include <utility>

#include "platform/associated/associated_store.h"
#include "platform/errors.h"
#include "platform/imap/open_imap_store.h"
#include "platform/imap/server_settings.h"
#include "platform/maildir/maildir_store.h"

namespace trevix::assembly {
namespace {

using OpenedStore = Result<std::unique_ptr<MailStore>>;

OpenedStore OpenMaildir(const std::string& address, const StorePlan& plan, Clock& clock) {
    const std::string path = address.substr(address.find(':') + 1);
    if (!path.starts_with('/')) {
        return MessagingError(kLogonFailed, address + ": the path must be absolute");
    }
    return maildir::OpenMaildir(
        path, std::make_unique<associated::AssociatedStore>(path, clock), clock,
        plan.looks_only ? maildir::Leftovers::kLeave : maildir::Leftovers::kFinish);
}

OpenedStore OpenMailbox(const imap::ServerSettings& settings, const StorePlan& plan, Clock& clock) {
    return imap::OpenImapStore(settings,
                               plan.looks_only ? imap::Leftovers::kLeave : imap::Leftovers::kFinish,
                               plan.tell, clock);
}

// `named` says which mailbox, in the words of whoever asked for it.
OpenedStore OpenOnServer(const Result<imap::ServerAddress>& address, const std::string& named,
                         const StorePlan& plan, Clock& clock) {
    if (!address.ok()) {
        return Error{address.error().kind, address.error().number,
                     named + ": " + address.error().description};
    }
    const auto settings = imap::ServerFile(imap::ServerFilePath()).For(address.value());
    if (!settings.ok()) return settings.error();
    return OpenMailbox(settings.value(), plan, clock);
}

OpenedStore Admitted(OpenedStore store, const StorePlan& plan, Clock& clock) {
    if (!store.ok() || !plan.admit) return store;
    return plan.admit(std::move(store).value(), clock);
}

}  // namespace

profiles::StoreFactories FactoriesFor(const StorePlan& plan, Clock& clock) {
    profiles::StoreFactories factories;
    factories.by_scheme["maildir"] = [plan, &clock](const std::string& address) {
        return Admitted(OpenMaildir(address, plan, clock), plan, clock);
    };
    for (const char* scheme : {"imap", "imaps"}) {
        factories.by_scheme[scheme] = [plan, &clock](const std::string& address) {
            // An address that cannot be read may hold a password.
            const auto parsed = imap::ParseAddress(address);
            return Admitted(OpenOnServer(parsed, "store address", plan, clock), plan, clock);
        };
    }
    factories.on_server = [plan, &clock](const std::string& server, const std::string& alias) {
        const auto parsed = imap::ParseServerAndUser(server, alias);
        return Admitted(OpenOnServer(parsed, alias + " on " + server, plan, clock), plan, clock);
    };
    return factories;
}

}  // namespace trevix::assembly
