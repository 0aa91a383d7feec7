#include "cli/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "cli/text_format.h"
#include "platform/errors.h"
#include "util/file_name.h"

namespace trevix::cli {
namespace {

constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestExtension = 40;  // with its dot
constexpr mode_t kOwnerOnly = 0600;

bool IsInsideCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

}  // namespace

std::string SaveName(const std::string& name) {
    std::string safe = SafeFileComponent(name);
    // Marks of direction are no characters of a name that is to be trusted.
    safe = Printable(safe);
    std::replace(safe.begin(), safe.end(), '?', '_');
    if (safe.front() == '.' || safe.front() == '-') safe.front() = '_';
    return safe;
}

std::string NumberedName(const std::string& name, int number) {
    const std::size_t dot = name.rfind('.');
    const bool has_extension =
        dot != std::string::npos && dot > 0 && name.size() - dot <= kLongestExtension;
    const std::string extension = has_extension ? name.substr(dot) : std::string();
    std::string stem = has_extension ? name.substr(0, dot) : name;
    const std::string suffix = " (" + std::to_string(number) + ")" + extension;
    std::size_t end = std::min(stem.size(), kLongestName - suffix.size());
    while (end > 0 && end < stem.size() && IsInsideCharacter(stem[end]))
        --end;
    return stem.substr(0, end) + suffix;
}

Result<OutputFile> OutputFile::Create(int directory) {
    UniqueDescriptor file(::openat(directory, ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, kOwnerOnly));
    if (file.valid()) return OutputFile(directory, std::move(file), {});
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != ENOENT && errno != EINVAL) {
        return SystemError(errno, {});
    }
    // Network file systems know no nameless files.
    for (int attempt = 0;; ++attempt) {
        std::string name =
            ".trevix-extract-" + std::to_string(::getpid()) + "-" + std::to_string(attempt);
        file.Reset(::openat(directory, name.c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly));
        if (file.valid()) return OutputFile(directory, std::move(file), std::move(name));
        if (errno != EEXIST) return SystemError(errno, {});
    }
}

OutputFile::~OutputFile() {
    if (file_.valid() && !temporary_.empty()) ::unlinkat(directory_, temporary_.c_str(), 0);
}

Status OutputFile::Write(const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t written = ::write(file_.get(), bytes, count);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return SystemError(errno, {});
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return {};
}

int OutputFile::TakeName(const std::string& name) {
    if (temporary_.empty()) {
        const std::string self = "/proc/self/fd/" + std::to_string(file_.get());
        const int linked =
            ::linkat(AT_FDCWD, self.c_str(), directory_, name.c_str(), AT_SYMLINK_FOLLOW);
        return linked == 0 ? 0 : errno;
    }
    if (::renameat2(directory_, temporary_.c_str(), directory_, name.c_str(), RENAME_NOREPLACE) ==
        0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) return errno;
    if (::linkat(directory_, temporary_.c_str(), directory_, name.c_str(), 0) != 0) return errno;
    ::unlinkat(directory_, temporary_.c_str(), 0);
    return 0;
}

Result<std::string> OutputFile::Finish(const std::string& name) {
    // Only there does a full disk show as late as now.
    if (!temporary_.empty() && ::fsync(file_.get()) != 0) return SystemError(errno, {});
    std::string taken = name;
    for (int number = 2;; ++number) {
        const int failure = TakeName(taken);
        if (failure == 0) break;
        if (failure != EEXIST) return SystemError(failure, {});
        taken = NumberedName(name, number);
    }
    file_.Reset();
    return taken;
}

}  // namespace trevix::cli
