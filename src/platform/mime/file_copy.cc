#include "platform/mime/file_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/unique_descriptor.h"

namespace trevix::mime {
namespace {

Status WriteAll(int file, const char* bytes, std::size_t count, const std::string& path) {
    while (count > 0) {
        const ssize_t written = ::write(file, bytes, count);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return SystemError(errno, path);
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return {};
}

}  // namespace

Status WriteNewFile(const std::string& path, const Blob& bytes) {
    UniqueDescriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.valid()) return SystemError(errno, path);
    Status outcome = bytes.ForEachPiece([&](const char* piece, std::size_t count) {
        return WriteAll(file.get(), piece, count, path);
    });
    // A delayed write error shows at the closing.
    if (::close(file.Release()) != 0 && outcome.ok()) outcome = SystemError(errno, path);
    if (!outcome.ok()) ::unlink(path.c_str());
    return outcome;
}

Result<Blob> ReadWholeFile(const std::string& path) {
    const UniqueDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.valid()) return SystemError(errno, path);
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) return SystemError(errno, path);
    if (!S_ISREG(status.st_mode)) return SystemError(EISDIR, path);
    constexpr off_t kLargest = 0x7FFFFFFF;
    if (status.st_size > kLargest) return RuntimeError(kOutOfMemory, path);
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t read = 0;
    while (read < bytes.size()) {
        const ssize_t count = ::read(file.get(), bytes.data() + read, bytes.size() - read);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return SystemError(errno, path);
        if (count == 0) break;
        read += static_cast<std::size_t>(count);
    }
    bytes.resize(read);
    return Blob::FromString(std::move(bytes));
}

}  // namespace trevix::mime
