#include "cli/size_and_time.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "util/format.h"

namespace trevix::cli {
namespace {

std::optional<std::int64_t> Some(std::int64_t size) {
    return size;
}

TEST(ParseSize, TakesUnitsOf1024) {
    EXPECT_EQ(ParseSize("0"), Some(0));
    EXPECT_EQ(ParseSize("500"), Some(500));
    EXPECT_EQ(ParseSize("10k"), Some(10240));
    EXPECT_EQ(ParseSize("10KB"), Some(10240));
    EXPECT_EQ(ParseSize("5M"), Some(5242880));
    EXPECT_EQ(ParseSize("1G"), Some(1073741824));
    EXPECT_EQ(ParseSize("1.5k"), Some(1536));
    EXPECT_EQ(ParseSize("7B"), Some(7));
}

TEST(ParseSize, RefusesAnythingElse) {
    for (const char* text : {"", "k", "-1", "10x", "10kk", "10 k", "1e3", "nan", "inf",
                             "99999999999T", "10k ", "bytes"}) {
        EXPECT_EQ(ParseSize(text), std::nullopt) << text;
    }
}

// In a time zone whose days do not begin with those of UTC.
class ParsePeriodTest : public testing::Test {
 protected:
    void SetUp() override { SetZone("Europe/Berlin"); }
    void TearDown() override { SetZone("UTC"); }
    static void SetZone(const char* name) {
        ::setenv("TZ", name, 1);
        ::tzset();
    }
    static std::string Text(Date date) { return FormatGeneralDate(date); }
    // "begin - end", UTC.
    static std::string PeriodOf(const std::string& text) {
        const auto period = ParsePeriod(text, DateFromCivil({2024, 3, 31, 12, 30, 0}));
        return period ? Text(period->begin) + " - " + Text(period->end) : "none";
    }
};

TEST_F(ParsePeriodTest, TakesLocalDaysMonthsAndYears) {
    EXPECT_EQ(PeriodOf("2007-10-05"), "10/4/2007 10:00:00 PM - 10/5/2007 10:00:00 PM");
    EXPECT_EQ(PeriodOf("2007-12"), "11/30/2007 11:00:00 PM - 12/31/2007 11:00:00 PM");
    EXPECT_EQ(PeriodOf("2007"), "12/31/2006 11:00:00 PM - 12/31/2007 11:00:00 PM");
    EXPECT_EQ(PeriodOf("2024-02-29"), "2/28/2024 11:00:00 PM - 2/29/2024 11:00:00 PM");
}

TEST_F(ParsePeriodTest, TakesADayOnWhichTheClockChanges) {
    EXPECT_EQ(PeriodOf("2024-03-31"), "3/30/2024 11:00:00 PM - 3/31/2024 10:00:00 PM");
}

TEST_F(ParsePeriodTest, TakesMomentsAgo) {
    EXPECT_EQ(PeriodOf("0d"), "3/31/2024 12:30:00 PM - 3/31/2024 12:30:00 PM");
    EXPECT_EQ(PeriodOf("7d"), "3/24/2024 12:30:00 PM - 3/24/2024 12:30:00 PM");
    EXPECT_EQ(PeriodOf("2w ago"), "3/17/2024 12:30:00 PM - 3/17/2024 12:30:00 PM");
    EXPECT_EQ(PeriodOf("6m"), "9/30/2023 12:30:00 PM - 9/30/2023 12:30:00 PM");
    EXPECT_EQ(PeriodOf("1m"), "2/29/2024 12:30:00 PM - 2/29/2024 12:30:00 PM");
    EXPECT_EQ(PeriodOf("13m"), "2/28/2023 12:30:00 PM - 2/28/2023 12:30:00 PM");
    EXPECT_EQ(PeriodOf("1y"), "3/31/2023 12:30:00 PM - 3/31/2023 12:30:00 PM");
}

TEST_F(ParsePeriodTest, RefusesAnythingElse) {
    for (const char* text : {"", "d", "7", "7x", "-7d", "07-10-05", "2007-13", "2007-02-30",
                             "2007-00-01", "2007-1-", "2007-10-05-01", "5/10/2007", "yesterday",
                             "0000-01-01", "9999999d", "2007-10-05T10:00"}) {
        EXPECT_EQ(PeriodOf(text), "none") << text;
    }
}

TEST_F(ParsePeriodTest, ConvertsBetweenLocalTimeAndUtc) {
    const Date summer = DateFromCivil({2007, 7, 1, 10, 0, 0});
    EXPECT_EQ(Text(LocalFromUtc(summer)), "7/1/2007 12:00:00 PM");
    EXPECT_EQ(Text(UtcFromLocal(LocalFromUtc(summer))), Text(summer));
}

TEST(ParseDuration, TakesSecondsMinutesHoursDaysAndTheirSums) {
    EXPECT_EQ(ParseDuration("90"), 90000);
    EXPECT_EQ(ParseDuration("90s"), 90000);
    EXPECT_EQ(ParseDuration("15m"), 900000);
    EXPECT_EQ(ParseDuration("2h"), 7200000);
    EXPECT_EQ(ParseDuration("1d"), 86400000);
    EXPECT_EQ(ParseDuration("1h30m"), 5400000);
    EXPECT_EQ(ParseDuration("1d1s"), 86401000);
    EXPECT_EQ(ParseDuration("366d"), 31622400000);
}

TEST(ParseDuration, RefusesAnythingElse) {
    for (const char* text : {"", "0", "0s", "h", "1x", "-1", "1.5h", "1h30", "1 h", "1h ", "367d",
                             "99999999999", "2147483648s", "s1"}) {
        EXPECT_EQ(ParseDuration(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace trevix::cli
