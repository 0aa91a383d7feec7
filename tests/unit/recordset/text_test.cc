#include "platform/recordset/text.h"

#include <gtest/gtest.h>

#include "bytes.h"
#include "platform/recordset/cell_key.h"
#include "platform/recordset/date_text.h"
#include "platform/recordset/number_text.h"

namespace trevix::recordset {
namespace {

TEST(NormalizedText, ReplacesBytesThatAreNoText) {
    const std::pair<std::string, std::string> rows[] = {
        {"plain", "plain"},
        {"\xC3\xA9", "\xC3\xA9"},
        {"\xC3", "\xEF\xBF\xBD"},
        {"a\x80z", "a\xEF\xBF\xBDz"},
        {"\xC0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xE2\x82", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xF5\x80", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xED\xA0\x80", "\xED\xA0\x80"},
        {"\xED\xA0\xBD\xED\xB8\x80", "\xF0\x9F\x98\x80"},
    };
    for (const auto& [given, expected] : rows)
        EXPECT_EQ(NormalizedText(given), expected);
}

TEST(AppendUtf16, GivesBackWhatWasReadUnitForUnit) {
    for (unsigned high = 0; high < 0x10000; ++high) {
        const unsigned char units[] = {static_cast<unsigned char>(high),
                                       static_cast<unsigned char>(high >> 8), 0x00, 0xDC};
        std::string text;
        AssignFromUtf16(units, 2, text);
        ASSERT_EQ(NormalizedText(text), text);
        ASSERT_EQ(Utf16Units(text), 2U);
        std::string back;
        AppendUtf16(text, back);
        ASSERT_TRUE(
            std::equal(back.begin(), back.end(), std::begin(units), std::end(units),
                       [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; }))
            << high;
    }
}

std::string UnitsOf(const std::string& text) {
    std::string units;
    AppendUtf16(text, units);
    return units;
}

const unsigned char* Bytes(const std::string& units) {
    return reinterpret_cast<const unsigned char*>(units.data());
}

TEST(AssignFromUtf16, TakesAnyLengthAndPlaceOfWhatIsNotAscii) {
    for (std::size_t length = 0; length < 20; ++length) {
        for (std::size_t place = 0; place <= length; ++place) {
            for (const char* other :
                 {"", "\xC2\x80", "\xC3\xA4", "\xE6\x97\xA5", "\xF0\x9F\x98\x80"}) {
                std::string text = std::string("abcdefghijklmnopqrst").substr(0, length);
                text.insert(place, other);
                const std::string units = UnitsOf(text);
                std::string back = "left over from before, and longer";
                AssignFromUtf16(Bytes(units), units.size() / 2, back);
                ASSERT_EQ(back, text);
            }
        }
    }
}

TEST(IsAsciiOfUtf16, ComparesEveryUnit) {
    const std::string text = "abcdefghijk";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        const std::string part = text.substr(0, length);
        std::string units = UnitsOf(part);
        EXPECT_TRUE(IsAsciiOfUtf16(part, Bytes(units), length));
        EXPECT_FALSE(IsAsciiOfUtf16(part + "x", Bytes(units), length));
        for (char& byte : units) {
            byte = static_cast<char>(byte ^ 1);
            EXPECT_FALSE(IsAsciiOfUtf16(part, Bytes(units), length));
            byte = static_cast<char>(byte ^ 1);
        }
    }
}

// Two units that look like the two bytes of one character.
TEST(IsAsciiOfUtf16, IsNeverTrueOfOtherCharacters) {
    const std::string text = "\xC3\xA4\xC3\xA4\xC3\xA4";
    const std::string units("\xC3\0\xA4\0\xC3\0\xA4\0\xC3\0\xA4\0", 12);
    EXPECT_FALSE(IsAsciiOfUtf16(text, Bytes(units), 6));
    EXPECT_FALSE(IsAsciiOfUtf16(text.substr(0, 2), Bytes(units), 2));
}

TEST(FoldedHash, IsTheSameForEveryCaseOfAsciiLetters) {
    std::string lower;
    std::string upper;
    for (int byte = 1; byte < 256; ++byte) {
        const bool letter = byte >= 'a' && byte <= 'z';
        lower += static_cast<char>(byte >= 'A' && byte <= 'Z' ? byte + 32 : byte);
        upper += static_cast<char>(letter ? byte - 32 : byte);
        ASSERT_EQ(FoldedHash(lower), FoldedHash(upper)) << byte;
        ASSERT_TRUE(FoldedEqual(lower, upper)) << byte;
        const std::string other = lower.substr(1) + "\x01";
        ASSERT_EQ(FoldedEqual(lower, other), lower == other) << byte;
    }
    EXPECT_FALSE(FoldedEqual("[", "{"));
    EXPECT_FALSE(FoldedEqual("@", "`"));
}

TEST(FoldedCompare, OrdersByLowerCaseForms) {
    EXPECT_LT(FoldedCompare("a", "B"), 0);
    EXPECT_GT(FoldedCompare("b", "A"), 0);
    EXPECT_EQ(FoldedCompare("Abcdefghij", "aBCDEFGHIJ"), 0);
    EXPECT_LT(FoldedCompare("abcdefgh", "ABCDEFGHI"), 0);
    EXPECT_LT(FoldedCompare("z", "\xC3\xA9"), 0);
    EXPECT_LT(FoldedCompare("", "a"), 0);
}

TEST(ParseDateText, UnderstandsDatesAndTimes) {
    const std::pair<const char*, double> rows[] = {
        {"12/30/1899", 0},
        {"1/4/1900 06:00", 5.25},
        {"1900-01-04 6:00", 5.25},
        {"1900-01-04T06:00:00", 5.25},
        {"12/29/1899 6:00", -1.25},
        {"1/14/2004 12:00:00 PM", 38000.5},
        {"1/14/2004 12:00 AM", 38000},
        {"6:00 pm", 0.75},
        {"1/1/100", -657434},
        {"12/31/9999", 2958465},
    };
    for (const auto& [text, days] : rows) {
        const auto parsed = ParseDateText(text);
        ASSERT_TRUE(parsed) << text;
        EXPECT_NEAR(*parsed, days, 1e-9) << text;
    }
    for (const char* const text :
         {"", "x", "1", "1/1", "13/1/2004", "2/30/2004", "1/1/99", "1/1/2004 25:00", "1/1/2004 1",
          "1/1/2004 13:00 PM", "1/1/2004 0:00 AM", "1/1/2004 1:60", "2004-1-1 1:00 x", "-1/1/2004",
          "1/1/20040"}) {
        EXPECT_FALSE(ParseDateText(text)) << text;
    }
}

TEST(ParseNumberText, TakesWholeFiniteNumbers) {
    EXPECT_EQ(ParseNumberText(" -5 "), -5);
    EXPECT_EQ(ParseNumberText("+1e3"), 1000);
    for (const char* const text : {"", " ", "+-1", "1x", "nan", "inf", "1e999", "0x10", "1,5"}) {
        EXPECT_FALSE(ParseNumberText(text)) << text;
    }
}

TEST(CellKeyOfDate, ComparesByWholeSecondsAlsoBeforeTheZeroDay) {
    const auto equal = [](double a, double b) {
        return KeysEqual(CellKey::OfDate(a), CellKey::OfDate(b));
    };
    EXPECT_TRUE(equal(38000.5, 38000.5 + 0.1 / 86400));
    EXPECT_FALSE(equal(38000.5, 38000.5 + 1.0 / 86400));
    EXPECT_TRUE(equal(-0.25, 0.25));
    // 1899-12-29 06:00 is before 1899-12-29 18:00.
    EXPECT_LT(CompareKeys(CellKey::OfDate(-1.25), CellKey::OfDate(-1.75)), 0);
    EXPECT_LT(CompareKeys(CellKey::OfDate(-1.75), CellKey::OfDate(0)), 0);
    EXPECT_EQ(CellKey::OfDate(std::numeric_limits<double>::quiet_NaN()).kind, CellKey::Kind::kNone);
}

TEST(CellKeyOfNumber, HasOneZeroAndNoNaN) {
    EXPECT_TRUE(KeysEqual(CellKey::OfNumber(0.0), CellKey::OfNumber(-0.0)));
    const CellKey nothing = CellKey::OfNumber(std::numeric_limits<double>::quiet_NaN());
    EXPECT_FALSE(KeysEqual(nothing, nothing));
}

}  // namespace
}  // namespace trevix::recordset
