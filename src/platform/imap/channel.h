// Bytes over a socket that does not block, plain or encrypted: one attempt at a time.
#pragma once

#include <cstddef>
#include <string>

namespace trevix::imap {

// What came of an attempt.
struct Attempt {
    enum class State { kMoved, kWaitToRead, kWaitToWrite, kClosed, kFailed };
    State state = State::kMoved;
    std::size_t count = 0;  // bytes moved
    std::string problem;    // of kFailed, in words
};

class Channel {
 public:
    Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    virtual ~Channel() = default;

    virtual Attempt Read(char* target, std::size_t count) = 0;

    // After kWaitTo... the same bytes are to be tried again.
    virtual Attempt Write(const char* bytes, std::size_t count) = 0;
};

}  // namespace trevix::imap
