#include "platform/profiles/profile_provider.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>

#include "platform/errors.h"

namespace trevix::profiles {
namespace {

constexpr const char* kNoImap = "IMAP stores are not part of this version";

Error NoImap(const std::string& what) {
    return MessagingError(kNoSupport, what + ": " + kNoImap);
}

// What stands in front of the first colon; a profile's name holds none.
std::string SchemeOf(const std::string& name) {
    const std::size_t colon = name.find(':');
    return colon == std::string::npos ? std::string() : name.substr(0, colon);
}

}  // namespace

Result<OpenedProfile> ProfileProvider::Open(const std::string& profile_name,
                                            const std::string& profile_info) {
    if (profile_name.empty()) {
        std::string named = profile_info;
        std::replace(named.begin(), named.end(), '\n', ' ');
        return NoImap(named);
    }
    if (SchemeOf(profile_name).empty()) return OpenNamed(profile_name);

    auto store = OpenStore(profile_name);
    if (!store.ok()) return store.error();
    OpenedProfile opened;
    opened.user_name = LoginName();
    opened.stores.push_back(std::move(store).value());
    return opened;
}

Result<OpenedProfile> ProfileProvider::OpenNamed(const std::string& name) {
    const auto profile = file_.Find(name);
    if (!profile.ok() && profile.error().kind == ErrorKind::kNotFound) {
        return MessagingError(kLogonFailed, profile.error().description);
    }
    if (!profile.ok()) return profile.error();

    OpenedProfile opened;
    opened.user_name = profile.value().user.empty() ? LoginName() : profile.value().user;
    for (const std::string& address : profile.value().stores) {
        if (address == profile.value().inbox) opened.inbox_store = opened.stores.size();
        auto store = OpenStore(address);
        if (!store.ok()) return store.error();
        opened.stores.push_back(std::move(store).value());
    }
    return opened;
}

Result<std::unique_ptr<MailStore>> ProfileProvider::OpenStore(const std::string& address) {
    const std::string scheme = SchemeOf(address);
    if (scheme == "imap" || scheme == "imaps") return NoImap(address);
    const auto factory = factories_.find(scheme);
    if (factory == factories_.end()) {
        return MessagingError(kLogonFailed, address + ": no store of this kind");
    }
    const std::string path = address.substr(scheme.size() + 1);
    if (!path.starts_with('/')) {
        return MessagingError(kLogonFailed, address + ": the path must be absolute");
    }
    return factory->second(path);
}

std::string LoginName() {
    const passwd* entry = ::getpwuid(::geteuid());
    if (entry != nullptr && entry->pw_name != nullptr && *entry->pw_name != '\0') {
        return entry->pw_name;
    }
    return std::to_string(::geteuid());
}

}  // namespace trevix::profiles
