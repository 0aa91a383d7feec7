#include "cli/private_place.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/errors.h"
#include "platform/posix/posix_file_system.h"

namespace trevix::cli {
namespace {

constexpr mode_t kPrivate = 0700;

// The directory that all places of a user share. In a directory that everybody may write, somebody
// else can have made it first, as a link or as his own.
Status MakeParent(const std::string& path) {
    if (::mkdir(path.c_str(), kPrivate) != 0 && errno != EEXIST) return SystemError(errno, path);
    struct stat about {};
    if (::lstat(path.c_str(), &about) != 0) return SystemError(errno, path);
    const bool ours =
        S_ISDIR(about.st_mode) && about.st_uid == ::geteuid() && (about.st_mode & 0777) == kPrivate;
    if (!ours) return RuntimeError(kPermissionDenied, path);
    return {};
}

}  // namespace

Result<std::unique_ptr<PrivatePlace>> PrivatePlace::Make(const std::string& temporary) {
    const std::string parent = temporary + "/trevixctl-" + std::to_string(::geteuid());
    std::unique_ptr<PrivatePlace> place(new PrivatePlace(parent));
    place->area_ = std::make_unique<posix::StagingArea>();
    // The last process to leave removes the parent, which may be between our two steps.
    for (int turn = 0;; ++turn) {
        TREVIX_RETURN_IF_ERROR(MakeParent(parent));
        posix::SweepStagingBases(parent);
        auto made = place->area_->Make(parent);
        if (made.ok()) {
            place->directory_ = std::move(made).value();
            break;
        }
        if (made.error().kind != ErrorKind::kNotFound || turn == 2) return made.error();
    }
    place->path_ = place->directory_->path();
    place->path_.pop_back();
    return place;
}

PrivatePlace::~PrivatePlace() {
    directory_.reset();
    area_.reset();
    // Stays when another process has a place in it.
    ::rmdir(parent_.c_str());
}

Result<std::string> PrivatePlace::CopyOf(const std::string& file) {
    posix::PosixFileSystem files;
    const std::string copy = path_ + "/" + file.substr(file.rfind('/') + 1);
    if (!files.FileExists(file)) return copy;
    const auto text = files.ReadText(file);
    if (!text.ok()) return text.error();
    TREVIX_RETURN_IF_ERROR(files.WriteText(copy, text.value()));
    return copy;
}

}  // namespace trevix::cli
