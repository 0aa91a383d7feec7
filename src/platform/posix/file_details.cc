#include "platform/posix/file_details.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <optional>

#include "platform/errors.h"

namespace trevix::posix {
namespace {

constexpr const char* kKeptIn = "user.trevix.attributes";
constexpr std::int32_t kKept = kAttributeHidden | kAttributeSystem | kAttributeArchive;
constexpr std::int32_t kOfANewFile = kAttributeArchive;
constexpr std::int64_t kSecond = 1000000000;

std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

bool HasHiddenName(const std::string& path) {
    return NameOf(path).starts_with('.');
}

// Nothing when none were ever stored, and for what is not ours.
std::optional<std::int32_t> KeptAttributes(const std::string& path) {
    std::array<char, 16> text{};
    const ssize_t length = ::getxattr(path.c_str(), kKeptIn, text.data(), text.size());
    if (length < 3 || text[0] != '0' || text[1] != 'x') return std::nullopt;
    std::uint32_t bits = 0;
    const char* end = text.data() + length;
    const auto parsed = std::from_chars(text.data() + 2, end, bits, 16);
    if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
    return static_cast<std::int32_t>(bits) & kKept;
}

std::int32_t AttributesOf(const std::string& path, mode_t mode) {
    std::int32_t attributes = KeptAttributes(path).value_or(S_ISDIR(mode) ? 0 : kOfANewFile);
    if (HasHiddenName(path)) attributes |= kAttributeHidden;
    if (S_ISDIR(mode)) attributes |= kAttributeDirectory;
    if ((mode & S_IWUSR) == 0) attributes |= kAttributeReadOnly;
    return attributes;
}

std::int64_t Nanoseconds(const struct statx_timestamp& time) {
    return std::int64_t{time.tv_sec} * kSecond + time.tv_nsec;
}

Result<struct statx> Examine(const std::string& path) {
    struct statx about {};
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS | STATX_BTIME, &about) == 0) {
        return about;
    }
    return SystemError(errno, path);
}

Status StoreKept(const std::string& path, std::int32_t kept) {
    std::array<char, 16> text{'0', 'x'};
    const auto end =
        std::to_chars(text.data() + 2, text.data() + text.size(), static_cast<unsigned>(kept), 16);
    const auto length = static_cast<std::size_t>(end.ptr - text.data());
    if (::setxattr(path.c_str(), kKeptIn, text.data(), length, 0) == 0) return {};
    Error error = SystemError(errno, path);
    if (errno == EOPNOTSUPP) error.kind = ErrorKind::kUnsupported;
    return error;
}

}  // namespace

Result<FileDetails> ReadFileDetails(const std::string& path) {
    if (path.ends_with('/')) return RuntimeError(kFileNotFound, path);
    auto examined = Examine(path);
    if (!examined.ok()) return examined.error();
    const struct statx& about = examined.value();

    FileDetails details;
    details.name = NameOf(path);
    details.attributes = AttributesOf(path, about.stx_mode);
    if (!S_ISDIR(about.stx_mode)) details.size_bytes = about.stx_size;
    details.accessed_ns = Nanoseconds(about.stx_atime);
    details.modified_ns = Nanoseconds(about.stx_mtime);
    // A file system that does not note the creation: the file is at least as old as its content.
    const bool has_birth = (about.stx_mask & STATX_BTIME) != 0;
    details.created_ns = has_birth ? Nanoseconds(about.stx_btime) : details.modified_ns;
    return details;
}

Status WriteFileAttributes(const std::string& path, std::int32_t attributes) {
    auto examined = Examine(path);
    if (!examined.ok()) return examined.error();
    const mode_t mode = examined.value().stx_mode & 07777U;
    const std::int32_t old = AttributesOf(path, examined.value().stx_mode);

    // What the name says by itself is not stored as well.
    std::int32_t kept = attributes & kKept;
    if (HasHiddenName(path)) kept |= kAttributeHidden;
    if (kept != (old & kKept)) TREVIX_RETURN_IF_ERROR(StoreKept(path, kept));

    const bool read_only = (attributes & kAttributeReadOnly) != 0;
    if (read_only == ((old & kAttributeReadOnly) != 0)) return {};
    // Nobody may write a read-only file; afterwards its owner may again.
    const mode_t wanted = read_only ? mode & ~mode_t{0222} : mode | S_IWUSR;
    if (::chmod(path.c_str(), wanted) != 0) return SystemError(errno, path);
    return {};
}

Status WriteFileTime(const std::string& path, FileTime which, std::int64_t unix_ns) {
    if (which == FileTime::kCreated) {
        Error error = SystemError(EOPNOTSUPP, path);
        error.kind = ErrorKind::kUnsupported;
        return error;
    }
    std::int64_t seconds = unix_ns / kSecond;
    std::int64_t rest = unix_ns % kSecond;
    if (rest < 0) {
        --seconds;
        rest += kSecond;
    }
    const struct timespec wanted { static_cast<time_t>(seconds), static_cast<long>(rest) };
    const struct timespec unchanged { 0, UTIME_OMIT };
    const bool access = which == FileTime::kAccessed;
    const std::array<struct timespec, 2> times{access ? wanted : unchanged,
                                               access ? unchanged : wanted};
    if (::utimensat(AT_FDCWD, path.c_str(), times.data(), 0) != 0) return SystemError(errno, path);
    return {};
}

}  // namespace trevix::posix
