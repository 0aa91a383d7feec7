// EventSource: something besides timers that a loop serves, such as a connection to a bus.
//
// The loop waits for what Wait() names, and calls ServeOne() until it has nothing more to do: from
// its own turn and from each pump. Nothing here blocks.
#pragma once

#include <cstdint>

namespace trevix {

class EventSource {
 public:
    struct Wait {
        int descriptor = -1;  // -1: none, the source is never due again
        bool is_read = false;
        bool is_write = false;
        std::int64_t until_ns = -1;  // on the monotonic clock; -1: without end
    };

    virtual ~EventSource() = default;

    // What to wait for now, before the source is due again. It changes from call to call.
    virtual Wait WaitsFor() = 0;

    // Serves one thing that is due; false when nothing was. The loop never calls it while a call of
    // it is on the stack.
    virtual bool ServeOne() = 0;
};

}  // namespace trevix
