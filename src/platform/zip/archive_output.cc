#include "platform/zip/archive_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/zip/archive_bytes.h"

namespace trevix::zip_engine {
namespace {

constexpr std::size_t kWindowBytes = std::size_t{1024} * 1024;

// Copies the beginning of one file to another, inside the kernel where that is possible.
int CopyBeginning(int from, int to, std::uint64_t count) {
    off_t source = 0;
    off_t target = 0;
    while (count > 0) {
        const auto piece =
            static_cast<std::size_t>(std::min<std::uint64_t>(count, std::uint64_t{1} << 30));
        const ssize_t copied = ::copy_file_range(from, &source, to, &target, piece, 0);
        if (copied < 0 && errno == EINTR) continue;
        if (copied <= 0) break;
        count -= static_cast<std::uint64_t>(copied);
    }
    HeapBytes buffer = MakeHeapBytes(count > 0 ? kWindowBytes : 1);
    while (count > 0) {
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(count, kWindowBytes));
        const ssize_t got = ::pread(from, buffer.get(), piece, source);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return got < 0 ? errno : EIO;
        const auto taken = static_cast<std::size_t>(got);
        const int failed = WriteFully(to, static_cast<std::uint64_t>(target), buffer.get(), taken);
        if (failed != 0) return failed;
        source += got;
        target += got;
        count -= taken;
    }
    return 0;
}

}  // namespace

std::string DirectoryOf(const std::string& path) {
    const auto cut = path.rfind('/');
    if (cut == std::string::npos) return ".";
    return cut == 0 ? "/" : path.substr(0, cut);
}

std::string ScratchDirectory() {
    const char* chosen = std::getenv("TMPDIR");
    return chosen != nullptr && *chosen != '\0' ? chosen : "/tmp";
}

UniqueDescriptor OpenScratch(const std::string& directory) {
    UniqueDescriptor file(::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (file.valid() || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return file;
    // A file system that cannot make files without names.
    std::string name = directory + "/.trevix-XXXXXX";
    file.Reset(::mkostemp(name.data(), O_CLOEXEC));
    if (file.valid()) ::unlink(name.c_str());
    return file;
}

int WriteFully(int descriptor, std::uint64_t offset, const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t wrote = ::pwrite(descriptor, bytes, count, static_cast<off_t>(offset));
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) return errno;
        if (wrote == 0) return ENOSPC;
        const auto taken = static_cast<std::size_t>(wrote);
        offset += taken;
        bytes += taken;
        count -= taken;
    }
    return 0;
}

ArchiveOutput::~ArchiveOutput() {
    DropNew();
    zip_error_fini(&error_);
}

void ArchiveOutput::DropNew() {
    new_.Reset();
    if (!new_path_.empty()) ::unlink(new_path_.c_str());
    new_path_.clear();
    new_bytes_ = 0;
    window_at_ = 0;
    window_used_ = 0;
    write_position_ = 0;
}

Code ArchiveOutput::OpenOld() {
    if (path_.empty()) return kOk;
    FileIdentity identity;
    old_ = OpenRegularFile(path_, &identity);
    if (!old_.valid()) {
        // A link is refused too: it would be the link that gets replaced.
        return errno == ENOENT ? kOk : CreateCode(errno);
    }
    old_bytes_ = identity.size_bytes;
    // Replacing needs no right to write the file itself, but who took that right meant something.
    if (::faccessat(AT_FDCWD, path_.c_str(), W_OK, AT_EACCESS) != 0) return kCannotCreate;
    struct stat about {};
    if (::fstat(old_.get(), &about) == 0) mode_ = about.st_mode & 0777;
    return kOk;
}

zip_source_t* ArchiveOutput::MakeSource(zip_error_t* error) {
    zip_error_fini(&error_);
    zip_error_init(&error_);
    return zip_source_function_create(&ArchiveOutput::OnCommand, this, error);
}

zip_int64_t ArchiveOutput::OnCommand(void* self, void* data, zip_uint64_t length,
                                     zip_source_cmd_t command) {
    auto* output = static_cast<ArchiveOutput*>(self);
    switch (command) {
        case ZIP_SOURCE_SUPPORTS:
            return zip_source_make_command_bitmap(
                ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL,
                ZIP_SOURCE_BEGIN_WRITE, ZIP_SOURCE_BEGIN_WRITE_CLONING, ZIP_SOURCE_COMMIT_WRITE,
                ZIP_SOURCE_ROLLBACK_WRITE, ZIP_SOURCE_WRITE, ZIP_SOURCE_SEEK_WRITE,
                ZIP_SOURCE_TELL_WRITE, ZIP_SOURCE_REMOVE, -1);
        case ZIP_SOURCE_ERROR: return zip_error_to_data(&output->error_, data, length);
        case ZIP_SOURCE_FREE: return 0;
        case ZIP_SOURCE_OPEN:
        case ZIP_SOURCE_READ:
        case ZIP_SOURCE_CLOSE:
        case ZIP_SOURCE_STAT:
        case ZIP_SOURCE_SEEK:
        case ZIP_SOURCE_TELL: return output->OnReadCommand(data, length, command);
        default: return output->OnWriteCommand(data, length, command);
    }
}

zip_int64_t ArchiveOutput::OnReadCommand(void* data, zip_uint64_t length,
                                         zip_source_cmd_t command) {
    switch (command) {
        case ZIP_SOURCE_STAT:
            if (length < sizeof(zip_stat_t)) return Fail(kInternal, ZIP_ER_INTERNAL, 0);
            DescribeTo(static_cast<zip_stat_t*>(data));
            return sizeof(zip_stat_t);
        case ZIP_SOURCE_OPEN: read_position_ = 0; return 0;
        case ZIP_SOURCE_CLOSE: return 0;
        case ZIP_SOURCE_TELL: return read_position_;
        case ZIP_SOURCE_SEEK: {
            const zip_int64_t to = zip_source_seek_compute_offset(
                static_cast<zip_uint64_t>(read_position_), old_bytes_, data, length, &error_);
            if (to < 0) return -1;
            read_position_ = to;
            return 0;
        }
        default: break;
    }
    const std::uint64_t left = old_bytes_ - static_cast<std::uint64_t>(read_position_);
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(length, left));
    DescriptorBytes bytes(old_.get(), old_bytes_);
    const Code code =
        bytes.ReadAt(static_cast<std::uint64_t>(read_position_), static_cast<char*>(data), count);
    if (code != kOk) return Fail(code, ZIP_ER_READ, errno);
    read_position_ += static_cast<zip_int64_t>(count);
    return static_cast<zip_int64_t>(count);
}

void ArchiveOutput::DescribeTo(zip_stat_t* about) const {
    zip_stat_init(about);
    about->size = old_bytes_;
    about->valid = ZIP_STAT_SIZE;
}

zip_int64_t ArchiveOutput::OnWriteCommand(void* data, zip_uint64_t length,
                                          zip_source_cmd_t command) {
    switch (command) {
        case ZIP_SOURCE_BEGIN_WRITE: return BeginWriting();
        // libzip gives the number of bytes to keep as the length, without any data.
        case ZIP_SOURCE_BEGIN_WRITE_CLONING: return BeginCloning(length);
        case ZIP_SOURCE_WRITE:
            return Write(static_cast<const char*>(data), static_cast<std::size_t>(length));
        case ZIP_SOURCE_TELL_WRITE: return static_cast<zip_int64_t>(write_position_);
        case ZIP_SOURCE_SEEK_WRITE: {
            const std::uint64_t end = std::max(new_bytes_, window_at_ + window_used_);
            const zip_int64_t to =
                zip_source_seek_compute_offset(write_position_, end, data, length, &error_);
            if (to < 0) return -1;
            write_position_ = static_cast<std::uint64_t>(to);
            return 0;
        }
        case ZIP_SOURCE_COMMIT_WRITE: return Flush() ? 0 : -1;
        case ZIP_SOURCE_ROLLBACK_WRITE: DropNew(); return 0;
        default: zip_error_set(&error_, ZIP_ER_OPNOTSUPP, 0); return -1;
    }
}

zip_int64_t ArchiveOutput::BeginWriting() {
    DropNew();
    if (path_.empty()) {
        new_ = OpenScratch(ScratchDirectory());
    } else {
        std::string name = DirectoryOf(path_) + "/.trevix-zip-XXXXXX";
        new_.Reset(::mkostemp(name.data(), O_CLOEXEC));
        if (new_.valid()) new_path_ = name;
    }
    if (!new_.valid()) return Fail(CreateCode(errno), ZIP_ER_TMPOPEN, errno);
    if (window_ == nullptr) window_ = MakeHeapBytes(kWindowBytes);
    return 0;
}

zip_int64_t ArchiveOutput::BeginCloning(std::uint64_t count) {
    if (count > old_bytes_) return Fail(kStructure, ZIP_ER_INCONS, 0);
    if (BeginWriting() != 0) return -1;
    const int failed = CopyBeginning(old_.get(), new_.get(), count);
    if (failed != 0) {
        DropNew();
        return Fail(kWriteFailed, ZIP_ER_WRITE, failed);
    }
    new_bytes_ = count;
    write_position_ = count;
    window_at_ = count;
    return 0;
}

bool ArchiveOutput::Flush() {
    if (window_used_ == 0) return true;
    const int failed = WriteFully(new_.get(), window_at_, window_.get(), window_used_);
    if (failed != 0) {
        Fail(kWriteFailed, ZIP_ER_WRITE, failed);
        return false;
    }
    new_bytes_ = std::max(new_bytes_, window_at_ + window_used_);
    window_at_ += window_used_;
    window_used_ = 0;
    return true;
}

zip_int64_t ArchiveOutput::Write(const char* bytes, std::size_t count) {
    const std::uint64_t window_end = window_at_ + window_used_;
    const bool reaches = write_position_ >= window_at_ && write_position_ <= window_end;
    const bool fits = reaches && write_position_ - window_at_ + count <= kWindowBytes;
    if (!fits) {
        if (!Flush()) return -1;
        window_at_ = write_position_;
        if (count >= kWindowBytes) {
            const int failed = WriteFully(new_.get(), write_position_, bytes, count);
            if (failed != 0) return Fail(kWriteFailed, ZIP_ER_WRITE, failed);
            write_position_ += count;
            new_bytes_ = std::max(new_bytes_, write_position_);
            window_at_ = write_position_;
            return static_cast<zip_int64_t>(count);
        }
    }
    const auto inside = static_cast<std::size_t>(write_position_ - window_at_);
    std::memcpy(window_.get() + inside, bytes, count);
    window_used_ = std::max(window_used_, inside + count);
    write_position_ += count;
    return static_cast<zip_int64_t>(count);
}

Code ArchiveOutput::Publish() {
    if (!new_.valid() || new_path_.empty()) return kInternal;
    // Deliberately without fsync: archives are made in work directories that do not outlive a
    // crash, and what is kept of them is made durable by whoever keeps it.
    if (mode_ != 0600 && ::fchmod(new_.get(), mode_) != 0) return kWriteFailed;
    // Some file systems tell only now that there was no room.
    if (::close(new_.Release()) != 0 && errno != EINTR) return kWriteFailed;
    if (::rename(new_path_.c_str(), path_.c_str()) != 0) return CreateCode(errno);
    new_path_.clear();
    return kOk;
}

zip_int64_t ArchiveOutput::Fail(Code code, int zip_code, int system_error) {
    if (failure_ == kOk) failure_ = code;
    zip_error_set(&error_, zip_code, system_error);
    return -1;
}

}  // namespace trevix::zip_engine
