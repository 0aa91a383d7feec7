#include "platform/maildir/folder_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/errors.h"
#include "platform/maildir/folder.h"
#include "platform/maildir/folder_name.h"

namespace trevix::maildir {
namespace {

constexpr int kDeepest = 64;

using Parts = std::vector<std::string>;

// A directory that may be a folder.
struct Found {
    Parts parts;            // the folder's path
    std::string directory;  // below the root
    bool holds_messages = true;
};

bool IsDirectoryIn(int directory, const std::string& name) {
    struct stat about {};
    return ::fstatat(directory, name.c_str(), &about, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(about.st_mode);
}

// Empty for a name that Maildir++ does not make, such as "..x" or ".x.".
Parts DottedParts(const std::string& name) {
    Parts parts;
    for (std::size_t begin = 1; begin <= name.size();) {
        const std::size_t dot = std::min(name.find('.', begin), name.size());
        if (dot == begin) return {};
        parts.push_back(name.substr(begin, dot - begin));
        begin = dot + 1;
    }
    if (name.ends_with('.')) return {};
    return parts;
}

class Reader {
 public:
    explicit Reader(std::vector<Found>& found) : found_(found) {}

    // Looks at the entries of an open directory, itself the folder `parts` in `directory`.
    bool Read(int open, const Parts& parts, const std::string& directory, int depth) {
        std::vector<std::string> names;
        const bool read = ReadDirectory(open, [&](DirectoryEntry&& entry) {
            if (entry.type == DT_DIR ||
                (entry.type == DT_UNKNOWN && IsDirectoryIn(open, entry.name))) {
                names.push_back(std::move(entry.name));
            }
        });
        if (!read) return false;
        for (const std::string& name : names) {
            Look(open, name, parts, directory, depth);
        }
        return true;
    }

 private:
    void Look(int open, const std::string& name, const Parts& parts, const std::string& directory,
              int depth) {
        if (name == "cur" || name == "new" || name == "tmp") return;
        Parts below = parts;
        if (name.front() == '.') {
            const Parts dotted = DottedParts(name);
            if (dotted.empty()) return;
            below.insert(below.end(), dotted.begin(), dotted.end());
        } else {
            below.push_back(name);
        }
        const std::string path = directory.empty() ? name : directory + "/" + name;

        const UniqueDescriptor child = OpenBelow(open, name);
        if (!child.valid()) {
            // What cannot be read may hold mail: it is shown, and listing it says why not.
            if (errno == EACCES) found_.push_back({below, path, true});
            return;
        }
        const bool holds_messages = IsDirectoryIn(child.get(), "cur");
        if (name.front() == '.' && !holds_messages) return;
        const std::size_t before = found_.size();
        found_.push_back({below, path, holds_messages});
        const bool read = depth >= kDeepest || Read(child.get(), below, path, depth + 1);
        if (!read) found_[before].holds_messages = true;
        if (read && !holds_messages && found_.size() == before + 1) found_.pop_back();
    }

    std::vector<Found>& found_;
};

std::string Joined(const Parts& parts, std::size_t count) {
    std::string path;
    for (std::size_t at = 0; at < count; ++at) {
        path += (at == 0 ? "" : "/") + parts[at];
    }
    return path;
}

// Gives every folder a path of its own, and every folder a parent.
void Enter(const Found& found, std::map<Parts, MailFolder>& folders, FolderTree& tree) {
    Parts parts = found.parts;
    const auto taken = folders.find(parts);
    if (taken != folders.end() && !found.holds_messages) return;
    if (taken != folders.end() && taken->second.holds_messages) {
        // ".A.B" and "A/B" in one tree: the second keeps its directory's name, so that none is
        // lost.
        parts = {found.directory};
        std::replace(parts[0].begin(), parts[0].end(), '/', '\\');
    }
    for (std::size_t count = 1; count < parts.size(); ++count) {
        const Parts parent(parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(count));
        if (folders.contains(parent)) continue;
        folders[parent] = {Joined(parts, count), DisplayName(parent.back()), false};
    }
    const std::string path = Joined(parts, parts.size());
    folders[parts] = {path, DisplayName(parts.back()), found.holds_messages};
    tree.directories[path] = found.directory;
}

}  // namespace

Result<FolderTree> ReadFolderTree(int root, const std::string& shown) {
    std::vector<Found> found;
    if (!Reader(found).Read(root, {}, {}, 0)) {
        return MessagingError(kFailOneProvider, "The mail directory " + shown +
                                                    " cannot be read (" + std::strerror(errno) +
                                                    "); give this user permission to read it.");
    }
    FolderTree tree;
    tree.root_is_maildir = IsDirectoryIn(root, "cur");
    if (tree.root_is_maildir) tree.directories[""] = "";
    std::sort(found.begin(), found.end(), [](const Found& a, const Found& b) {
        return std::tie(a.parts, a.directory) < std::tie(b.parts, b.directory);
    });
    std::map<Parts, MailFolder> folders;
    for (const Found& one : found) {
        Enter(one, folders, tree);
    }
    for (auto& [parts, folder] : folders) {
        tree.folders.push_back(std::move(folder));
    }
    return tree;
}

std::string InboxOf(const FolderTree& tree) {
    if (tree.root_is_maildir) return {};
    for (const MailFolder& folder : tree.folders) {
        std::string lower = folder.path;
        std::transform(lower.begin(), lower.end(), lower.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (lower == "inbox" && folder.holds_messages) return folder.path;
    }
    return {};
}

}  // namespace trevix::maildir
