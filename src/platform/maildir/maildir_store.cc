#include "platform/maildir/maildir_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/errors.h"
#include "platform/file_blob.h"
#include "platform/maildir/file_names.h"
#include "platform/maildir/folder.h"
#include "platform/maildir/folder_name.h"
#include "platform/maildir/listing.h"
#include "platform/maildir/recovery.h"

namespace trevix::maildir {
namespace {

Error CannotOpen(const std::string& path, int system_error) {
    std::string why;
    switch (system_error) {
        case ENOENT:
            why = "There is no directory " + path +
                  "; give the directory that holds the folders cur, new and tmp.";
            break;
        case ENOTDIR:
            why = path +
                  " is no directory; give the directory that holds the folders cur, new "
                  "and tmp.";
            break;
        default:
            why = "The mail directory " + path + " cannot be read (" + std::strerror(system_error) +
                  "); give this user permission to read it.";
    }
    return MessagingError(kFailOneProvider, why);
}

Error NoMaildir(const std::string& path) {
    return MessagingError(kFailOneProvider,
                          path +
                              " holds no mail: neither it nor a directory below it has the "
                              "folders cur, new and tmp; give the directory of a Maildir.");
}

// The path without links, dots and doubled separators: one store, one address.
std::string RealPath(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (resolved == nullptr) return {};
    std::string real = resolved;
    std::free(resolved);
    return real;
}

}  // namespace

MaildirStore::MaildirStore(std::string path, std::unique_ptr<HiddenMailStore> hidden, Clock& clock)
    : path_(std::move(path)),
      hidden_(std::move(hidden)),
      clock_(clock),
      context_(std::make_shared<ReplacementContext>()) {
    context_->host = HostForNames();
}

Result<std::unique_ptr<MaildirStore>> MaildirStore::Open(const std::string& path,
                                                         std::unique_ptr<HiddenMailStore> hidden,
                                                         Clock& clock, Leftovers leftovers) {
    const std::string real = RealPath(path);
    if (real.empty()) return CannotOpen(path, errno);
    std::unique_ptr<MaildirStore> store(new MaildirStore(real, std::move(hidden), clock));
    store->context_->root.Reset(::open(real.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (store->root() < 0) return CannotOpen(real, errno);
    TREVIX_RETURN_IF_ERROR(store->ReadTree());
    if (!store->tree_.root_is_maildir && store->tree_.directories.empty()) return NoMaildir(real);
    if (leftovers == Leftovers::kFinish) Recover(store->root(), store->tree_);
    return store;
}

Status MaildirStore::ReadTree() {
    auto tree = ReadFolderTree(root(), path_);
    if (!tree.ok()) return tree.error();
    tree_ = std::move(tree).value();
    return {};
}

std::string MaildirStore::address() const {
    return "maildir:" + path_;
}

std::string MaildirStore::display_name() const {
    const std::string name = path_.substr(path_.rfind('/') + 1);
    return name.empty() ? path_ : DisplayName(name);
}

std::string MaildirStore::inbox_path() const {
    return InboxOf(tree_);
}

Result<std::vector<MailFolder>> MaildirStore::Folders() {
    TREVIX_RETURN_IF_ERROR(ReadTree());
    return tree_.folders;
}

// A folder that was made after the tree was read is found by reading it again.
Result<std::string> MaildirStore::DirectoryOf(const std::string& folder) {
    if (!tree_.directories.contains(folder)) TREVIX_RETURN_IF_ERROR(ReadTree());
    const auto found = tree_.directories.find(folder);
    if (found == tree_.directories.end()) return MessagingError(kNotFound, folder);
    return found->second;
}

Result<std::shared_ptr<const Folder>> MaildirStore::OpenFolder(const std::string& folder) {
    const auto directory = DirectoryOf(folder);
    if (!directory.ok()) return directory.error();
    const bool same = open_folder_ != nullptr && open_folder_->relative() == directory.value() &&
                      open_folder_->IsStillIn(root());
    if (same) return open_folder_;
    open_folder_.reset();
    auto opened = Folder::Open(root(), directory.value());
    if (!opened.ok()) return opened.error();
    open_folder_ = std::make_shared<const Folder>(std::move(opened).value());
    return open_folder_;
}

Result<MailChange> MaildirStore::List(const std::string& folder, const MailListing* known) {
    constexpr int kLooks = 3;
    const auto container = std::find_if(
        tree_.folders.begin(), tree_.folders.end(),
        [&folder](const MailFolder& one) { return one.path == folder && !one.holds_messages; });
    if (container != tree_.folders.end() || (folder.empty() && !tree_.root_is_maildir)) {
        return MailChange{};
    }
    const auto directory = DirectoryOf(folder);
    if (!directory.ok()) return directory.error();

    if (distrusted_.contains(folder)) known = nullptr;
    FolderStamp stamp = StampOf(root(), directory.value());
    if (known != nullptr && !known->stamp.empty() && known->stamp == stamp.text) {
        MailChange unchanged;
        unchanged.changed = false;
        return unchanged;
    }
    const auto open = OpenFolder(folder);
    if (!open.ok()) return open.error();
    // While a directory changes under the reader, it may hide what is renamed just then.
    MailChange change;
    for (int look = 0; look < kLooks; ++look) {
        auto listing = ReadListing(*open.value(), known);
        if (!listing.ok()) return listing.error();
        change.listing = std::move(listing).value();
        FolderStamp after = StampOf(root(), directory.value());
        if (after.text == stamp.text) {
            if (IsSettled(stamp, clock_.UnixNanoseconds())) change.listing.stamp = stamp.text;
            break;
        }
        stamp = std::move(after);
    }
    distrusted_.erase(folder);
    return change;
}

Result<Blob> MaildirStore::Read(const std::string& folder, const MailEntry& entry) {
    auto known = DecodeLocator(entry.locator);
    if (!known) return MessagingError(kInvalidEntryId, entry.key);
    const auto open = OpenFolder(folder);
    if (!open.ok()) return open.error();

    // Two turns: the file may be renamed between the look and the opening.
    for (int turn = 0; turn < 2; ++turn) {
        const Located located = open.value()->Locate(*known, Match::kWithoutTime);
        if (located.where == Whereabouts::kUnknown) {
            return StoreSystemError(located.system_error, known->name);
        }
        if (located.where == Whereabouts::kChanged) {
            distrusted_.insert(folder);
            return MessagingError(kObjectChanged);
        }
        if (located.where == Whereabouts::kGone) break;
        UniqueDescriptor file(::openat(open.value()->directory(located.identity.place),
                                       located.identity.name.c_str(),
                                       O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat about {};
        if (file.valid() && ::fstat(file.get(), &about) == 0) {
            const bool same = S_ISREG(about.st_mode) && about.st_ino == known->inode &&
                              static_cast<std::uint64_t>(about.st_size) == known->size_bytes;
            if (!same) return MessagingError(kObjectChanged);
            return BlobFromDescriptor(std::move(file), known->size_bytes);
        }
        if (errno != ENOENT) return StoreSystemError(errno, known->name);
    }
    return MessagingError(kObjectDeleted);
}

Result<std::unique_ptr<StagedMail>> MaildirStore::Stage(const std::string& folder,
                                                        const MailEntry& entry,
                                                        const Blob& content) {
    const auto open = OpenFolder(folder);
    if (!open.ok()) return open.error();
    if (context_->journal == nullptr) {
        auto journal = Journal::Create(root());
        if (!journal.ok()) return journal.error();
        context_->journal = std::move(journal).value();
    }
    auto staged = StageReplacement(context_, clock_, open.value(), entry, content);
    if (!staged.ok() && staged.error().kind == ErrorKind::kChanged) distrusted_.insert(folder);
    return staged;
}

Result<std::unique_ptr<MailStore>> OpenMaildir(const std::string& path,
                                               std::unique_ptr<HiddenMailStore> hidden,
                                               Clock& clock, Leftovers leftovers) {
    auto store = MaildirStore::Open(path, std::move(hidden), clock, leftovers);
    if (!store.ok()) return store.error();
    return std::unique_ptr<MailStore>(std::move(store).value());
}

}  // namespace trevix::maildir
