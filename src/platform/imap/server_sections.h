// The text form of servers.conf: its sections, checked, with the line that says each thing.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/imap/secret.h"
#include "platform/result.h"

namespace trevix::imap {

struct SettingLine {
    std::string value;
    int line = 0;
};

// The section of a server, or with a user that of one user on it. Its values are wiped with it,
// since one of them may be a password.
struct ServerSection {
    ServerSection() = default;
    ServerSection(ServerSection&&) = default;
    ServerSection& operator=(ServerSection&&) = delete;
    ServerSection(const ServerSection&) = delete;
    ServerSection& operator=(const ServerSection&) = delete;
    ~ServerSection() {
        for (auto& [entry, said] : entries)
            Secret::Wipe(said.value);
    }

    std::string host;  // lower case; IPv6 without brackets
    std::string user;  // empty: the whole server
    std::map<std::string, SettingLine, std::less<>> entries;

    // Null when nothing is said of it.
    const SettingLine* Find(std::string_view entry) const {
        const auto found = entries.find(entry);
        return found == entries.end() ? nullptr : &found->second;
    }
};

// kMalformed with "`path`:line: what" as its description: for what is no section or entry, for
// values that mean nothing, and for what is said twice.
Result<std::vector<ServerSection>> ParseServerSections(std::string_view text,
                                                       const std::string& path);

Error MalformedAt(const std::string& path, int line, const std::string& what);

}  // namespace trevix::imap
