// TimeLimit: asks for the end of what goes on in a loop when its time is up.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "platform/message_loop.h"

namespace trevix::cli {

class TimeLimit {
 public:
    using Moment = std::chrono::steady_clock::time_point;

    // Calls `cancel` from the loop, once, at `end` or when the loop is served after it; without an
    // end never.
    TimeLimit(MessageLoop& loop, std::optional<Moment> end, std::function<void()> cancel);
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
    ~TimeLimit();

    // Whether it has called.
    bool IsOver() const { return is_over_; }

 private:
    void Look();

    MessageLoop& loop_;
    std::optional<Moment> end_;
    std::function<void()> cancel_;
    MessageLoop::TimerId timer_ = 0;
    bool is_over_ = false;
};

}  // namespace trevix::cli
