// The message loop of a process, over poll(2). One thread: it holds no lock and starts no thread.
//
// What a Pump costs when nothing is due: one read of the monotonic clock, a look at each timer and
// one call of each source. Descriptors are looked at (poll with a zero time-out) by a Pump only
// when some are watched and the last look is more than 5 ms ago; a person who presses Ctrl-C does
// not notice 5 ms, while a system call for every message of a big folder would be felt.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/event_source.h"
#include "platform/message_loop.h"

namespace trevix::posix {

// What the first interval of a timer is for. A run begins with a timer so that the call that asked
// for it returns first; where the caller waits in Run() already, nobody gains by the wait.
enum class FirstTick { kAfterInterval, kAtOnce };

class PollLoop final : public MessageLoop {
 public:
    // Monotonic nanoseconds. Given by tests; empty means the system's clock.
    explicit PollLoop(std::function<std::int64_t()> monotonic = {},
                      FirstTick first_tick = FirstTick::kAfterInterval);

    // An interval below 1 ms counts as 1 ms. A tick that is late is served once, not once for
    // every interval that went by.
    TimerId ArmTimer(int interval_ms, std::function<void()> tick) override;
    void DisarmTimer(TimerId timer) override;
    void Defer(std::function<void()> work) override;
    void Pump() override;
    void Run() override;
    void Quit() override;

    // Calls `readable`, from Run() or Pump(), while `descriptor` can be read or has hung up. One
    // callback a descriptor; a second one replaces the first. The descriptor stays the caller's,
    // who unwatches it before closing it. For signals (signalfd) and buses.
    void WatchDescriptor(int descriptor, std::function<void()> readable);
    void Unwatch(int descriptor);

    // Serves `source`, which stays the caller's, from Run() and from every Pump(): in Run() until
    // it has nothing to do, so that what it has read already is not waited for. While the source
    // serves, a Pump() does nothing at all: neither is the source entered twice, nor does a timer
    // begin a long run on top of it. Detach it before it goes.
    void Attach(EventSource& source);
    void Detach(EventSource& source);

 private:
    struct Timer {
        std::int64_t interval_ns = 0;
        std::int64_t due_ns = 0;
        std::function<void()> tick;
        bool on_stack = false;
        bool armed = true;
    };
    using Watch = std::function<void()>;

    std::int64_t Now() const;
    void ServeTimers(std::int64_t now);
    void ServeSources();
    void ServeDescriptors(int timeout_ms);
    void ServeDeferred();
    bool HasDeferredWork() const { return !deferred_.empty() && pump_depth_ == 0; }
    int WaitMilliseconds();

    std::function<std::int64_t()> monotonic_;
    FirstTick first_tick_;
    std::map<TimerId, std::shared_ptr<Timer>> timers_;
    std::map<int, std::shared_ptr<Watch>> watches_;
    std::vector<EventSource*> sources_;
    std::vector<std::function<void()>> deferred_;
    bool serving_source_ = false;
    TimerId last_timer_ = 0;
    std::int64_t last_look_ns_ = 0;
    int pump_depth_ = 0;
    bool quit_ = false;
};

}  // namespace trevix::posix
