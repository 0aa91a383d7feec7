#include "platform/imap/spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/errors.h"
#include "platform/file_blob.h"

namespace trevix::imap {
namespace {

// A file that has become larger is not added to, so that its space is not held for ever by one
// small content in it.
constexpr std::uint64_t kFullBytes = std::uint64_t{32} << 20;

class SpooledSource final : public Blob::Source {
 public:
    SpooledSource(std::shared_ptr<const SpoolFile> file, std::uint64_t offset, std::uint64_t size)
        : file_(std::move(file)), offset_(offset), size_bytes_(size) {}

    std::uint64_t size_bytes() const override { return size_bytes_; }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        return ReadFully(file_->descriptor.get(), offset_ + offset, target, count);
    }

    int descriptor(std::uint64_t* file_offset) const override {
        *file_offset = offset_;
        return file_->descriptor.get();
    }

 private:
    std::shared_ptr<const SpoolFile> file_;
    std::uint64_t offset_;
    std::uint64_t size_bytes_;
};

// A missing directory is no missing mailbox.
Error SpoolError(int system_error, const std::string& directory) {
    Error error = StoreSystemError(system_error, directory);
    if (error.kind != ErrorKind::kNotFound) return error;
    return MessagingError(kDiskError, directory + ": " + std::strerror(system_error));
}

std::string DefaultDirectory() {
    const char* const given = std::getenv("TMPDIR");
    return given != nullptr && *given == '/' ? given : "/tmp";
}

}  // namespace

Status Spool::OpenFile() {
    if (directory_.empty()) directory_ = DefaultDirectory();
    UniqueDescriptor file(::open(directory_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file.valid() && (errno == EOPNOTSUPP || errno == EISDIR)) {
        std::string path = directory_ + "/trevix-XXXXXX";
        file.Reset(::mkostemp(path.data(), O_CLOEXEC));
        if (file.valid()) ::unlink(path.c_str());
    }
    if (!file.valid()) return SpoolError(errno, directory_);
    file_ = std::make_shared<SpoolFile>();
    file_->descriptor = std::move(file);
    return {};
}

Status Spool::Begin() {
    const bool full = file_ != nullptr && file_->size_bytes >= kFullBytes;
    if (full) file_.reset();
    if (file_ == nullptr) TREVIX_RETURN_IF_ERROR(OpenFile());
    // Nobody reads what is in it any more, so it is written over: a new file costs more.
    if (file_.use_count() == 1) file_->size_bytes = 0;
    begin_ = file_->size_bytes;
    end_ = begin_;
    return {};
}

Status Spool::Write(const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t put =
            ::pwrite(file_->descriptor.get(), bytes, count, static_cast<off_t>(end_));
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return SpoolError(errno, directory_);
        bytes += put;
        count -= static_cast<std::size_t>(put);
        end_ += static_cast<std::uint64_t>(put);
    }
    return {};
}

Blob Spool::End() {
    file_->size_bytes = end_;
    return Blob(std::make_shared<SpooledSource>(file_, begin_, end_ - begin_));
}

}  // namespace trevix::imap
