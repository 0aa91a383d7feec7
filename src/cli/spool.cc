#include "cli/spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/errors.h"
#include "platform/file_blob.h"
#include "platform/unique_descriptor.h"

namespace trevix::cli {

class SpoolFile {
 public:
    explicit SpoolFile(UniqueDescriptor file) : file_(std::move(file)) {}
    int descriptor() const { return file_.get(); }

    Status Write(std::uint64_t offset, const char* bytes, std::size_t count,
                 const std::string& where) const {
        for (std::size_t done = 0; done < count;) {
            const ssize_t wrote = ::pwrite(file_.get(), bytes + done, count - done,
                                           static_cast<off_t>(offset + done));
            if (wrote < 0 && errno == EINTR) continue;
            if (wrote < 0) return SystemError(errno, where);
            done += static_cast<std::size_t>(wrote);
        }
        return {};
    }

    void Free(std::uint64_t offset, std::uint64_t count) const {
        if (count == 0) return;
        // Where holes cannot be made the space comes back with the end of the program.
        static_cast<void>(::fallocate(file_.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                                      static_cast<off_t>(offset), static_cast<off_t>(count)));
    }

 private:
    UniqueDescriptor file_;
};

namespace {

class SpooledBytes final : public Blob::Source {
 public:
    SpooledBytes(std::shared_ptr<const SpoolFile> file, std::uint64_t offset, std::uint64_t size)
        : file_(std::move(file)), offset_(offset), size_bytes_(size) {}
    SpooledBytes(const SpooledBytes&) = delete;
    SpooledBytes& operator=(const SpooledBytes&) = delete;
    ~SpooledBytes() override { file_->Free(offset_, size_bytes_); }

    std::uint64_t size_bytes() const override { return size_bytes_; }
    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        return ReadFully(file_->descriptor(), offset_ + offset, target, count);
    }
    int descriptor(std::uint64_t* file_offset) const override {
        if (file_offset != nullptr) *file_offset = offset_;
        return file_->descriptor();
    }

 private:
    std::shared_ptr<const SpoolFile> file_;
    std::uint64_t offset_;
    std::uint64_t size_bytes_;
};

}  // namespace

Status Spool::OpenFile() {
    if (file_ != nullptr) return {};
    UniqueDescriptor file(::open(directory_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file.valid() && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        // Not every file system knows nameless files: there the name goes at once.
        std::string name = directory_ + "/spool-XXXXXX";
        file.Reset(::mkostemp(name.data(), O_CLOEXEC));
        if (file.valid()) ::unlink(name.c_str());
    }
    if (!file.valid()) return SystemError(errno, directory_);
    file_ = std::make_shared<SpoolFile>(std::move(file));
    return {};
}

Result<Blob> Spool::Keep(const Blob& content) {
    TREVIX_RETURN_IF_ERROR(OpenFile());
    // Owns the range from here on, so that a failure gives its space back.
    const std::uint64_t begin = end_;
    Blob kept(std::make_shared<SpooledBytes>(file_, begin, content.size_bytes()));
    std::uint64_t at = begin;
    TREVIX_RETURN_IF_ERROR(content.ForEachPiece([&](const char* bytes, std::size_t count) {
        Status written = file_->Write(at, bytes, count, directory_);
        at += count;
        return written;
    }));
    end_ = at;
    return kept;
}

}  // namespace trevix::cli
