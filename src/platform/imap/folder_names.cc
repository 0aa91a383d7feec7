#include "platform/imap/folder_names.h"

#include <algorithm>
#include <utility>

#include "platform/imap/mailbox_name.h"
#include "platform/modified_utf7.h"

namespace trevix::imap {
namespace {

constexpr std::string_view kEscapedSlash = "&AC8-";

using Levels = std::vector<std::string>;

Levels SplitPath(std::string_view path) {
    Levels levels;
    for (;;) {
        const std::size_t slash = path.find('/');
        levels.emplace_back(path.substr(0, slash));
        if (slash == std::string_view::npos) return levels;
        path.remove_prefix(slash + 1);
    }
}

std::string ParentOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// The Inbox first, else by the levels' names, so that a parent stands before what is in it.
bool ComesBefore(const MailFolder& a, const MailFolder& b) {
    const Levels left = SplitPath(a.path);
    const Levels right = SplitPath(b.path);
    const bool left_inbox = left.front() == kInboxPath;
    const bool right_inbox = right.front() == kInboxPath;
    if (left_inbox != right_inbox) return left_inbox;
    return left < right;
}

MailFolder FolderAt(std::string path, bool holds_messages) {
    MailFolder folder;
    folder.name = DecodeMailboxName(SplitPath(path).back());
    folder.path = std::move(path);
    folder.holds_messages = holds_messages;
    return folder;
}

void AddMissingParents(std::map<std::string, MailFolder>& by_path) {
    std::vector<std::string> paths;
    paths.reserve(by_path.size());
    for (const auto& [path, folder] : by_path)
        paths.push_back(path);
    for (const std::string& path : paths) {
        for (std::string parent = ParentOf(path); !parent.empty(); parent = ParentOf(parent)) {
            by_path.try_emplace(parent, FolderAt(parent, false));
        }
    }
}

}  // namespace

std::string PathOfMailbox(std::string_view wire_name, std::string_view delimiter) {
    if (SameMailbox(wire_name, kInboxPath)) return kInboxPath;
    std::string path;
    for (std::size_t at = 0; at < wire_name.size(); ++at) {
        if (!delimiter.empty() && wire_name.substr(at, delimiter.size()) == delimiter) {
            path += '/';
            at += delimiter.size() - 1;
        } else if (wire_name[at] == '/') {
            path += kEscapedSlash;
        } else {
            path += wire_name[at];
        }
    }
    return path;
}

ServerFolders FoldersOf(const std::vector<Mailbox>& mailboxes) {
    ServerFolders result;
    std::map<std::string, MailFolder> by_path;
    for (const Mailbox& mailbox : mailboxes) {
        if (mailbox.name.empty()) continue;
        std::string path = PathOfMailbox(mailbox.name, mailbox.delimiter);
        if (by_path.contains(path)) continue;
        if (mailbox.selectable) result.names[path] = mailbox.name;
        by_path.emplace(path, FolderAt(path, mailbox.selectable));
    }
    AddMissingParents(by_path);
    for (auto& [path, folder] : by_path)
        result.folders.push_back(std::move(folder));
    std::sort(result.folders.begin(), result.folders.end(), ComesBefore);
    return result;
}

std::vector<std::string> OwnMailboxNames(const std::vector<Mailbox>& mailboxes,
                                         const std::string& name) {
    std::string delimiter;
    bool all_below_inbox = true;
    for (const Mailbox& mailbox : mailboxes) {
        if (SameMailbox(mailbox.name, kInboxPath)) {
            delimiter = mailbox.delimiter;
            continue;
        }
        const std::string prefix = kInboxPath + mailbox.delimiter;
        all_below_inbox = all_below_inbox && !mailbox.delimiter.empty() &&
                          mailbox.name.size() > prefix.size() &&
                          SameMailbox(mailbox.name.substr(0, 5), kInboxPath) &&
                          mailbox.name.substr(5, mailbox.delimiter.size()) == mailbox.delimiter;
    }
    const std::string wire = EncodeModifiedUtf7(name);
    if (delimiter.empty()) return {wire};
    const std::string below = kInboxPath + delimiter + wire;
    // With nothing but an Inbox, nobody knows; the top is right on most servers.
    const bool below_first = all_below_inbox && mailboxes.size() > 1;
    return below_first ? std::vector{below, wire} : std::vector{wire, below};
}

}  // namespace trevix::imap
