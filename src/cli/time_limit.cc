#include "cli/time_limit.h"

#include <algorithm>
#include <utility>

namespace trevix::cli {

TimeLimit::TimeLimit(MessageLoop& loop, std::optional<Moment> end, std::function<void()> cancel)
    : loop_(loop), end_(end), cancel_(std::move(cancel)) {
    if (!end_) return;
    // An interval is an int; what lies further away is looked for in several steps.
    constexpr std::chrono::milliseconds kLongest = std::chrono::hours(1);
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*end_ - std::chrono::steady_clock::now());
    const auto interval = std::clamp(left, std::chrono::milliseconds(1), kLongest);
    timer_ = loop_.ArmTimer(static_cast<int>(interval.count()), [this] { Look(); });
}

TimeLimit::~TimeLimit() {
    if (end_) loop_.DisarmTimer(timer_);
}

// The first tick of some loops comes at once.
void TimeLimit::Look() {
    if (is_over_ || std::chrono::steady_clock::now() < *end_) return;
    is_over_ = true;
    cancel_();
}

}  // namespace trevix::cli
