// The folders of the logged-on stores, by the paths that people write: "Inbox", "Archive/2019".
#pragma once

#include <string>
#include <vector>

#include "platform/messaging.h"
#include "platform/result.h"

namespace trevix::cli {

struct FolderEntry {
    std::string store_id;
    std::string store_name;
    std::string id;
    std::string name;
    std::string path;  // names from the store's root down, joined by "/"
    int depth = 0;     // 0 directly below the root
};

// All folders, store by store in the profile's order, parents before children.
Result<std::vector<FolderEntry>> ListFolders(MessagingSession& session);

// The folder that `path` means: spelled exactly, else without regard to case when only one matches.
// kNotFound with the closest paths, kMalformed when several match, both in the description.
Result<FolderEntry> FindFolder(const std::vector<FolderEntry>& folders, const std::string& path);

}  // namespace trevix::cli
