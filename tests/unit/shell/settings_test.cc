#include "shell/settings.h"

#include <gtest/gtest.h>

#include "support/world.h"

namespace trevix {
namespace {

using test::World;

std::string Dword(std::uint32_t value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<char>((value >> shift) & 0xFF));
    }
    return bytes;
}

struct ReadSettingsTest : testing::Test {
    ReadSettingsTest() { world.registry.keys.clear(); }
    World world;
};

TEST_F(ReadSettingsTest, TakesAnyTrayValueForAddinModeEvenAnEmptyText) {
    world.Setting("Tray", "");

    ASSERT_TRUE(ReadSettings(world.ci).ok());

    EXPECT_TRUE(world.ci.gAddinMode);
}

TEST_F(ReadSettingsTest, TakesTheAbsenceOfTrayForServerMode) {
    world.Setting("ErrorLogSize", "5000");

    ASSERT_TRUE(ReadSettings(world.ci).ok());

    EXPECT_FALSE(world.ci.gAddinMode);
}

TEST_F(ReadSettingsTest, KeepsTheLogFileOffInServerModeWhateverTheAddinKeyHolds) {
    world.Setting("ErrorLogSize", "5000");
    world.ci.ErrorLogSize = 77;

    ASSERT_TRUE(ReadSettings(world.ci).ok());

    EXPECT_EQ(world.ci.ErrorLogSize, 0);
}

TEST_F(ReadSettingsTest, TakesOnlyTheLogLevelFromTheServiceKey) {
    world.registry.Put(kLocalMachine, kServiceKey, "ErrorLogLevel", kRegDword, Dword(8));
    world.ci.Level = 9;

    ASSERT_TRUE(ReadSettings(world.ci).ok());

    EXPECT_EQ(world.ci.ErrorLogLevel, 8);
    EXPECT_EQ(world.ci.Level, 9);
}

TEST_F(ReadSettingsTest, HasADefaultForEachAbsentValue) {
    world.Setting("Tray", "1");

    ASSERT_TRUE(ReadSettings(world.ci).ok());

    EXPECT_EQ(world.ci.ErrorLogSize, 100000);
    EXPECT_EQ(world.ci.ErrorLogLevel, 4);
    EXPECT_EQ(world.ci.ExcludeCompress, kDefaultExcludeCompress);
    EXPECT_EQ(world.ci.ZipBytesCompress, 0);
    EXPECT_TRUE(world.ci.CombineCompress);
    EXPECT_FALSE(world.ci.CustomItems);
    EXPECT_EQ(world.ci.Level, 5);
}

TEST_F(ReadSettingsTest, ConvertsEachValue) {
    world.Setting("Tray", "1");
    world.Setting("ErrorLogSize", "2000");
    world.registry.Put(kCurrentUser, kAddinKey, "ErrorLogLevel", kRegDword, Dword(12));
    world.Setting("ZipBytesCompress", "1,024");
    world.Setting("CombineCompress", "False");
    world.Setting("CustomItems", "-1");

    ASSERT_TRUE(ReadSettings(world.ci).ok());

    EXPECT_EQ(world.ci.ErrorLogSize, 2000);
    EXPECT_EQ(world.ci.ErrorLogLevel, 12);
    EXPECT_EQ(world.ci.ZipBytesCompress, 1024);
    EXPECT_FALSE(world.ci.CombineCompress);
    EXPECT_TRUE(world.ci.CustomItems);
}

TEST_F(ReadSettingsTest, KeepsAnEmptyExcludeListAsEmpty) {
    world.Setting("Tray", "1");
    world.Setting("ExcludeCompress", "");

    ASSERT_TRUE(ReadSettings(world.ci).ok());

    EXPECT_EQ(world.ci.ExcludeCompress, "");
}

TEST_F(ReadSettingsTest, FailsOnAValueThatDoesNotConvert) {
    world.Setting("Tray", "1");
    world.Setting("ErrorLogSize", "plenty");

    const Status status = ReadSettings(world.ci);

    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().number, kTypeMismatch);
}

struct TokenRow {
    const char* name;
    const char* token;
    int level;
};

class LevelOfTokenTest : public testing::TestWithParam<TokenRow> {};

TEST_P(LevelOfTokenTest, MapsExactlyAndWithRegardToCase) {
    EXPECT_EQ(LevelOfToken(GetParam().token), GetParam().level);
}

constexpr TokenRow kTokens[] = {
    {"Extra", "-ex", 9}, {"Fast", "-ef", 3}, {"SuperFast", "-es", 1}, {"UpperCase", "-EX", 5},
    {"Other", "-en", 5}, {"Nothing", "", 5}, {"ANumber", "9", 5},
};

INSTANTIATE_TEST_SUITE_P(Tokens, LevelOfTokenTest, testing::ValuesIn(kTokens),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace trevix
