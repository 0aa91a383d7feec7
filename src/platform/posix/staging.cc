// How base directories are made and swept without a window in which a sweep takes a living one:
// whoever creates the lock file owns the decision. The maker creates it exclusively, locks it and
// then checks that it still has a name; a sweep that came first holds the lock or has removed the
// file, and the maker starts again with a new directory. A sweep that finds no lock file creates
// one, so that the maker's exclusive creation fails.
#include "platform/posix/staging.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/unique_descriptor.h"

namespace trevix::posix {
namespace {

constexpr char kLockName[] = "lock";
constexpr std::string_view kBasePrefix = "stage-";
constexpr std::size_t kBaseNameLength = kBasePrefix.size() + 6;
constexpr mode_t kPrivateDirectory = 0700;
constexpr mode_t kPrivateFile = 0600;
constexpr int kMakeAttempts = 16;
constexpr int kDeepest = 64;
constexpr std::size_t kKeptDirectories = 4;
constexpr int kDirectoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

std::vector<std::string> EntriesOf(int directory) {
    std::vector<std::string> names;
    // A descriptor of its own: closedir closes it, and the caller's position stays.
    const int own = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (own < 0) return names;
    DIR* stream = ::fdopendir(own);
    if (stream == nullptr) {
        ::close(own);
        return names;
    }
    while (const dirent* entry = ::readdir(stream)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(stream);
    return names;
}

bool IsOurDirectory(const struct stat& about) {
    return S_ISDIR(about.st_mode) && about.st_uid == ::geteuid();
}

UniqueDescriptor OpenForRemoval(int directory, const std::string& name) {
    UniqueDescriptor open(::openat(directory, name.c_str(), kDirectoryFlags));
    if (open.valid() || errno != EACCES) return open;
    // A directory of ours that somebody made unreadable: fchmodat would follow a link, so the mode
    // is set through a path-only descriptor.
    const UniqueDescriptor path(
        ::openat(directory, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat about {};
    if (!path.valid() || ::fstat(path.get(), &about) != 0 || !IsOurDirectory(about)) return open;
    const std::string self = "/proc/self/fd/" + std::to_string(path.get());
    if (::chmod(self.c_str(), kPrivateDirectory) != 0) return open;
    return UniqueDescriptor(::openat(directory, name.c_str(), kDirectoryFlags));
}

void RemoveEntry(int directory, const std::string& name, dev_t device, int depth) {
    // Most are directories that are empty already.
    if (::unlinkat(directory, name.c_str(), AT_REMOVEDIR) == 0) return;
    if (errno == ENOTDIR) {
        ::unlinkat(directory, name.c_str(), 0);
        return;
    }
    if (errno != ENOTEMPTY && errno != EEXIST) return;
    {
        const UniqueDescriptor open = OpenForRemoval(directory, name);
        struct stat about {};
        if (!open.valid() || ::fstat(open.get(), &about) != 0) return;
        if (!IsOurDirectory(about) || about.st_dev != device || depth >= kDeepest) return;
        for (const std::string& entry : EntriesOf(open.get())) {
            RemoveEntry(open.get(), entry, device, depth + 1);
        }
    }
    ::unlinkat(directory, name.c_str(), AT_REMOVEDIR);
}

// The lock goes last: while it is there and locked, no other sweep works on the directory.
void RemoveBase(int parent, int base, const std::string& name) {
    struct stat about {};
    if (::fstat(base, &about) != 0) return;
    for (const std::string& entry : EntriesOf(base)) {
        if (entry != kLockName) RemoveEntry(base, entry, about.st_dev, 1);
    }
    ::unlinkat(base, kLockName, 0);
    ::unlinkat(parent, name.c_str(), AT_REMOVEDIR);
}

void SweepBase(int parent, const std::string& name) {
    const UniqueDescriptor base(::openat(parent, name.c_str(), kDirectoryFlags));
    struct stat about {};
    if (!base.valid() || ::fstat(base.get(), &about) != 0 || !IsOurDirectory(about)) return;
    const UniqueDescriptor lock(::openat(base.get(), kLockName,
                                         O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                                         kPrivateFile));
    if (!lock.valid() || ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) return;
    RemoveBase(parent, base.get(), name);
}

}  // namespace

class StagingBase {
 public:
    // `parent` ends in "/".
    static Result<std::shared_ptr<StagingBase>> Make(const std::string& parent) {
        for (int attempt = 0; attempt < kMakeAttempts; ++attempt) {
            std::string path = parent + std::string(kBasePrefix) + "XXXXXX";
            if (::mkdtemp(path.data()) == nullptr) {
                return errno == ENOENT ? RuntimeError(kPathNotFound, parent)
                                       : SystemError(errno, parent);
            }
            auto base = std::make_shared<StagingBase>(path + "/");
            if (base->TakeLock()) return base;
        }
        return RuntimeError(kPathFileAccess, parent);
    }

    explicit StagingBase(std::string path) : path_(std::move(path)) {}
    StagingBase(const StagingBase&) = delete;
    StagingBase& operator=(const StagingBase&) = delete;

    ~StagingBase() {
        if (!lock_.valid()) return;
        const std::string bare = path_.substr(0, path_.size() - 1);
        const std::size_t slash = bare.rfind('/');
        const UniqueDescriptor parent(
            ::open(bare.substr(0, slash + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (parent.valid()) RemoveBase(parent.get(), base_.get(), bare.substr(slash + 1));
    }

    // The path of an empty sub-directory, ending in "/"; empty, with errno set, when none was made.
    std::string MakeDirectory() {
        if (!free_.empty()) {
            const std::string name = std::exchange(free_.back(), {});
            free_.pop_back();
            if (IsUntouched(name)) return path_ + name + "/";
        }
        const std::string name = std::to_string(++count_);
        if (::mkdirat(base_.get(), name.c_str(), kPrivateDirectory) != 0) return {};
        return path_ + name + "/";
    }

    // Thousands of messages need a directory each: making and removing one costs far more than
    // emptying it, so an emptied one serves again. It goes with the base.
    void RemoveDirectory(const std::string& path) {
        const std::string bare = path.substr(0, path.size() - 1);
        const std::string name = bare.substr(bare.rfind('/') + 1);
        if (free_.size() < kKeptDirectories && Empty(name)) {
            free_.push_back(name);
        } else {
            RemoveTree(base_.get(), name);
        }
    }

 private:
    // Whether the directory is as it was left: empty and private.
    bool IsUntouched(const std::string& name) const {
        const UniqueDescriptor open(::openat(base_.get(), name.c_str(), kDirectoryFlags));
        struct stat about {};
        if (!open.valid() || ::fstat(open.get(), &about) != 0 || !IsOurDirectory(about)) {
            return false;
        }
        return (about.st_mode & 07777) == kPrivateDirectory && EntriesOf(open.get()).empty();
    }

    // False when something stays in it.
    bool Empty(const std::string& name) const {
        const UniqueDescriptor open(::openat(base_.get(), name.c_str(), kDirectoryFlags));
        struct stat about {};
        if (!open.valid() || ::fstat(open.get(), &about) != 0) return false;
        const std::vector<std::string> entries = EntriesOf(open.get());
        for (const std::string& entry : entries)
            RemoveEntry(open.get(), entry, about.st_dev, 1);
        return entries.empty() || EntriesOf(open.get()).empty();
    }

    bool TakeLock() {
        base_.Reset(::open(path_.c_str(), kDirectoryFlags));
        UniqueDescriptor lock(::openat(base_.get(), kLockName,
                                       O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                       kPrivateFile));
        if (!lock.valid() || ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) return false;
        struct stat about {};
        if (::fstat(lock.get(), &about) != 0 || about.st_nlink == 0) return false;
        lock_ = std::move(lock);
        return true;
    }

    std::string path_;
    UniqueDescriptor base_;
    UniqueDescriptor lock_;
    int count_ = 0;
    std::vector<std::string> free_;  // names of empty sub-directories
};

namespace {

class OwnedStagingDirectory final : public StagingDirectory {
 public:
    OwnedStagingDirectory(std::shared_ptr<StagingBase> base, std::string path)
        : base_(std::move(base)), path_(std::move(path)) {}
    OwnedStagingDirectory(const OwnedStagingDirectory&) = delete;
    OwnedStagingDirectory& operator=(const OwnedStagingDirectory&) = delete;
    ~OwnedStagingDirectory() override { base_->RemoveDirectory(path_); }

    const std::string& path() const override { return path_; }

 private:
    std::shared_ptr<StagingBase> base_;
    std::string path_;
};

}  // namespace

Result<std::unique_ptr<StagingDirectory>> StagingArea::Make(const std::string& parent) {
    const std::string folder = parent.ends_with('/') ? parent : parent + "/";
    // The second turn is for a base that somebody removed under us, as temporary-file cleaners do.
    for (int turn = 0; turn < 2; ++turn) {
        std::shared_ptr<StagingBase>& base = bases_[folder];
        if (base == nullptr) {
            auto made = StagingBase::Make(folder);
            if (!made.ok()) return made.error();
            base = std::move(made).value();
        }
        std::string path = base->MakeDirectory();
        struct stat about {};
        if (!path.empty() && ::lstat(path.c_str(), &about) == 0) {
            return std::unique_ptr<StagingDirectory>(
                std::make_unique<OwnedStagingDirectory>(base, std::move(path)));
        }
        const int failure = errno;
        if (failure != ENOENT) return SystemError(failure, folder);
        base.reset();
    }
    return RuntimeError(kPathNotFound, folder);
}

void SweepStagingBases(const std::string& parent) {
    const UniqueDescriptor directory(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.valid()) return;
    for (const std::string& name : EntriesOf(directory.get())) {
        if (name.size() == kBaseNameLength && name.starts_with(kBasePrefix)) {
            SweepBase(directory.get(), name);
        }
    }
}

void RemoveTree(int directory, const std::string& name) {
    struct stat about {};
    if (::fstat(directory, &about) == 0) RemoveEntry(directory, name, about.st_dev, 0);
}

}  // namespace trevix::posix
