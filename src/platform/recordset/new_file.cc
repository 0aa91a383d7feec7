#include "platform/recordset/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "platform/errors.h"

namespace trevix::recordset {
namespace {

// A rename that refuses to replace. Not every file system offers it; a second link does the same
// on all that have links.
int RenameWithoutReplacing(const char* from, const char* to) {
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    if (::link(from, to) != 0) return errno;
    ::unlink(from);
    return 0;
}

// A missing file cannot be what a new file lacks; its folder is.
Error CreateError(int system_error, const std::string& path) {
    if (system_error == ENOENT) return RuntimeError(kPathNotFound, path);
    return SystemError(system_error, path);
}

}  // namespace

NewFile::~NewFile() {
    if (descriptor_ >= 0) ::close(descriptor_);
    if (!temporary_path_.empty()) ::unlink(temporary_path_.c_str());
}

Status NewFile::Create(const std::string& path) {
    struct stat existing {};
    if (::lstat(path.c_str(), &existing) == 0) return RuntimeError(kFileExists, path);
    path_ = path;
    const std::size_t slash = path.rfind('/');
    std::string name = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    name += ".recordset-XXXXXX";
    descriptor_ = ::mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) return CreateError(errno, path);
    temporary_path_ = name;
    return {};
}

Status NewFile::Finish() {
    const int closed = ::close(descriptor_);
    descriptor_ = -1;
    if (closed != 0) return SystemError(errno, path_);
    const int failed = RenameWithoutReplacing(temporary_path_.c_str(), path_.c_str());
    if (failed == EEXIST) return RuntimeError(kFileExists, path_);
    if (failed != 0) return CreateError(failed, path_);
    temporary_path_.clear();
    return {};
}

}  // namespace trevix::recordset
