#include "cli/store_check.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/errors.h"
#include "platform/maildir/folder_tree.h"
#include "platform/unique_descriptor.h"

namespace trevix::cli {
namespace {

constexpr std::string_view kMaildirScheme = "maildir:";

// Two access modes for everything, since messages are read and replaced in the same folders.
Status CheckDirectory(const std::string& path, bool is_needed, FolderUse use) {
    const int mode = use == FolderUse::kWrite ? R_OK | W_OK | X_OK : R_OK | X_OK;
    if (::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) == 0) return {};
    // Mail programs make "new" and "tmp" when they need them.
    if (errno == ENOENT && !is_needed) return {};
    const std::string verb =
        use == FolderUse::kWrite ? " cannot be read and written (" : " cannot be read (";
    return MessagingError(kFailOneProvider, path + verb + std::strerror(errno) +
                                                "); give this user permission to do so");
}

}  // namespace

Status CheckStore(MailStore& store, FolderUse use) {
    const auto hidden = store.Hidden().List();
    if (!hidden.ok()) return hidden.error();
    const std::string address = store.address();
    if (use == FolderUse::kSome || !address.starts_with(kMaildirScheme)) return {};

    const std::string path = address.substr(kMaildirScheme.size());
    const UniqueDescriptor root(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!root.valid()) return StoreSystemError(errno, path);
    // The journal of replacements and the hidden messages lie in the root.
    TREVIX_RETURN_IF_ERROR(CheckDirectory(path, true, use));
    const auto tree = maildir::ReadFolderTree(root.get(), path);
    if (!tree.ok()) return tree.error();
    for (const auto& [folder, directory] : tree.value().directories) {
        const std::string whole = directory.empty() ? path : path + "/" + directory;
        TREVIX_RETURN_IF_ERROR(CheckDirectory(whole + "/cur", true, use));
        TREVIX_RETURN_IF_ERROR(CheckDirectory(whole + "/new", false, use));
    }
    return {};
}

}  // namespace trevix::cli
