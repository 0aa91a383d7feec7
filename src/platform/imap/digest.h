// SHA-256, by which a message that we have written is known again.
#pragma once

#include <cstddef>
#include <string>

#include "platform/blob.h"
#include "platform/result.h"

namespace trevix::imap {

class Digest {
 public:
    Digest();
    Digest(const Digest&) = delete;
    Digest& operator=(const Digest&) = delete;
    ~Digest();

    void Add(const char* bytes, std::size_t count);

    // 64 hexadecimal digits, of all that was added; empty when the library failed. Once only.
    std::string Finish();

 private:
    void* state_ = nullptr;
    bool failed_ = false;
};

// kIo when the content cannot be read.
Result<std::string> DigestOf(const Blob& content);

// `bytes` random bytes as hexadecimal digits; empty when the system has none to give.
std::string RandomHex(std::size_t bytes);

}  // namespace trevix::imap
