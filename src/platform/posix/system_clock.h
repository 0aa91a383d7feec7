// The clocks of the system.
#pragma once

#include "platform/clock.h"

namespace trevix::posix {

class SystemClock final : public Clock {
 public:
    Date NowLocal() override;
    Date NowUtc() override;
    std::int64_t UnixNanoseconds() override;
    std::int32_t TickCount() override;
};

// The automation date of a moment, in UTC or in the local time zone.
Date UtcDate(std::int64_t unix_seconds);
Date LocalDate(std::int64_t unix_seconds);

}  // namespace trevix::posix
