// ProfileProvider: opens the stores that a log-on asks for: by profile name, by address, or by
// server and alias.
//
// It knows no kind of store itself: whoever builds it hands over one factory for each address
// scheme ("maildir"), and one for mailboxes on servers.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/mail_store.h"
#include "platform/profiles/profile_file.h"

namespace trevix::profiles {

// Opens the store of an address of its scheme.
using StoreFactory = std::function<Result<std::unique_ptr<MailStore>>(const std::string& address)>;

// Opens the mailbox of the user `alias` of a server. A server has more forms than an address of one
// can have, so the two are not put together here.
using ServerFactory = std::function<Result<std::unique_ptr<MailStore>>(const std::string& server,
                                                                       const std::string& alias)>;

struct StoreFactories {
    std::map<std::string, StoreFactory> by_scheme;
    ServerFactory on_server;  // empty: there are no servers
};

class ProfileProvider final : public MailStoreProvider {
 public:
    ProfileProvider(ProfileFile file, StoreFactories factories)
        : file_(std::move(file)), factories_(std::move(factories)) {}

    // Besides the errors of the port and those of the factories: kMalformed for a profile file with
    // a syntax error. A mailbox on a server belongs to its alias, all else to the login name unless
    // the profile says more.
    Result<OpenedProfile> Open(const std::string& profile_name,
                               const std::string& profile_info) override;

 private:
    Result<std::unique_ptr<MailStore>> OpenStore(const std::string& address);
    Result<OpenedProfile> OpenNamed(const std::string& name);
    Result<OpenedProfile> OpenOnServer(const std::string& server_and_alias);

    ProfileFile file_;
    StoreFactories factories_;
};

// The name under which this process's user logs in.
std::string LoginName();

}  // namespace trevix::profiles
