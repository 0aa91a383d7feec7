// ProfileFile: the user's list of named mail profiles, a small text file that people edit.
//
//     # mail at home
//     [home]
//     user = Ann Example
//     store = maildir:/home/ann/Maildir
//     store = maildir:/home/ann/Archive
//     store = imaps://ann@imap.example.org
//     inbox = maildir:/home/ann/Maildir
//
// Lines that begin with "#" or ";" are comments. Each profile has at least one store; "inbox" names
// the store that holds the Inbox (without it, the first one) and "user" the owner (without it, the
// login name). Edits leave all other lines as they are. A file with a syntax error serves nothing
// and is never overwritten.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "platform/result.h"

namespace trevix::profiles {

struct Profile {
    std::string name;
    std::string user;                 // empty: the login name
    std::vector<std::string> stores;  // addresses: "maildir:/path", "imaps://user@host"
    std::string inbox;                // empty: the first store
};

class ProfileFile {
 public:
    explicit ProfileFile(std::string path) : path_(std::move(path)) {}

    const std::string& path() const { return path_; }

    // In the file's order; a missing file holds none. kMalformed with "path:line: what" as its
    // description, else as reading fails.
    Result<std::vector<Profile>> List() const;

    // kNotFound when there is no profile of that name, else as List().
    Result<Profile> Find(const std::string& name) const;

    // kExists for a name that is taken, kMalformed for a profile that the file cannot hold. On
    // every failure the file is as it was; other programs see the whole old or the whole new one.
    Status Add(const Profile& profile);
    Status Remove(const std::string& name);  // kNotFound

 private:
    Status Replace(const std::function<Result<std::string>(const std::string&)>& edit);

    std::string path_;
};

// $XDG_CONFIG_HOME/trevix/profiles.conf, by default below ~/.config.
std::string ProfileFilePath();

}  // namespace trevix::profiles
