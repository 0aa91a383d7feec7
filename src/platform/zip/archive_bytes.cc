#include "platform/zip/archive_bytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace trevix::zip_engine {

Code DescriptorBytes::ReadAt(std::uint64_t offset, char* target, std::size_t count) {
    if (offset > size_bytes_ || count > size_bytes_ - offset) return kStructure;
    while (count > 0) {
        const ssize_t got = ::pread(descriptor_, target, count, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return kReadFailed;
        const auto taken = static_cast<std::size_t>(got);
        offset += taken;
        target += taken;
        count -= taken;
    }
    return kOk;
}

UniqueDescriptor OpenRegularFile(const std::string& path, FileIdentity* identity) {
    UniqueDescriptor file(
        ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!file.valid()) return file;

    struct stat about {};
    if (::fstat(file.get(), &about) != 0) {
        const int reason = errno;
        file = UniqueDescriptor();
        errno = reason;
        return file;
    }
    if (!S_ISREG(about.st_mode)) {
        file = UniqueDescriptor();
        errno = EISDIR;
        return file;
    }
    identity->device = about.st_dev;
    identity->inode = about.st_ino;
    identity->size_bytes = static_cast<std::uint64_t>(about.st_size);
    identity->modified_seconds = about.st_mtim.tv_sec;
    identity->modified_nanoseconds = about.st_mtim.tv_nsec;
    return file;
}

Code ReopeningBytes::ReadAt(std::uint64_t offset, char* target, std::size_t count) {
    FileIdentity now;
    const UniqueDescriptor file = OpenRegularFile(path_, &now);
    if (!file.valid()) return OpenCode(errno);
    if (!(now == identity_)) return kReadFailed;
    return DescriptorBytes(file.get(), now.size_bytes).ReadAt(offset, target, count);
}

}  // namespace trevix::zip_engine
