#include "platform/maildir/folder_name.h"

#include <gtest/gtest.h>

namespace trevix::maildir {
namespace {

TEST(DisplayName, KeepsPlainNames) {
    EXPECT_EQ(DisplayName("Archive 2020"), "Archive 2020");
    EXPECT_EQ(DisplayName(""), "");
}

TEST(DisplayName, DecodesModifiedUtf7) {
    EXPECT_EQ(DisplayName("Entw&APw-rfe"), "Entw\xC3\xBCrfe");
    EXPECT_EQ(DisplayName("R&-D"), "R&D");
    EXPECT_EQ(DisplayName("&U,BTFw-"), "\xE5\x8F\xB0\xE5\x8C\x97");
    EXPECT_EQ(DisplayName("&2D3eAA-"), "\xF0\x9F\x98\x80");
}

TEST(DisplayName, KeepsWhatIsNoModifiedUtf7) {
    EXPECT_EQ(DisplayName("R&D"), "R&D");
    EXPECT_EQ(DisplayName("a&b-c"), "a&b-c");
    EXPECT_EQ(DisplayName("&AP-"), "&AP-") << "bits are missing";
    EXPECT_EQ(DisplayName("&APx-"), "&APx-") << "bits are left over";
    EXPECT_EQ(DisplayName("&2D0-"), "&2D0-") << "half a pair";
    EXPECT_EQ(DisplayName("&3gA-"), "&3gA-") << "the other half";
    EXPECT_EQ(DisplayName("&AAA-"), "&AAA-") << "NUL";
    EXPECT_EQ(DisplayName("&!!!-"), "&!!!-");
}

TEST(DisplayName, TakesOtherNamesAsUtf8) {
    EXPECT_EQ(DisplayName("Entw\xC3\xBCrfe &APw-"), "Entw\xC3\xBCrfe &APw-");
}

TEST(DisplayName, ReplacesBytesThatAreNoUtf8) {
    const std::string bad = "\xEF\xBF\xBD";
    EXPECT_EQ(DisplayName("a\xFC"), "a" + bad);
    EXPECT_EQ(DisplayName("\xC0\x80x"), bad + bad + "x");
    EXPECT_EQ(DisplayName("\xED\xA0\x80"), bad + bad + bad);
    EXPECT_EQ(DisplayName("\xE2\x82"), bad + bad);
    EXPECT_EQ(DisplayName("\xF5\x80\x80\x80"), bad + bad + bad + bad);
}

}  // namespace
}  // namespace trevix::maildir
