#include "platform/profiles/profile_file.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "platform/errors.h"
#include "platform/profiles/profile_text.h"
#include "platform/unique_descriptor.h"

namespace trevix::profiles {
namespace {

constexpr std::size_t kLongestFile = std::size_t{4} * 1024 * 1024;

std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

Status MakeDirectories(const std::string& path) {
    if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return {};
    const std::string parent = DirectoryOf(path);
    if (errno != ENOENT || parent == path) return SystemError(errno, path);
    TREVIX_RETURN_IF_ERROR(MakeDirectories(parent));
    if (::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return {};
    return SystemError(errno, path);
}

// The file may be a link to where its owner keeps it; what is replaced is the file itself.
std::string LinkTarget(const std::string& path) {
    std::array<char, PATH_MAX> target{};
    return ::realpath(path.c_str(), target.data()) == nullptr ? path : target.data();
}

Result<std::string> ReadWhole(const std::string& path) {
    const UniqueDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.valid() && (errno == ENOENT || errno == ENOTDIR)) return std::string();
    if (!file.valid()) return SystemError(errno, path);
    std::string text;
    std::array<char, 16384> buffer{};
    while (true) {
        const ssize_t count = ::read(file.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return SystemError(errno, path);
        if (count == 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
        if (text.size() > kLongestFile) {
            return Error{ErrorKind::kMalformed, kPathFileAccess,
                         path + ":1: the file is too large"};
        }
    }
}

Status WriteWhole(const std::string& path, const std::string& text, mode_t mode) {
    UniqueDescriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (!file.valid()) return SystemError(errno, path);
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t wrote = ::write(file.get(), text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) return SystemError(errno, path);
        done += static_cast<std::size_t>(wrote);
    }
    if (::fchmod(file.get(), mode) != 0) return SystemError(errno, path);
    if (::fsync(file.get()) != 0) return SystemError(errno, path);
    if (::close(file.Release()) != 0 && errno != EINTR) return SystemError(errno, path);
    return {};
}

Status SyncDirectory(const std::string& path) {
    const UniqueDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.valid() || ::fsync(directory.get()) != 0) return SystemError(errno, path);
    return {};
}

Error UnknownProfile(const std::string& name, const std::string& path) {
    return {ErrorKind::kNotFound, static_cast<int>(kLogonFailed),
            "no profile \"" + name + "\" in " + path};
}

}  // namespace

Result<std::vector<Profile>> ProfileFile::List() const {
    auto text = ReadWhole(path_);
    if (!text.ok()) return text.error();
    auto parsed = ParseProfiles(text.value(), path_);
    if (!parsed.ok()) return parsed.error();
    std::vector<Profile> profiles;
    for (ParsedProfile& one : parsed.value()) {
        profiles.push_back(std::move(one.profile));
    }
    return profiles;
}

Result<Profile> ProfileFile::Find(const std::string& name) const {
    auto profiles = List();
    if (!profiles.ok()) return profiles.error();
    for (Profile& profile : profiles.value()) {
        if (profile.name == name) return std::move(profile);
    }
    return UnknownProfile(name, path_);
}

Status ProfileFile::Add(const Profile& profile) {
    const auto added = FormatProfile(profile);
    if (!added.ok()) return added.error();
    return Replace([&](const std::string& text) -> Result<std::string> {
        const auto parsed = ParseProfiles(text, path_);
        if (!parsed.ok()) return parsed.error();
        for (const ParsedProfile& other : parsed.value()) {
            if (other.profile.name != profile.name) continue;
            return Error{ErrorKind::kExists, kFileExists,
                         "profile \"" + profile.name + "\" is in " + path_ + " already"};
        }
        std::string edited = text;
        if (!edited.empty() && !edited.ends_with('\n')) edited += '\n';
        if (!edited.empty()) edited += '\n';
        return edited + added.value();
    });
}

Status ProfileFile::Remove(const std::string& name) {
    return Replace([&](const std::string& text) -> Result<std::string> {
        const auto parsed = ParseProfiles(text, path_);
        if (!parsed.ok()) return parsed.error();
        for (const ParsedProfile& one : parsed.value()) {
            if (one.profile.name != name) continue;
            return text.substr(0, one.begin) + text.substr(one.end);
        }
        return UnknownProfile(name, path_);
    });
}

// Writers take turns by a lock on a file of its own, since the profile file itself is replaced. The
// lock makes the fixed name of the new file safe: one left by a crash is used up by the next edit.
Status ProfileFile::Replace(const std::function<Result<std::string>(const std::string&)>& edit) {
    TREVIX_RETURN_IF_ERROR(MakeDirectories(DirectoryOf(path_)));
    const std::string lock_path = path_ + ".lock";
    const UniqueDescriptor lock(::open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!lock.valid()) return SystemError(errno, lock_path);
    while (::flock(lock.get(), LOCK_EX) != 0) {
        if (errno != EINTR) return SystemError(errno, lock_path);
    }

    const std::string target = LinkTarget(path_);
    const auto text = ReadWhole(target);
    if (!text.ok()) return text.error();
    const auto edited = edit(text.value());
    if (!edited.ok()) return edited.error();

    struct stat old {};
    const bool is_there = ::stat(target.c_str(), &old) == 0;
    if (is_there && ::access(target.c_str(), W_OK) != 0) return SystemError(errno, target);
    const std::string fresh = target + ".new";
    if (::unlink(fresh.c_str()) != 0 && errno != ENOENT) return SystemError(errno, fresh);
    const mode_t mode = is_there ? old.st_mode & 0777 : 0600;
    Status written = WriteWhole(fresh, edited.value(), mode);
    if (written.ok() && ::rename(fresh.c_str(), target.c_str()) != 0) {
        written = SystemError(errno, target);
    }
    if (!written.ok()) {
        ::unlink(fresh.c_str());
        return written;
    }
    return SyncDirectory(DirectoryOf(target));
}

std::string ProfileFilePath() {
    // A relative directory is not valid there and is ignored.
    const char* configured = std::getenv("XDG_CONFIG_HOME");
    if (configured != nullptr && configured[0] == '/') {
        return std::string(configured) + "/trevix/profiles.conf";
    }
    std::string home;
    if (const char* named = std::getenv("HOME")) home = named;
    if (home.empty()) {
        const passwd* entry = ::getpwuid(::geteuid());
        if (entry != nullptr && entry->pw_dir != nullptr) home = entry->pw_dir;
    }
    return home + "/.config/trevix/profiles.conf";
}

}  // namespace trevix::profiles
