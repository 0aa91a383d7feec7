#include "platform/registry/file_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include "platform/errors.h"
#include "platform/unique_descriptor.h"

namespace trevix::registry {
namespace {

constexpr std::int64_t kMaximumBytes = std::int64_t{64} * 1024 * 1024;
constexpr int kLockTries = 500;
constexpr long kLockPauseNanoseconds = 10'000'000;

// File stamps have a coarse clock: two changes within one tick look like one, so a file that was
// changed so shortly before it was read is read again.
constexpr std::int64_t kTickNanoseconds = 50'000'000;

// A failed write says kDenied also where the directory cannot be made at all.
Error WriteError(int system_error, const std::string& path) {
    if (system_error == ENOENT || system_error == ENOTDIR) {
        return RuntimeError(kPathFileAccess, path);
    }
    return SystemError(system_error, path);
}

std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::int64_t Nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool IsSame(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino &&
           left.st_size == right.st_size &&
           Nanoseconds(left.st_mtim) == Nanoseconds(right.st_mtim) &&
           Nanoseconds(left.st_ctim) == Nanoseconds(right.st_ctim);
}

bool IsOld(const struct stat& file) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return Nanoseconds(now) - Nanoseconds(file.st_ctim) > kTickNanoseconds;
}

Status ReadAll(int file, const std::string& path, std::string& bytes) {
    std::array<char, 65536> buffer{};
    while (true) {
        const ssize_t count = ::read(file, buffer.data(), buffer.size());
        if (count == 0) return {};
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return SystemError(errno, path);
        bytes.append(buffer.data(), static_cast<std::size_t>(count));
        if (bytes.size() > static_cast<std::size_t>(kMaximumBytes)) {
            return Error{ErrorKind::kMalformed, kPathFileAccess,
                         path + ":1: the file is too large"};
        }
    }
}

Status WriteAll(int file, const std::string& path, const std::string& bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t count = ::write(file, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return WriteError(errno, path);
        done += static_cast<std::size_t>(count);
    }
    if (::fsync(file) != 0) return WriteError(errno, path);
    return {};
}

Status MakeDirectories(const std::string& path) {
    if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return {};
    const std::string parent = DirectoryOf(path);
    if (errno != ENOENT || parent == path) return WriteError(errno, path);
    TREVIX_RETURN_IF_ERROR(MakeDirectories(parent));
    if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return {};
    return WriteError(errno, path);
}

// A settings file may be a link to where its owner keeps it; what is replaced is the file itself.
std::string LinkTarget(const std::string& path) {
    std::array<char, PATH_MAX> target{};
    if (::realpath(path.c_str(), target.data()) == nullptr) return path;
    return target.data();
}

Status Lock(int file, const std::string& path) {
    for (int attempt = 0; attempt < kLockTries; ++attempt) {
        if (::flock(file, LOCK_EX | LOCK_NB) == 0) return {};
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) return WriteError(errno, path);
        const timespec pause{0, kLockPauseNanoseconds};
        ::nanosleep(&pause, nullptr);
    }
    Error error = RuntimeError(kPermissionDenied, path);
    error.kind = ErrorKind::kBusy;
    return error;
}

}  // namespace

Result<const RegDocument*> FileStore::Read() {
    struct stat now = {};
    if (is_current_ && ::stat(path_.c_str(), &now) == 0 && IsSame(now, seen_)) return &document_;
    is_current_ = false;
    const UniqueDescriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid() && (errno == ENOENT || errno == ENOTDIR)) {
        document_ = RegDocument();
        seen_ = {};
        return &document_;
    }
    if (!file.valid()) return SystemError(errno, path_);
    if (::fstat(file.get(), &now) != 0) return SystemError(errno, path_);
    if (!S_ISREG(now.st_mode)) return RuntimeError(kPathFileAccess, path_);
    std::string bytes;
    TREVIX_RETURN_IF_ERROR(ReadAll(file.get(), path_, bytes));
    Result<RegDocument> document = RegDocument::Parse(bytes, path_);
    if (!document.ok()) return document.error();
    document_ = std::move(document).value();
    seen_ = now;
    is_current_ = IsOld(now);
    return &document_;
}

Status FileStore::Change(const Edit& edit) {
    TREVIX_RETURN_IF_ERROR(MakeDirectories(DirectoryOf(path_)));
    const std::string lock_path = path_ + ".lock";
    const UniqueDescriptor lock(::open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!lock.valid()) return WriteError(errno, lock_path);
    TREVIX_RETURN_IF_ERROR(Lock(lock.get(), lock_path));

    Result<const RegDocument*> current = Read();
    if (!current.ok()) return current.error();
    RegDocument edited = *current.value();
    const Result<bool> changed = edit(edited);
    if (!changed.ok()) return changed.error();
    if (!changed.value()) return {};
    is_current_ = false;
    return Replace(edited.Format());
}

// The temporary file has a fixed name, which the lock makes safe: one that a crash left behind is
// used up by the next change.
Status FileStore::Replace(const std::string& bytes) {
    const std::string target = LinkTarget(path_);
    const std::string fresh = target + ".new";
    struct stat old = {};
    const bool had_file = ::stat(target.c_str(), &old) == 0;
    if (had_file && ::access(target.c_str(), W_OK) != 0) return WriteError(errno, target);
    if (::unlink(fresh.c_str()) != 0 && errno != ENOENT) return WriteError(errno, fresh);
    {
        const UniqueDescriptor file(
            ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!file.valid()) return WriteError(errno, fresh);
        Status written;
        if (had_file) {
            // Only an administrator can keep a foreign owner; anybody else owns the file already.
            const bool kept = ::fchown(file.get(), old.st_uid, old.st_gid) == 0;
            const mode_t mode = kept ? old.st_mode & 07777U : old.st_mode & 0700U;
            if (::fchmod(file.get(), mode) != 0) written = WriteError(errno, fresh);
        }
        if (written.ok()) written = WriteAll(file.get(), fresh, bytes);
        if (written.ok() && ::rename(fresh.c_str(), target.c_str()) != 0) {
            written = WriteError(errno, target);
        }
        if (!written.ok()) {
            ::unlink(fresh.c_str());
            return written;
        }
    }
    const std::string directory = DirectoryOf(target);
    const UniqueDescriptor parent(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!parent.valid() || ::fsync(parent.get()) != 0) return WriteError(errno, directory);
    return {};
}

bool FileStore::IsWritable() const {
    if (::access(path_.c_str(), F_OK) == 0 && ::access(path_.c_str(), W_OK) != 0) return false;
    std::string directory = DirectoryOf(LinkTarget(path_));
    while (::access(directory.c_str(), F_OK) != 0 && errno == ENOENT) {
        const std::string parent = DirectoryOf(directory);
        if (parent == directory) return false;
        directory = parent;
    }
    return ::access(directory.c_str(), W_OK | X_OK) == 0;
}

}  // namespace trevix::registry
