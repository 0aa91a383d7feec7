// Spool: one nameless temporary file that takes the bytes of many Blobs.
//
// A dry run replaces thousands of messages; a file for each would run out of descriptors. The space
// of a Blob is given back to the file system when its last copy goes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/blob.h"
#include "platform/result.h"

namespace trevix::cli {

class SpoolFile;

class Spool {
 public:
    // `directory` is where the nameless file lies.
    explicit Spool(std::string directory) : directory_(std::move(directory)) {}

    // A copy of the bytes, which stays readable as long as the Blob lives. Run-time errors of
    // writing; nothing is kept then.
    Result<Blob> Keep(const Blob& content);

 private:
    Status OpenFile();

    std::string directory_;
    std::shared_ptr<SpoolFile> file_;
    std::uint64_t end_ = 0;
};

}  // namespace trevix::cli
