// Where a server's bytes come from.
#pragma once

#include <cstddef>

#include "platform/result.h"

namespace trevix::imap {

class ByteSource {
 public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    // Waits for at least one byte and copies at most `count`. The end is a failure.
    virtual Result<std::size_t> Read(char* target, std::size_t count) = 0;
};

}  // namespace trevix::imap
