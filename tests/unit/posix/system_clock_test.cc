#include "platform/posix/system_clock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>

namespace trevix::posix {
namespace {

TEST(UtcDate, CountsDaysFromTheEndOf1899) {
    EXPECT_EQ(UtcDate(0).days, 25569.0);
    EXPECT_EQ(UtcDate(86400 + 43200).days, 25570.5);
    EXPECT_EQ(UtcDate(1700000000).days, (1700000000.0 + 25569.0 * 86400) / 86400);
}

TEST(LocalDate, AddsTheOffsetOfTheZoneAtThatMoment) {
    const char* before = std::getenv("TZ");
    const std::string kept = before != nullptr ? before : "";
    ::setenv("TZ", "XYZ-2", 1);
    ::tzset();

    const Date local = LocalDate(1700000000);

    if (before != nullptr) {
        ::setenv("TZ", kept.c_str(), 1);
    } else {
        ::unsetenv("TZ");
    }
    ::tzset();
    EXPECT_EQ(local, UtcDate(1700000000 + 7200));
}

TEST(SystemClockNow, AgreesWithItsNanosecondsToTheSecond) {
    SystemClock clock;

    const std::int64_t before = clock.UnixNanoseconds() / 1000000000;
    const Date utc = clock.NowUtc();
    const std::int64_t after = clock.UnixNanoseconds() / 1000000000;

    EXPECT_GE(utc, UtcDate(before));
    EXPECT_LE(utc, UtcDate(after));
    const double seconds = utc.days * 86400;
    EXPECT_NEAR(seconds, std::round(seconds), 1e-3);
}

TEST(SystemClockTickCount, DoesNotGoBack) {
    SystemClock clock;

    const auto first = static_cast<std::uint32_t>(clock.TickCount());
    const auto second = static_cast<std::uint32_t>(clock.TickCount());

    EXPECT_LT(second - first, 60000U);
}

}  // namespace
}  // namespace trevix::posix
