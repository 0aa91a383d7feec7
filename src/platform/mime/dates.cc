#include "platform/mime/dates.h"

#include <cmath>
#include <limits>

namespace trevix::mime {

Date DateFromUnixNs(std::int64_t ns) {
    constexpr std::int64_t kNsOfDay = std::int64_t{86'400} * 1'000'000'000;
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
    const long double exact = static_cast<long double>(day) + fraction;
    auto days = static_cast<double>(exact);
    if (static_cast<long double>(days) < exact) {
        days = std::nextafter(days, std::numeric_limits<double>::infinity());
    }
    return {days};
}

}  // namespace trevix::mime
