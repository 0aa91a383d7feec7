#include "platform/mime/dates.h"

#include <cmath>
#include <limits>

namespace trevix::mime {

// A whole second is the double nearest to it, as the system's clock gives it. Any other moment is
// never earlier than it was, so that a change does not move to before the mark of a run.
Date DateFromUnixNs(std::int64_t ns) {
    constexpr std::int64_t kSecond = 1'000'000'000;
    constexpr std::int64_t kSecondsOfDay = 86'400;
    constexpr std::int64_t kNsOfDay = kSecondsOfDay * kSecond;
    constexpr std::int64_t kUnixDay = 25569;  // 1970-01-01
    std::int64_t day = ns / kNsOfDay;
    std::int64_t rest = ns % kNsOfDay;
    if (rest < 0) {
        rest += kNsOfDay;
        --day;
    }
    day += kUnixDay;
    const long double fraction =
        static_cast<long double>(rest) / static_cast<long double>(kNsOfDay);
    // Before day 0 the fraction still counts forward, so it is put behind the whole part.
    if (day < 0) return {static_cast<double>(static_cast<long double>(day) - fraction)};
    if (rest % kSecond == 0) {
        const std::int64_t seconds = day * kSecondsOfDay + rest / kSecond;
        return {static_cast<double>(seconds) / static_cast<double>(kSecondsOfDay)};
    }
    const long double exact = static_cast<long double>(day) + fraction;
    auto days = static_cast<double>(exact);
    if (static_cast<long double>(days) < exact) {
        days = std::nextafter(days, std::numeric_limits<double>::infinity());
    }
    return {days};
}

}  // namespace trevix::mime
