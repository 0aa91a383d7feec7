#include "platform/profiles/profile_provider.h"

#include <pwd.h>
#include <unistd.h>

#include "platform/errors.h"

namespace trevix::profiles {
namespace {

// What stands in front of the first colon; a profile's name holds none.
std::string SchemeOf(const std::string& name) {
    const std::size_t colon = name.find(':');
    return colon == std::string::npos ? std::string() : name.substr(0, colon);
}

}  // namespace

Result<OpenedProfile> ProfileProvider::Open(const std::string& profile_name,
                                            const std::string& profile_info) {
    if (profile_name.empty()) return OpenOnServer(profile_info);
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

Result<OpenedProfile> ProfileProvider::OpenOnServer(const std::string& server_and_alias) {
    const std::size_t line_feed = server_and_alias.find('\n');
    const std::string server = server_and_alias.substr(0, line_feed);
    const std::string alias =
        line_feed == std::string::npos ? std::string() : server_and_alias.substr(line_feed + 1);
    if (server.empty() || alias.empty()) {
        return MessagingError(kLogonFailed, "a server and an alias belong together");
    }
    if (!factories_.on_server) {
        return MessagingError(kLogonFailed, alias + " on " + server + ": no store of this kind");
    }
    auto store = factories_.on_server(server, alias);
    if (!store.ok()) return store.error();
    OpenedProfile opened;
    opened.user_name = alias;
    opened.stores.push_back(std::move(store).value());
    return opened;
}

Result<std::unique_ptr<MailStore>> ProfileProvider::OpenStore(const std::string& address) {
    const auto factory = factories_.by_scheme.find(SchemeOf(address));
    if (factory == factories_.by_scheme.end()) {
        return MessagingError(kLogonFailed, address + ": no store of this kind");
    }
    return factory->second(address);
}

std::string LoginName() {
    const passwd* entry = ::getpwuid(::geteuid());
    if (entry != nullptr && entry->pw_name != nullptr && *entry->pw_name != '\0') {
        return entry->pw_name;
    }
    return std::to_string(::geteuid());
}

}  // namespace trevix::profiles
