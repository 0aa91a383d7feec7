// The one loop of a process: timers, deferred calls and the pump that runs inside a long run.
//
// Everything runs on the thread that calls Run() or Pump(). Nothing here blocks longer than its
// caller asked for.
#pragma once

#include <functional>

namespace trevix {

class MessageLoop {
 public:
    using TimerId = int;

    virtual ~MessageLoop() = default;

    // Calls `tick` every `interval_ms` milliseconds until disarmed, first after one interval. The
    // call comes from Run() or from Pump(); a timer whose tick is on the stack is not called again.
    virtual TimerId ArmTimer(int interval_ms, std::function<void()> tick) = 0;

    // Unknown and already disarmed timers are ignored. Safe from within the timer's own tick.
    virtual void DisarmTimer(TimerId timer) = 0;

    // Calls `work` once, from Run(), when no pump is on the stack.
    virtual void Defer(std::function<void()> work) = 0;

    // Serves what is due and returns at once.
    virtual void Pump() = 0;

    // Serves until Quit(). A Quit() before Run() makes Run() return at once.
    virtual void Run() = 0;
    virtual void Quit() = 0;
};

}  // namespace trevix
