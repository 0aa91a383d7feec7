// What a session logs on with: a profile's name or a store's address, or else a server and the user
// whose mailbox on it is meant.
#pragma once

#include <string>

namespace trevix::cli {

struct StoreName {
    std::string profile;
    std::string server;  // without a profile
    std::string alias;

    // For people.
    std::string Text() const { return profile.empty() ? alias + " on " + server : profile; }
};

}  // namespace trevix::cli
