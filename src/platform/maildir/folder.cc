#include "platform/maildir/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/errors.h"
#include "platform/maildir/file_names.h"

namespace trevix::maildir {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

Error CannotRead(const std::string& what, int system_error) {
    return MessagingError(kFailOneProvider, "The folder " + what + " cannot be read (" +
                                                std::strerror(system_error) +
                                                "); give this user permission to read it.");
}

}  // namespace

UniqueDescriptor OpenBelow(int root, std::string_view relative) {
    UniqueDescriptor at(::openat(root, ".", kDirectoryFlags));
    while (at.valid() && !relative.empty()) {
        const std::size_t slash = relative.find('/');
        const std::string part(relative.substr(0, slash));
        relative.remove_prefix(slash == std::string_view::npos ? relative.size() : slash + 1);
        if (part.empty() || part == "." || part == "..") {
            errno = EINVAL;
            return {};
        }
        at.Reset(::openat(at.get(), part.c_str(), kDirectoryFlags));
    }
    return at;
}

bool ReadDirectory(int directory, const std::function<void(DirectoryEntry&&)>& each) {
    // A descriptor of its own, since closedir closes it.
    const int own = ::openat(directory, ".", kDirectoryFlags);
    if (own < 0) return false;
    DIR* stream = ::fdopendir(own);
    if (stream == nullptr) {
        const int failure = errno;
        ::close(own);
        errno = failure;
        return false;
    }
    errno = 0;
    while (const dirent* entry = ::readdir(stream)) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            each(DirectoryEntry{std::string(name), entry->d_ino, entry->d_type});
        }
        errno = 0;
    }
    const int failure = errno;
    ::closedir(stream);
    errno = failure;
    return failure == 0;
}

Result<Folder> Folder::Open(int root, const std::string& relative) {
    const std::string shown = relative.empty() ? "at the top of the mail store" : relative;
    Folder folder;
    folder.relative_ = relative;
    folder.folder_ = OpenBelow(root, relative);
    if (folder.folder_.valid()) {
        folder.cur_.Reset(::openat(folder.folder_.get(), "cur", kDirectoryFlags));
    }
    if (!folder.folder_.valid() || !folder.cur_.valid()) {
        const int failure = errno;
        if (failure == EACCES || failure == EPERM) return CannotRead(shown, failure);
        return StoreSystemError(failure, shown);
    }
    folder.new_.Reset(::openat(folder.folder_.get(), "new", kDirectoryFlags));
    if (!folder.new_.valid() && errno != ENOENT) return CannotRead(shown + "/new", errno);
    return folder;
}

bool Folder::IsStillIn(int root) const {
    struct stat there {};
    struct stat opened {};
    const char* path = relative_.empty() ? "." : relative_.c_str();
    return ::fstatat(root, path, &there, AT_SYMLINK_NOFOLLOW) == 0 &&
           ::fstat(folder_.get(), &opened) == 0 && there.st_ino == opened.st_ino &&
           there.st_dev == opened.st_dev;
}

UniqueDescriptor Folder::OpenTmp() const {
    return UniqueDescriptor(::openat(folder_.get(), "tmp", kDirectoryFlags));
}

Located Folder::Locate(const Identity& known, Match match) const {
    const auto same = [&](const Identity& now) {
        return now.inode == known.inode && now.size_bytes == known.size_bytes &&
               (match == Match::kWithoutTime || now.mtime_ns == known.mtime_ns);
    };
    struct stat about {};
    if (directory(known.place) >= 0 &&
        ::fstatat(directory(known.place), known.name.c_str(), &about, AT_SYMLINK_NOFOLLOW) == 0) {
        Identity now = IdentityOf(known.place, known.name, about);
        const bool there = S_ISREG(about.st_mode) && same(now);
        return {there ? Whereabouts::kThere : Whereabouts::kChanged, std::move(now), 0};
    }
    if (directory(known.place) >= 0 && errno != ENOENT) return {Whereabouts::kUnknown, {}, errno};

    // A directory that is changed while it is read may hide a file that is renamed just then, so
    // "gone" is said only after a second look.
    for (int look = 0; look < 2; ++look) {
        std::vector<Identity> found;
        if (!FindByKey(known, found)) return {Whereabouts::kUnknown, {}, errno};
        for (Identity& candidate : found) {
            if (same(candidate)) return {Whereabouts::kRenamed, std::move(candidate), 0};
        }
        if (!found.empty()) return {Whereabouts::kChanged, {}, 0};
    }
    return {Whereabouts::kGone, {}, 0};
}

// New messages first: files move from there to "cur", never back, so none slips through.
bool Folder::FindByKey(const Identity& known, std::vector<Identity>& found) const {
    const std::string_view key = KeyOf(known.name);
    for (const Place place : {Place::kNew, Place::kCur}) {
        const int place_directory = directory(place);
        if (place_directory < 0) continue;
        const bool read = ReadDirectory(place_directory, [&](DirectoryEntry&& entry) {
            if (KeyOf(entry.name) != key) return;
            struct stat about {};
            if (::fstatat(place_directory, entry.name.c_str(), &about, AT_SYMLINK_NOFOLLOW) != 0) {
                return;
            }
            if (S_ISREG(about.st_mode)) {
                found.push_back(IdentityOf(place, std::move(entry.name), about));
            }
        });
        if (!read) return false;
    }
    return true;
}

}  // namespace trevix::maildir
