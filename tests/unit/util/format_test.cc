#include "util/format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace trevix {
namespace {

TEST(FormatGeneralDate, ShowsDateAndTime) {
    EXPECT_EQ(FormatGeneralDate(DateFromCivil({2007, 10, 5, 15, 4, 5})), "10/5/2007 3:04:05 PM");
    EXPECT_EQ(FormatGeneralDate(DateFromCivil({1999, 12, 31, 0, 0, 1})), "12/31/1999 12:00:01 AM");
    EXPECT_EQ(FormatGeneralDate(DateFromCivil({1999, 12, 31, 12, 0, 0})), "12/31/1999 12:00:00 PM");
}

TEST(FormatGeneralDate, LeavesOutTheTimeAtMidnight) {
    EXPECT_EQ(FormatGeneralDate(DateFromCivil({2007, 10, 5})), "10/5/2007");
}

TEST(FormatGeneralDate, LeavesOutTheDateOnDayZero) {
    EXPECT_EQ(FormatGeneralDate(Date{0.25}), "6:00:00 AM");
    EXPECT_EQ(FormatGeneralDate(Date{0}), "12:00:00 AM");
}

TEST(FormatGeneralDate, RoundsTheLastHalfSecondIntoTheNextDay) {
    EXPECT_EQ(FormatGeneralDate(Date{39359.999999}), "10/5/2007");
}

TEST(CivilFromDate, CountsTheFractionForwardBeforeDayZero) {
    EXPECT_EQ(CivilFromDate(Date{-1.25}), (CivilTime{1899, 12, 29, 6, 0, 0}));
    EXPECT_EQ(CivilFromDate(Date{5.25}), (CivilTime{1900, 1, 4, 6, 0, 0}));
}

TEST(CivilFromDate, HoldsAtBothEndsOfTheRange) {
    EXPECT_EQ(CivilFromDate(Date{-657434}), (CivilTime{100, 1, 1, 0, 0, 0}));
    EXPECT_EQ(CivilFromDate(Date{2958465}), (CivilTime{9999, 12, 31, 0, 0, 0}));
    EXPECT_EQ(CivilFromDate(Date{1e300}), (CivilTime{9999, 12, 31, 23, 59, 59}));
    EXPECT_EQ(CivilFromDate(Date{-1e300}), (CivilTime{100, 1, 1, 0, 0, 0}));
    EXPECT_EQ(CivilFromDate(Date{std::nan("")}), CivilTime());
}

TEST(CivilFromDate, GivesBackEveryDayOfTheCalendar) {
    CivilTime last;
    for (int day = -657434; day <= 2958465; day += 1) {
        const CivilTime civil = CivilFromDate(Date{static_cast<double>(day)});
        ASSERT_EQ(DateFromCivil(civil).days, day);
        const bool next_day = civil.day == last.day + 1 && civil.month == last.month;
        ASSERT_TRUE(day == -657434 || next_day || civil.day == 1) << day;
        last = civil;
    }
}

TEST(DateFromCivil, CarriesFieldsBeyondTheirRange) {
    EXPECT_EQ(DateFromCivil({2007, 13, 1}), DateFromCivil({2008, 1, 1}));
    EXPECT_EQ(DateFromCivil({2008, 3, 0}), DateFromCivil({2008, 2, 29}));
    EXPECT_EQ(DateFromCivil({2007, 1, 1, 24, 0, 0}), DateFromCivil({2007, 1, 2}));
}

TEST(DateFromUnixSeconds, TurnsIntoTheSameSecondAgain) {
    EXPECT_EQ(DateFromUnixSeconds(0).days, 25569);
    for (const std::int64_t seconds : {std::int64_t{0}, std::int64_t{1191596645}, std::int64_t{-1},
                                       std::int64_t{-3000000001}, std::int64_t{253402300799}}) {
        EXPECT_EQ(UnixSecondsFromDate(DateFromUnixSeconds(seconds)), seconds);
    }
    EXPECT_EQ(CivilFromDate(DateFromUnixSeconds(1191596645)), (CivilTime{2007, 10, 5, 15, 4, 5}));
}

TEST(DateFromUnixSeconds, StaysInRangeForAnyNumber) {
    EXPECT_EQ(DateFromUnixSeconds(INT64_MAX).days, 2958465);
    EXPECT_EQ(DateFromUnixSeconds(INT64_MIN).days, -657434);
}

TEST(DateFromUnixNanoseconds, KeepsTheFractionOfTheSecond) {
    const double with = DateFromUnixNanoseconds(1191596645250000000).days;
    const double without = DateFromUnixSeconds(1191596645).days;
    EXPECT_NEAR((with - without) * 86400, 0.25, 1e-5);
}

TEST(MinutesBetween, CountsBoundariesAndNotSeconds) {
    const Date start = DateFromCivil({2007, 10, 5, 10, 0, 0});
    EXPECT_EQ(MinutesBetween(DateFromCivil({2007, 10, 5, 10, 0, 59}),
                             DateFromCivil({2007, 10, 5, 10, 1, 0})),
              1);
    EXPECT_EQ(MinutesBetween(start, DateFromCivil({2007, 10, 5, 10, 5, 59})), 5);
    EXPECT_EQ(MinutesBetween(DateFromCivil({2007, 10, 5, 10, 5, 59}), start), -5);
    EXPECT_EQ(MinutesBetween(start, DateFromCivil({2007, 10, 6, 10, 0, 0})), 1440);
}

TEST(FormatThousands, GroupsDigitsByThree) {
    EXPECT_EQ(FormatThousands(0), "0");
    EXPECT_EQ(FormatThousands(999), "999");
    EXPECT_EQ(FormatThousands(1000), "1,000");
    EXPECT_EQ(FormatThousands(1234567), "1,234,567");
    EXPECT_EQ(FormatThousands(-1234), "-1,234");
    EXPECT_EQ(FormatThousands(-123), "-123");
    EXPECT_EQ(FormatThousands(INT64_MIN), "-9,223,372,036,854,775,808");
}

TEST(SizeText, GivesBytesBelowOneKilobyte) {
    EXPECT_EQ(SizeText(0), "0 bytes");
    EXPECT_EQ(SizeText(1000), "1,000 bytes");
    EXPECT_EQ(SizeText(1023), "1,023 bytes");
    EXPECT_EQ(SizeText(-5), "-5 bytes");
}

TEST(SizeText, GivesKilobytesFrom1024Bytes) {
    EXPECT_EQ(SizeText(1024), "1.00KB (1,024 bytes)");
    EXPECT_EQ(SizeText(1536), "1.50KB (1,536 bytes)");
    EXPECT_EQ(SizeText(10239), "10.00KB (10,239 bytes)");
    EXPECT_EQ(SizeText(10240), "10.0KB (10,240 bytes)");
    EXPECT_EQ(SizeText(102400), "100KB (102,400 bytes)");
}

TEST(SizeText, LooksAtTheWholeKilobytesForTheUnit) {
    EXPECT_EQ(SizeText(1023900), "1000KB (1,023,900 bytes)");
    EXPECT_EQ(SizeText(1024000), "0.98MB (1,024,000 bytes)");
    EXPECT_EQ(SizeText(10240000), "9.8MB (10,240,000 bytes)");
    EXPECT_EQ(SizeText(102400000), "98MB (102,400,000 bytes)");
    EXPECT_EQ(SizeText(1024000000), "0.95GB (1,024,000,000 bytes)");
    EXPECT_EQ(SizeText(2147483647), "2.00GB (2,147,483,647 bytes)");
}

TEST(SizeText, RoundsTiesAwayFromZero) {
    EXPECT_EQ(SizeText(1152), "1.13KB (1,152 bytes)");     // 1.125
    EXPECT_EQ(SizeText(10496), "10.3KB (10,496 bytes)");   // 10.25
    EXPECT_EQ(SizeText(102912), "101KB (102,912 bytes)");  // 100.5
}

}  // namespace
}  // namespace trevix
