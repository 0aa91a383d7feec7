// ProfileProvider: opens the stores that a log-on asks for, by profile name or by address.
//
// It knows no kind of store itself: whoever builds it hands over one factory for each address
// scheme ("maildir"), which gets what follows the colon.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "platform/mail_store.h"
#include "platform/profiles/profile_file.h"

namespace trevix::profiles {

using StoreFactory = std::function<Result<std::unique_ptr<MailStore>>(const std::string& path)>;

class ProfileProvider final : public MailStoreProvider {
 public:
    ProfileProvider(ProfileFile file, std::map<std::string, StoreFactory> factories)
        : file_(std::move(file)), factories_(std::move(factories)) {}

    // Besides the errors of the port: kUnsupported (80040102) for IMAP addresses and for a server
    // with an alias, kMalformed for a profile file with a syntax error.
    Result<OpenedProfile> Open(const std::string& profile_name,
                               const std::string& profile_info) override;

 private:
    Result<std::unique_ptr<MailStore>> OpenStore(const std::string& address);
    Result<OpenedProfile> OpenNamed(const std::string& name);

    ProfileFile file_;
    std::map<std::string, StoreFactory> factories_;
};

// The name under which this process's user logs in.
std::string LoginName();

}  // namespace trevix::profiles
