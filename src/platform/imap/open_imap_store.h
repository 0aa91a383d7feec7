// Opening a store as a person has configured its server.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/imap/imap_store.h"
#include "platform/imap/secret_source.h"
#include "platform/imap/server_settings.h"
#include "platform/mail_store.h"

namespace trevix::imap {

// Gives a connection that is logged in, the password read anew each time.
Connector ConnectorFor(const ServerSettings& settings, SecretReader secret);

// $XDG_STATE_HOME/trevix, by default below ~/.local/state; without a home there is none.
std::string StateDirectory();

using Tell = std::function<void(const std::string& sentence)>;

// The journal lies in StateDirectory(). Errors name the server and say what to do. `tell` as in
// StorePlan.
Result<std::unique_ptr<MailStore>> OpenImapStore(const ServerSettings& settings,
                                                 Leftovers leftovers, Tell tell, Clock& clock);

}  // namespace trevix::imap
