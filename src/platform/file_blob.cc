#include "platform/file_blob.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace trevix {
namespace {

constexpr std::uint64_t kKeptInMemory = std::uint64_t{64} * 1024;

class FileSource final : public Blob::Source {
 public:
    FileSource(UniqueDescriptor descriptor, std::uint64_t size_bytes)
        : descriptor_(std::move(descriptor)), size_bytes_(size_bytes) {}

    std::uint64_t size_bytes() const override { return size_bytes_; }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        return ReadFully(descriptor_.get(), offset, target, count);
    }

    int descriptor(std::uint64_t* file_offset) const override {
        *file_offset = 0;
        return descriptor_.get();
    }

 private:
    UniqueDescriptor descriptor_;
    std::uint64_t size_bytes_;
};

}  // namespace

Status ReadFully(int descriptor, std::uint64_t offset, char* target, std::size_t count) {
    while (count > 0) {
        const ssize_t got = ::pread(descriptor, target, count, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return SystemError(errno, {});
        if (got == 0) return MessagingError(kObjectChanged);
        offset += static_cast<std::uint64_t>(got);
        target += got;
        count -= static_cast<std::size_t>(got);
    }
    return {};
}

Blob BlobOverDescriptor(UniqueDescriptor descriptor, std::uint64_t size_bytes) {
    return Blob(std::make_shared<FileSource>(std::move(descriptor), size_bytes));
}

Result<Blob> BlobFromDescriptor(UniqueDescriptor descriptor, std::uint64_t size_bytes) {
    if (size_bytes > kKeptInMemory) {
        return BlobOverDescriptor(std::move(descriptor), size_bytes);
    }
    std::string bytes(static_cast<std::size_t>(size_bytes), '\0');
    TREVIX_RETURN_IF_ERROR(ReadFully(descriptor.get(), 0, bytes.data(), bytes.size()));
    return Blob::FromString(std::move(bytes));
}

Result<Blob> OpenFileBlob(const std::string& path, FollowLinks follow) {
    return OpenFileBlob(AT_FDCWD, path, follow);
}

Result<Blob> OpenFileBlob(int directory, const std::string& name, FollowLinks follow) {
    // Without O_NONBLOCK, opening a FIFO would wait for a writer.
    const int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK |
                      (follow == FollowLinks::kNo ? O_NOFOLLOW : 0);
    UniqueDescriptor file(::openat(directory, name.c_str(), flags));
    if (!file.valid()) return SystemError(errno, name);
    struct stat about {};
    if (::fstat(file.get(), &about) != 0) return SystemError(errno, name);
    if (!S_ISREG(about.st_mode)) return SystemError(EISDIR, name);
    return BlobFromDescriptor(std::move(file), static_cast<std::uint64_t>(about.st_size));
}

}  // namespace trevix
