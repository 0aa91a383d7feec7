#include "platform/posix/poll_loop.h"

#include <poll.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <utility>

namespace trevix::posix {
namespace {

constexpr std::int64_t kMillisecond = 1000000;
constexpr std::int64_t kLookInterval = 5 * kMillisecond;

// A source that always has something to do must not keep everybody else waiting.
constexpr int kMostStepsATurn = 200;

// Holds a counter or a flag up while a callback is on the stack, whichever way it is left.
template <typename T>
class Raised {
 public:
    Raised(T& target, T value) : target_(target), before_(target) { target_ = value; }
    Raised(const Raised&) = delete;
    Raised& operator=(const Raised&) = delete;
    ~Raised() { target_ = before_; }

 private:
    T& target_;
    T before_;
};

}  // namespace

PollLoop::PollLoop(std::function<std::int64_t()> monotonic, FirstTick first_tick)
    : monotonic_(std::move(monotonic)), first_tick_(first_tick) {}

std::int64_t PollLoop::Now() const {
    if (monotonic_) return monotonic_();
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 * kMillisecond + now.tv_nsec;
}

MessageLoop::TimerId PollLoop::ArmTimer(int interval_ms, std::function<void()> tick) {
    auto timer = std::make_shared<Timer>();
    timer->interval_ns = std::max(interval_ms, 1) * kMillisecond;
    timer->due_ns = Now() + (first_tick_ == FirstTick::kAtOnce ? 0 : timer->interval_ns);
    timer->tick = std::move(tick);
    const TimerId id = ++last_timer_;
    timers_[id] = std::move(timer);
    return id;
}

void PollLoop::DisarmTimer(TimerId timer) {
    const auto found = timers_.find(timer);
    if (found == timers_.end()) return;
    found->second->armed = false;
    timers_.erase(found);
}

void PollLoop::Defer(std::function<void()> work) {
    deferred_.push_back(std::move(work));
}

void PollLoop::WatchDescriptor(int descriptor, std::function<void()> readable) {
    watches_[descriptor] = std::make_shared<Watch>(std::move(readable));
}

void PollLoop::Unwatch(int descriptor) {
    watches_.erase(descriptor);
}

void PollLoop::Attach(EventSource& source) {
    sources_.push_back(&source);
}

void PollLoop::Detach(EventSource& source) {
    std::erase(sources_, &source);
}

void PollLoop::Pump() {
    if (serving_source_) return;
    const Raised<int> depth(pump_depth_, pump_depth_ + 1);
    const std::int64_t now = Now();
    ServeTimers(now);
    ServeSources();
    if (watches_.empty() || now - last_look_ns_ < kLookInterval) return;
    last_look_ns_ = now;
    ServeDescriptors(0);
}

void PollLoop::Run() {
    while (!quit_) {
        if (HasDeferredWork()) ServeDeferred();
        if (quit_) break;
        ServeSources();
        // What a source put off comes before everything that could come in between.
        if (quit_ || HasDeferredWork()) continue;
        ServeDescriptors(WaitMilliseconds());
        last_look_ns_ = Now();
        ServeTimers(last_look_ns_);
    }
    quit_ = false;
}

void PollLoop::Quit() {
    quit_ = true;
}

void PollLoop::ServeTimers(std::int64_t now) {
    const bool none_due = std::none_of(timers_.begin(), timers_.end(), [now](const auto& entry) {
        return entry.second->due_ns <= now && !entry.second->on_stack;
    });
    if (none_due) return;

    // The shared copies keep a timer's function alive while it disarms itself.
    std::vector<std::shared_ptr<Timer>> due;
    for (const auto& [id, timer] : timers_) {
        if (timer->due_ns <= now && !timer->on_stack) due.push_back(timer);
    }
    std::stable_sort(due.begin(), due.end(),
                     [](const auto& a, const auto& b) { return a->due_ns < b->due_ns; });
    for (const auto& timer : due) {
        // An earlier tick may have disarmed it, or served it from a pump of its own.
        if (!timer->armed || timer->on_stack || timer->due_ns > now) continue;
        timer->due_ns += timer->interval_ns;
        if (timer->due_ns <= now) timer->due_ns = now + timer->interval_ns;
        const Raised<bool> on_stack(timer->on_stack, true);
        timer->tick();
    }
}

void PollLoop::ServeSources() {
    if (serving_source_) return;
    const Raised<bool> serving(serving_source_, true);
    // By position: a source may attach or detach another.
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        EventSource* const source = sources_[i];
        for (int step = 0; step < kMostStepsATurn && source->ServeOne(); ++step) {
        }
    }
}

// Sources are only waited for here: what they have to do is looked at in every turn anyway.
void PollLoop::ServeDescriptors(int timeout_ms) {
    std::vector<pollfd> looked;
    for (const auto& [descriptor, watch] : watches_) {
        looked.push_back(pollfd{descriptor, POLLIN, 0});
    }
    const std::size_t watched = looked.size();
    if (timeout_ms != 0) {
        for (EventSource* source : sources_) {
            const EventSource::Wait wait = source->WaitsFor();
            const int events = (wait.is_read ? POLLIN : 0) | (wait.is_write ? POLLOUT : 0);
            looked.push_back(pollfd{wait.descriptor, static_cast<short>(events), 0});
        }
    }
    // A signal ends the wait early; the caller's loop looks at everything again.
    if (::poll(looked.data(), looked.size(), timeout_ms) <= 0) return;
    looked.resize(watched);
    for (const pollfd& one : looked) {
        const auto found = watches_.find(one.fd);
        if (one.revents == 0 || found == watches_.end()) continue;
        const std::shared_ptr<Watch> watch = found->second;
        (*watch)();
    }
}

// Only what is there now: work that defers itself again must not keep the timers waiting.
void PollLoop::ServeDeferred() {
    for (auto& work : std::exchange(deferred_, {})) {
        work();
    }
}

// -1 waits without end. A wait is rounded up, so that it does not end just before the tick.
int PollLoop::WaitMilliseconds() {
    if (HasDeferredWork()) return 0;
    std::int64_t earliest = std::numeric_limits<std::int64_t>::max();
    for (EventSource* source : sources_) {
        const EventSource::Wait wait = source->WaitsFor();
        if (wait.until_ns >= 0) earliest = std::min(earliest, wait.until_ns);
    }
    for (const auto& [id, timer] : timers_) {
        if (!timer->on_stack) earliest = std::min(earliest, timer->due_ns);
    }
    if (earliest == std::numeric_limits<std::int64_t>::max()) return -1;
    const std::int64_t wait = (earliest - Now() + kMillisecond - 1) / kMillisecond;
    return static_cast<int>(std::clamp<std::int64_t>(wait, 0, std::int64_t{60} * 60 * 1000));
}

}  // namespace trevix::posix
