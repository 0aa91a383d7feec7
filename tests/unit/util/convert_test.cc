#include "util/convert.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "platform/errors.h"
#include "util/format.h"

namespace trevix {
namespace {

template <typename T>
int NumberOf(const Result<T>& result) {
    return result.ok() ? 0 : result.error().number;
}

Variant Text(const char* text) {
    return Variant(std::string(text));
}

TEST(ToLong, RoundsHalfToEven) {
    EXPECT_EQ(ToLong(0.5).value(), 0);
    EXPECT_EQ(ToLong(1.5).value(), 2);
    EXPECT_EQ(ToLong(2.5).value(), 2);
    EXPECT_EQ(ToLong(-2.5).value(), -2);
    EXPECT_EQ(ToLong(-1.5).value(), -2);
    EXPECT_EQ(ToLong(2.6).value(), 3);
    EXPECT_EQ(ToLong(Text("2.5")).value(), 2);
}

TEST(ToLong, ReadsNumberTexts) {
    EXPECT_EQ(ToLong(Text(" 12 ")).value(), 12);
    EXPECT_EQ(ToLong(Text("1,234")).value(), 1234);
    EXPECT_EQ(ToLong(Text("1e3")).value(), 1000);
    EXPECT_EQ(ToLong(Text("&H10")).value(), 16);
    EXPECT_EQ(ToLong(Text("&o17")).value(), 15);
    EXPECT_EQ(ToLong(Text("&HFFFFFFFF")).value(), -1);
    EXPECT_EQ(ToLong(Text("(5)")).value(), -5);
    EXPECT_EQ(ToLong(Text("$5")).value(), 5);
    EXPECT_EQ(ToLong(Text("-$5")).value(), -5);
    EXPECT_EQ(ToLong(Text("+7.")).value(), 7);
    EXPECT_EQ(ToLong(Text("1e-400")).value(), 0);
}

TEST(ToLong, RefusesOtherTexts) {
    for (const char* text : {"", " ", "abc", "12abc", "1.2.3", "(-5)", "--5", ",5", "1e", ".", "$",
                             "&H", "&HG", "&H10 1", "0x10", "inf", "nan", "1 2"}) {
        EXPECT_EQ(NumberOf(ToLong(Text(text))), kTypeMismatch) << text;
    }
}

TEST(ToLong, ConvertsTheOtherTypes) {
    EXPECT_EQ(ToLong(Empty()).value(), 0);
    EXPECT_EQ(ToLong(true).value(), -1);
    EXPECT_EQ(ToLong(false).value(), 0);
    EXPECT_EQ(ToLong(std::int16_t{-7}).value(), -7);
    EXPECT_EQ(ToLong(Date{39360.6}).value(), 39361);
    EXPECT_EQ(NumberOf(ToLong(ErrorValue{0x8004010F})), kTypeMismatch);
    EXPECT_EQ(NumberOf(ToLong(Blob::FromString("5"))), kTypeMismatch);
    EXPECT_EQ(NumberOf(ToLong(StringArray{"5"})), kTypeMismatch);
}

TEST(ToLong, OverflowsOutside32Bits) {
    EXPECT_EQ(ToLong(2147483647.4).value(), 2147483647);
    EXPECT_EQ(ToLong(-2147483648.5).value(), INT32_MIN);
    EXPECT_EQ(NumberOf(ToLong(2147483647.5)), kOverflowNumber);
    EXPECT_EQ(NumberOf(ToLong(Text("2147483648"))), kOverflowNumber);
    EXPECT_EQ(NumberOf(ToLong(Text("1e400"))), kOverflowNumber);
    EXPECT_EQ(NumberOf(ToLong(Text("&H100000000"))), kOverflowNumber);
    EXPECT_EQ(NumberOf(ToLong(Text("&HFFFFFFFFFFFFFFFFFF"))), kOverflowNumber);
    EXPECT_EQ(NumberOf(ToLong(std::nan(""))), kOverflowNumber);
}

TEST(ToInteger, OverflowsOutside16Bits) {
    EXPECT_EQ(ToInteger(32767).value(), 32767);
    EXPECT_EQ(ToInteger(-32768).value(), -32768);
    EXPECT_EQ(NumberOf(ToInteger(32768)), kOverflowNumber);
    EXPECT_EQ(NumberOf(ToInteger(32767.5)), kOverflowNumber);
    EXPECT_EQ(ToInteger(Text("&HFFFF")).value(), -1);
    EXPECT_EQ(NumberOf(ToInteger(Text("&H10000"))), kOverflowNumber);
}

TEST(ToBoolean, ReadsWordsAndNumbers) {
    EXPECT_TRUE(ToBoolean(Text("tRUE")).value());
    EXPECT_FALSE(ToBoolean(Text("false")).value());
    EXPECT_FALSE(ToBoolean(Text("0")).value());
    EXPECT_TRUE(ToBoolean(Text("-3")).value());
    EXPECT_TRUE(ToBoolean(0.1).value());
    EXPECT_FALSE(ToBoolean(Empty()).value());
    EXPECT_EQ(NumberOf(ToBoolean(Text(""))), kTypeMismatch);
    EXPECT_EQ(NumberOf(ToBoolean(Text("yes"))), kTypeMismatch);
    EXPECT_EQ(NumberOf(ToBoolean(ErrorValue{1})), kTypeMismatch);
}

TEST(ToText, ShowsEachType) {
    EXPECT_EQ(ToText(Empty()).value(), "");
    EXPECT_EQ(ToText(true).value(), "True");
    EXPECT_EQ(ToText(false).value(), "False");
    EXPECT_EQ(ToText(std::int16_t{-5}).value(), "-5");
    EXPECT_EQ(ToText(5).value(), "5");
    EXPECT_EQ(ToText(Text("a")).value(), "a");
    EXPECT_EQ(ToText(Date{0}).value(), "12:00:00 AM");
    EXPECT_EQ(ToText(ErrorValue{0x8004010F}).value(), "Error -2147221233");
    EXPECT_EQ(ToText(ErrorValue{13}).value(), "Error 13");
    EXPECT_EQ(NumberOf(ToText(Blob())), kTypeMismatch);
    EXPECT_EQ(NumberOf(ToText(StringArray{"a"})), kTypeMismatch);
    EXPECT_EQ(NumberOf(ToText(Date{1e10})), kOverflowNumber);
}

TEST(ToText, ShowsDoublesWithFifteenDigits) {
    EXPECT_EQ(ToText(0.0).value(), "0");
    EXPECT_EQ(ToText(0.047).value(), "0.047");
    EXPECT_EQ(ToText(12.0).value(), "12");
    EXPECT_EQ(ToText(-1.234).value(), "-1.234");
    EXPECT_EQ(ToText(0.1 + 0.2).value(), "0.3");
    EXPECT_EQ(ToText(1.0 / 3).value(), "0.333333333333333");
    EXPECT_EQ(ToText(1.0 / 30).value(), "3.33333333333333E-02");
    EXPECT_EQ(ToText(1200.0).value(), "1200");
    EXPECT_EQ(ToText(123456789012345.0).value(), "123456789012345");
    EXPECT_EQ(ToText(1e15).value(), "1E+15");
    EXPECT_EQ(ToText(1.5e-20).value(), "1.5E-20");
    EXPECT_EQ(ToText(1e300).value(), "1E+300");
}

TEST(ToDate, ReadsDatesAndTimes) {
    EXPECT_EQ(ToDate(Text("10/5/2007")).value(), DateFromCivil({2007, 10, 5}));
    EXPECT_EQ(ToDate(Text("10/5/2007 3:04:05 PM")).value(), DateFromCivil({2007, 10, 5, 15, 4, 5}));
    EXPECT_EQ(ToDate(Text("2007-10-05 15:04:05")).value(), DateFromCivil({2007, 10, 5, 15, 4, 5}));
    EXPECT_EQ(ToDate(Text("15:04")).value(), DateFromCivil({1899, 12, 30, 15, 4, 0}));
    EXPECT_EQ(ToDate(Text("12:30 am")).value(), DateFromCivil({1899, 12, 30, 0, 30, 0}));
    EXPECT_EQ(ToDate(Text("13/5/07")).value(), DateFromCivil({2007, 5, 13}));
    EXPECT_EQ(ToDate(Text("2/29/2008")).value(), DateFromCivil({2008, 2, 29}));
    EXPECT_EQ(ToDate(Text("39360.5")).value().days, 39360.5);
}

TEST(ToDate, ReadsItsOwnText) {
    for (const double days : {0.0, 0.25, 39360.0, 39360.6278356481, -1.25, -657434.0, 2958465.5}) {
        const std::string text = ToText(Date{days}).value();
        EXPECT_EQ(ToText(ToDate(text).value()).value(), text);
    }
}

TEST(ToDate, RefusesOtherTexts) {
    for (const char* text : {"", "abc", "2/30/2007", "10/5", "10/5/2007x", "25:00", "10:61",
                             "13:00 PM", "0:10 AM", "10/5-2007", "10/5/2007 x", "10/5/00001"}) {
        EXPECT_EQ(NumberOf(ToDate(Text(text))), kTypeMismatch) << text;
    }
}

TEST(ToDate, ConvertsTheOtherTypes) {
    EXPECT_EQ(ToDate(Empty()).value(), Date{0});
    EXPECT_EQ(ToDate(39360).value(), Date{39360});
    EXPECT_EQ(ToDate(Date{1.5}).value(), Date{1.5});
    EXPECT_EQ(NumberOf(ToDate(1e10)), kOverflowNumber);
    EXPECT_EQ(NumberOf(ToDate(ErrorValue{1})), kTypeMismatch);
}

TEST(AddLong, FailsWithOverflowAndLeavesTheSum) {
    std::int32_t sum = 2147483000;
    EXPECT_TRUE(AddLong(sum, 647).ok());
    EXPECT_EQ(sum, 2147483647);
    EXPECT_EQ(NumberOf(AddLong(sum, 1)), kOverflowNumber);
    EXPECT_EQ(NumberOf(AddLong(sum, INT64_MAX)), kOverflowNumber);
    EXPECT_EQ(NumberOf(AddLong(sum, INT64_MIN)), kOverflowNumber);
    EXPECT_EQ(sum, 2147483647);
    EXPECT_TRUE(AddLong(sum, -4294967295LL).ok());
    EXPECT_EQ(sum, INT32_MIN);
}

TEST(AddInteger, FailsWithOverflowAndLeavesTheSum) {
    std::int16_t sum = 32000;
    EXPECT_EQ(NumberOf(AddInteger(sum, 768)), kOverflowNumber);
    EXPECT_EQ(sum, 32000);
    EXPECT_TRUE(AddInteger(sum, 767).ok());
    EXPECT_EQ(sum, 32767);
}

TEST(SubtractLong, FailsWithOverflow) {
    EXPECT_EQ(SubtractLong(5, 7).value(), -2);
    EXPECT_EQ(NumberOf(SubtractLong(INT32_MIN, 1)), kOverflowNumber);
}

TEST(CapLong, StopsAtTheLargestLong) {
    EXPECT_EQ(CapLong(0), 0);
    EXPECT_EQ(CapLong(2147483647), 2147483647);
    EXPECT_EQ(CapLong(2147483648U), 2147483647);
    EXPECT_EQ(CapLong(UINT64_MAX), 2147483647);
}

}  // namespace
}  // namespace trevix
