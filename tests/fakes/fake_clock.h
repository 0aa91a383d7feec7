// FakeClock: time stands still until a test moves it.
#pragma once

#include <cmath>
#include <cstdint>

#include "platform/clock.h"

namespace trevix::fakes {

class FakeClock final : public Clock {
 public:
    Date NowLocal() override { return local; }
    Date NowUtc() override { return utc; }
    std::int64_t UnixNanoseconds() override {
        return std::llround((utc.days - 25569.0) * 86400.0 * 1'000'000) * 1000;
    }
    std::int32_t TickCount() override {
        const std::int32_t now = tick;
        tick = static_cast<std::int32_t>(static_cast<std::uint32_t>(tick) +
                                         static_cast<std::uint32_t>(tick_step));
        return now;
    }

    void AdvanceMinutes(double minutes) {
        local.days += minutes / 1440.0;
        utc.days += minutes / 1440.0;
    }

    Date local{39360.5};  // 2007-10-05 12:00
    Date utc{39360.5 - 2.0 / 24};
    std::int32_t tick = 1000;
    std::int32_t tick_step = 0;  // added with each look at the tick count
};

}  // namespace trevix::fakes
