#include "platform/posix/posix_file_system.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <utility>

#include "platform/errors.h"
#include "platform/file_blob.h"
#include "platform/posix/file_details.h"
#include "platform/unique_descriptor.h"

namespace trevix::posix {
namespace {

constexpr mode_t kPrivateFile = 0600;
constexpr mode_t kPrivateDirectory = 0700;

std::string WithoutFinalSlash(std::string path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    return path;
}

std::string ParentOf(const std::string& path) {
    const std::string bare = WithoutFinalSlash(path);
    const std::size_t slash = bare.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : bare.substr(0, slash);
}

bool IsDirectory(const std::string& path) {
    struct stat about {};
    return ::stat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
}

// The system has one number for a missing file and for a missing folder on the way to it; callers
// tell them apart (53 and 76).
Error PathError(int system_error, const std::string& path) {
    if (system_error == ENOENT && !IsDirectory(ParentOf(path))) {
        return RuntimeError(kPathNotFound, path);
    }
    return SystemError(system_error, path);
}

Status WriteAll(int descriptor, const std::string& text, const std::string& path) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t wrote = ::write(descriptor, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) return SystemError(errno, path);
        done += static_cast<std::size_t>(wrote);
    }
    return {};
}

Status WriteFile(const std::string& path, const std::string& text, int how) {
    UniqueDescriptor file(::open(
        path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | how, kPrivateFile));
    if (!file.valid()) return PathError(errno, path);
    TREVIX_RETURN_IF_ERROR(WriteAll(file.get(), text, path));
    // Network file systems and quotas report a full disk only here.
    if (::close(file.Release()) != 0 && errno != EINTR) return SystemError(errno, path);
    return {};
}

}  // namespace

FileSystemPlaces DefaultPlaces() {
    FileSystemPlaces places;
    const char* temporary = std::getenv("TMPDIR");
    places.temporary = temporary != nullptr && *temporary == '/' ? temporary : "/tmp";
    std::array<char, PATH_MAX> program{};
    const ssize_t length = ::readlink("/proc/self/exe", program.data(), program.size());
    if (length > 0) {
        places.installation =
            ParentOf(std::string(program.data(), static_cast<std::size_t>(length)));
    }
    return places;
}

PosixFileSystem::PosixFileSystem(FileSystemPlaces places) : places_(std::move(places)) {}

bool PosixFileSystem::FileExists(const std::string& path) {
    struct stat about {};
    return ::stat(path.c_str(), &about) == 0 && !S_ISDIR(about.st_mode);
}

bool PosixFileSystem::DirectoryExists(const std::string& path) {
    return IsDirectory(path);
}

Result<std::uint64_t> PosixFileSystem::FileSize(const std::string& path) {
    struct stat about {};
    if (::stat(path.c_str(), &about) != 0) return PathError(errno, path);
    if (S_ISDIR(about.st_mode)) return SystemError(EISDIR, path);
    return static_cast<std::uint64_t>(about.st_size);
}

Result<FileDetails> PosixFileSystem::FindFile(const std::string& path) {
    return ReadFileDetails(path);
}

Status PosixFileSystem::SetAttributes(const std::string& path, std::int32_t attributes) {
    return WriteFileAttributes(path, attributes);
}

Status PosixFileSystem::SetTime(const std::string& path, FileTime which, std::int64_t unix_ns) {
    return WriteFileTime(path, which, unix_ns);
}

Result<Blob> PosixFileSystem::OpenBlob(const std::string& path) {
    auto blob = OpenFileBlob(path, FollowLinks::kYes);
    if (!blob.ok() && blob.error().number == kFileNotFound) return PathError(ENOENT, path);
    return blob;
}

Result<std::string> PosixFileSystem::ReadText(const std::string& path) {
    auto blob = OpenBlob(path);
    if (!blob.ok()) return blob.error();
    return blob.value().ToString();
}

Status PosixFileSystem::WriteText(const std::string& path, const std::string& text) {
    return WriteFile(path, text, O_TRUNC);
}

Status PosixFileSystem::AppendText(const std::string& path, const std::string& text) {
    return WriteFile(path, text, O_APPEND);
}

Status PosixFileSystem::Delete(const std::string& path) {
    if (::unlink(path.c_str()) != 0) return PathError(errno, path);
    return {};
}

Status PosixFileSystem::MakeDirectory(const std::string& path) {
    if (::mkdir(path.c_str(), kPrivateDirectory) == 0) return {};
    switch (errno) {
        case EEXIST: return RuntimeError(kPathFileAccess, path);
        case ENOENT:
        case ENOTDIR: return RuntimeError(kPathNotFound, path);
        default: return SystemError(errno, path);
    }
}

// In a directory that everybody may write, somebody else can have made "trevix-UID" first, as a
// link or as his own directory; the check is what keeps mail out of his hands. Checked each time,
// since temporary-file cleaners may have removed it.
std::string PosixFileSystem::TemporaryPath() {
    const std::string base = WithoutFinalSlash(places_.temporary);
    const std::string path = (base == "/" ? "" : base) + "/trevix-" + std::to_string(::geteuid());
    if (::mkdir(path.c_str(), kPrivateDirectory) != 0 && errno != EEXIST) return {};
    struct stat about {};
    if (::lstat(path.c_str(), &about) != 0) return {};
    const bool ours = S_ISDIR(about.st_mode) && about.st_uid == ::geteuid() &&
                      (about.st_mode & 0777) == kPrivateDirectory;
    return ours ? path + "/" : std::string();
}

std::string PosixFileSystem::InstallationDirectory() {
    return places_.installation;
}

Result<std::unique_ptr<StagingDirectory>> PosixFileSystem::MakeStaging(const std::string& parent) {
    return staging_.Make(parent);
}

void PosixFileSystem::SweepStaging(const std::string& parent) {
    SweepStagingBases(parent);
}

}  // namespace trevix::posix
