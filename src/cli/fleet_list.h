// The list of the mailboxes that one call of the program treats.
//
// A line names a mailbox: with a server the user on it, without one a store's address or a
// profile's name. Lines that are empty or begin with "#" name none.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "cli/store_name.h"
#include "platform/result.h"

namespace trevix::cli {

struct FleetMember {
    std::string name;  // as the list spells it
    StoreName store;
};

// What stands in a list, each mailbox once. `server` is empty for none.
std::vector<FleetMember> ParseFleetList(std::string_view text, const std::string& server);

// The text of the list at `path`, of the standard input for "-".
Result<std::string> ReadFleetList(const std::string& path);

}  // namespace trevix::cli
