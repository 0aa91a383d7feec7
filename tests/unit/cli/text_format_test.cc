#include "cli/text_format.h"

#include <gtest/gtest.h>

namespace trevix::cli {
namespace {

TEST(HumanBytes, UsesThreeDigitsAndUnitsOf1024) {
    EXPECT_EQ(HumanBytes(0), "0 bytes");
    EXPECT_EQ(HumanBytes(1), "1 byte");
    EXPECT_EQ(HumanBytes(1023), "1023 bytes");
    EXPECT_EQ(HumanBytes(1024), "1.00 KB");
    EXPECT_EQ(HumanBytes(12697), "12.4 KB");
    EXPECT_EQ(HumanBytes(1022 * 1024), "1.00 MB");
    EXPECT_EQ(HumanBytes(123 * 1024 * 1024), "123 MB");
    EXPECT_EQ(HumanBytes(std::int64_t{5} << 40), "5.00 TB");
    EXPECT_EQ(HumanBytes(-2048), "-2.00 KB");
}

TEST(HumanDuration, GrowsCoarserWithLength) {
    EXPECT_EQ(HumanDuration(0), "0.0 s");
    EXPECT_EQ(HumanDuration(1449), "1.4 s");
    EXPECT_EQ(HumanDuration(9960), "10 s");
    EXPECT_EQ(HumanDuration(185000), "3 min 5 s");
    EXPECT_EQ(HumanDuration(7800000), "2 h 10 min");
}

TEST(SavedPercent, IsZeroWhereNothingWas) {
    EXPECT_EQ(SavedPercent(0, 0), 0);
    EXPECT_EQ(SavedPercent(1000, 301), 69);
    EXPECT_EQ(SavedPercent(100, 150), -50);
}

TEST(Printable, LeavesATerminalNothingToObey) {
    EXPECT_EQ(Printable("\x1b[2Jred\x07\n"), "?[2Jred??");
    EXPECT_EQ(Printable("\xC2\x9B"
                        "31m"),
              "?31m");
    EXPECT_EQ(Printable("Übersicht größer"), "Übersicht größer");
    EXPECT_EQ(Printable("broken \xFF\xC3"), "broken ??");
}

TEST(Shortened, CountsCharactersNotBytes) {
    EXPECT_EQ(Shortened("größer", 6), "größer");
    EXPECT_EQ(Shortened("größeres", 6), "größe…");
    EXPECT_EQ(Shortened("", 3), "");
}

TEST(Shortened, CountsColumnsOfATerminal) {
    EXPECT_EQ(Shortened("日本語", 6), "日本語");
    EXPECT_EQ(Shortened("日本語", 5), "日本…");
    EXPECT_EQ(Shortened("日本語", 4), "日…");
    EXPECT_EQ(Shortened("e\xCC\x81 e\xCC\x81", 3), "e\xCC\x81 e\xCC\x81");
    EXPECT_EQ(PadRight("日本", 6), "日本  ");
}

TEST(Printable, LetsNoMarkTurnTheDirection) {
    EXPECT_EQ(Printable("a\xE2\x80\xAE"
                        "b\xE2\x81\xA6"
                        "c\xE2\x80\xA8"
                        "d"),
              "a?b?c?d");
}

TEST(PadRight, CountsCharactersNotBytes) {
    EXPECT_EQ(PadRight("größe", 7), "größe  ");
    EXPECT_EQ(PadLeft("größe", 7), "  größe");
    EXPECT_EQ(PadLeft("12345", 3), "12345");
}

TEST(PlainText, DropsTheCodeBehindAText) {
    EXPECT_EQ(PlainText("no such host [Collaboration Data Objects - [X(80040115)]]"),
              "no such host");
    EXPECT_EQ(PlainText("[Collaboration Data Objects - [X(80040115)]]"),
              "[Collaboration Data Objects - [X(80040115)]]");
    EXPECT_EQ(PlainText("Disk full"), "Disk full");
}

}  // namespace
}  // namespace trevix::cli
