// Termination: SIGTERM, SIGINT and SIGHUP as an event of the loop.
#pragma once

#include <functional>

#include "platform/posix/poll_loop.h"

namespace trevix::service {

class Termination {
 public:
    // Blocks the signals for this thread and those that it starts. To be made before any is.
    Termination();
    Termination(const Termination&) = delete;
    Termination& operator=(const Termination&) = delete;
    ~Termination();

    // Calls `end` for each of them. The loop outlives this object.
    void Watch(posix::PollLoop& loop, std::function<void()> end);

 private:
    int descriptor_ = -1;
    posix::PollLoop* loop_ = nullptr;
};

}  // namespace trevix::service
