#include "platform/posix/system_clock.h"

#include <ctime>

namespace trevix::posix {
namespace {

constexpr std::int64_t kSecondsOfDay = 86400;
constexpr std::int64_t kDaysToUnixEpoch = 25569;  // 1899-12-30 to 1970-01-01
constexpr std::int64_t kNanosecondsOfSecond = 1000000000;
constexpr std::int64_t kNanosecondsOfMillisecond = 1000000;

std::int64_t Read(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * kNanosecondsOfSecond + now.tv_nsec;
}

}  // namespace

// One division, so that the date is the double nearest to the moment.
Date UtcDate(std::int64_t unix_seconds) {
    return Date{static_cast<double>(unix_seconds + kDaysToUnixEpoch * kSecondsOfDay) /
                static_cast<double>(kSecondsOfDay)};
}

Date LocalDate(std::int64_t unix_seconds) {
    const auto moment = static_cast<std::time_t>(unix_seconds);
    std::tm local{};
    if (::localtime_r(&moment, &local) == nullptr) return UtcDate(unix_seconds);
    return UtcDate(unix_seconds + local.tm_gmtoff);
}

Date SystemClock::NowLocal() {
    return LocalDate(UnixNanoseconds() / kNanosecondsOfSecond);
}

Date SystemClock::NowUtc() {
    return UtcDate(UnixNanoseconds() / kNanosecondsOfSecond);
}

std::int64_t SystemClock::UnixNanoseconds() {
    return Read(CLOCK_REALTIME);
}

// The clock that goes on while the machine sleeps: an interval measured over a nap counts the nap.
std::int32_t SystemClock::TickCount() {
    const std::int64_t milliseconds = Read(CLOCK_BOOTTIME) / kNanosecondsOfMillisecond;
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(milliseconds));
}

}  // namespace trevix::posix
