// PrivatePlace: a temporary directory of this process alone, gone with the object.
//
// What runs that write nothing would leave behind goes here: the index directory, staging, copies
// of the settings. One that a killed process left is removed by the next.
#pragma once

#include <memory>
#include <string>

#include "platform/file_system.h"
#include "platform/posix/staging.h"
#include "platform/result.h"

namespace trevix::cli {

class PrivatePlace {
 public:
    // Below `temporary`, a directory without a final separator. Run-time errors, with the path.
    static Result<std::unique_ptr<PrivatePlace>> Make(const std::string& temporary);
    PrivatePlace(const PrivatePlace&) = delete;
    PrivatePlace& operator=(const PrivatePlace&) = delete;
    ~PrivatePlace();

    // Without a final separator.
    const std::string& path() const { return path_; }

    // Copies `file` into the place under its own name; the copy's path. A missing file has no copy,
    // which is no error.
    Result<std::string> CopyOf(const std::string& file);

 private:
    explicit PrivatePlace(std::string parent) : parent_(std::move(parent)) {}

    std::string parent_;
    std::string path_;
    std::unique_ptr<posix::StagingArea> area_;
    std::unique_ptr<StagingDirectory> directory_;
};

}  // namespace trevix::cli
