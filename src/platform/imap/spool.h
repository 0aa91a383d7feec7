// Where large content goes: files without a name, in which nobody else can look.
//
// Several contents share a file, so that a thousand of them do not take a thousand descriptors. The
// space of a large file is given back when the last Blob over it is gone; that of a small one is
// used again.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/blob.h"
#include "platform/result.h"
#include "platform/unique_descriptor.h"

namespace trevix::imap {

struct SpoolFile {
    UniqueDescriptor descriptor;
    std::uint64_t size_bytes = 0;
};

class Spool {
 public:
    // `directory` empty: $TMPDIR or /tmp.
    explicit Spool(std::string directory) : directory_(std::move(directory)) {}

    // A content is begun, written in pieces and ended; one at a time. What is begun and not ended
    // is written over by the next. Errors as the system says: kNoSpace, kIo, kDenied, kTooMany.
    Status Begin();
    Status Write(const char* bytes, std::size_t count);
    Blob End();

 private:
    Status OpenFile();

    std::string directory_;
    std::shared_ptr<SpoolFile> file_;
    std::uint64_t begin_ = 0;
    std::uint64_t end_ = 0;
};

}  // namespace trevix::imap
