// FileStore: one registry-editor file on disk, read when it has changed, replaced as a whole.
//
// Writers of all processes take turns by a lock on "<path>.lock". A reader takes no lock: it sees
// the whole old or the whole new file.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <memory>
#include <string>

#include "platform/registry/reg_document.h"
#include "platform/result.h"

namespace trevix::registry {

class FileStore {
 public:
    explicit FileStore(std::string path) : path_(std::move(path)) {}

    // The document as it is on disk now; a missing file is an empty one. The pointer stays good
    // until the next call. kMalformed, kDenied, kIo.
    Result<const RegDocument*> Read();

    // Locks, reads, lets `edit` work on the document, and when that returned true replaces the
    // file: when the call returns success the change is on disk. A failure of `edit` is passed on
    // and leaves the file alone, as does every failure of reading. kBusy when the lock was not had
    // for several seconds.
    using Edit = std::function<Result<bool>(RegDocument&)>;
    Status Change(const Edit& edit);

    // Whether a change can be expected to succeed, as far as permissions tell.
    bool IsWritable() const;

    const std::string& path() const { return path_; }

 private:
    Status Replace(const std::string& bytes);

    std::string path_;
    RegDocument document_;
    struct stat seen_ = {};
    bool is_current_ = false;  // `document_` is what `seen_` was; a missing file is all zero
};

}  // namespace trevix::registry
