// Ctrl-C: the first one asks for an end at the next message, the second one ends the program at
// once. SIGTERM counts as well.
#pragma once

#include <functional>

#include "platform/posix/poll_loop.h"

namespace trevix::cli {

class Interrupt {
 public:
    // From now on and until this object goes, `cancel` is called from the loop for the first
    // signal. At most one object at a time.
    Interrupt(posix::PollLoop& loop, std::function<void()> cancel);
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;
    ~Interrupt();

 private:
    posix::PollLoop& loop_;
    int read_end_ = -1;
    int write_end_ = -1;
};

}  // namespace trevix::cli
