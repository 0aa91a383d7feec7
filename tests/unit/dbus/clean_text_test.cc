#include "platform/dbus/clean_text.h"

#include <gtest/gtest.h>

#include <string>

namespace trevix::dbus {
namespace {

using namespace std::string_literals;

constexpr const char* kMark = "\xEF\xBF\xBD";

std::string Marks(int count) {
    std::string text;
    for (int i = 0; i < count; ++i)
        text += kMark;
    return text;
}

TEST(CleanText, LeavesTextOfEveryLengthAsItIs) {
    for (const std::string text : {"", "abc", "gr\xC3\xBC\xC3\x9F", "\xE2\x82\xAC", "\xEF\xBF\xBC",
                                   "\xF0\x9F\x98\x80", "\xF4\x8F\xBF\xBD", "line\r\nbreak\x01"}) {
        EXPECT_EQ(CleanText(text), text);
    }
}

TEST(CleanText, ReplacesEachByteThatBeginsNothing) {
    EXPECT_EQ(CleanText("a\xFF\xFEz"), "a" + Marks(2) + "z");
    EXPECT_EQ(CleanText("\x80"), Marks(1));
    EXPECT_EQ(CleanText("\xC0\xAF"), Marks(2));
    EXPECT_EQ(CleanText("\xF5\x80\x80\x80"), Marks(4));
}

TEST(CleanText, ReplacesASequenceThatIsCutOffAndGoesOnBehindIt) {
    EXPECT_EQ(CleanText("\xC3"), Marks(1));
    EXPECT_EQ(CleanText("\xE2\x82"), Marks(2));
    EXPECT_EQ(CleanText("\xE2\x82 x"), Marks(2) + " x");
    EXPECT_EQ(CleanText("\xC3\xC3\xBC"), Marks(1) + "\xC3\xBC");
}

TEST(CleanText, ReplacesLongFormsSurrogatesAndNoncharactersWhole) {
    EXPECT_EQ(CleanText("\xE0\x80\xAF"), Marks(1));
    EXPECT_EQ(CleanText("\xF0\x80\x80\xAF"), Marks(1));
    EXPECT_EQ(CleanText("\xED\xA0\x80"), Marks(1));
    EXPECT_EQ(CleanText("\xEF\xBF\xBE"), Marks(1));
    EXPECT_EQ(CleanText("\xEF\xB7\x90"), Marks(1));
    EXPECT_EQ(CleanText("\xF0\x9F\xBF\xBF"), Marks(1));
    EXPECT_EQ(CleanText("\xF4\x90\x80\x80"), Marks(1));
}

TEST(CleanText, ReplacesWhatWouldEndTheText) {
    EXPECT_EQ(CleanText("a\0b"s), "a" + Marks(1) + "b");
}

}  // namespace
}  // namespace trevix::dbus
