#include "cli/fleet_list.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

#include "platform/errors.h"
#include "util/text.h"

namespace trevix::cli {

std::vector<FleetMember> ParseFleetList(std::string_view text, const std::string& server) {
    std::vector<FleetMember> members;
    std::set<std::string> seen;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        std::string line(text.substr(at, end - at));
        at = end + 1;
        std::replace_if(
            line.begin(), line.end(), [](char c) { return c == '\r' || c == '\t'; }, ' ');
        const std::string name = TrimBlanks(line);
        if (name.empty() || name.front() == '#') continue;
        // Two runs on one mailbox would only get into each other's way.
        if (!seen.insert(name).second) continue;
        members.push_back(
            {name, server.empty() ? StoreName{name, {}, {}} : StoreName{{}, server, name}});
    }
    return members;
}

Result<std::string> ReadFleetList(const std::string& path) {
    std::ostringstream text;
    if (path == "-") {
        text << std::cin.rdbuf();
        return text.str();
    }
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (file) text << file.rdbuf();
    // An empty file sets the failure of the text alone.
    if (!file || file.bad()) return SystemError(errno == 0 ? EIO : errno, path);
    return text.str();
}

}  // namespace trevix::cli
