// The clocks. Core code never asks the system for the time, so that tests own it.
#pragma once

#include <cstdint>

#include "platform/variant.h"

namespace trevix {

class Clock {
 public:
    virtual ~Clock() = default;

    // Local date and time, whole seconds.
    virtual Date NowLocal() = 0;

    // The same instant in UTC, whole seconds (the fraction is cut, never rounded up).
    virtual Date NowUtc() = 0;

    // Nanoseconds since 1970-01-01 UTC, as file stamps count them.
    virtual std::int64_t UnixNanoseconds() = 0;

    // Milliseconds since some fixed moment of this machine's uptime. A 32-bit number that wraps.
    virtual std::int32_t TickCount() = 0;
};

}  // namespace trevix
