#include "cli/setting_table.h"

#include <gmock/gmock.h>

#include <set>

namespace trevix::cli {
namespace {

struct Bad {
    const char* name;
    const char* setting;
    const char* text;
    const char* why;
};

void PrintTo(const Bad& row, std::ostream* out) {
    *out << row.name;
}

std::string CaseName(const testing::TestParamInfo<Bad>& row) {
    return row.param.name;
}

class ParseSettingRefuses : public testing::TestWithParam<Bad> {};

TEST_P(ParseSettingRefuses, WithAReason) {
    const auto value = ParseSetting(*FindSetting(GetParam().setting), GetParam().text);

    ASSERT_FALSE(value.ok());
    EXPECT_EQ(value.error().kind, ErrorKind::kConversion);
    EXPECT_EQ(value.error().description, GetParam().why);
}

INSTANTIATE_TEST_SUITE_P(
    Values, ParseSettingRefuses,
    testing::Values(Bad{"Word", "min-size", "big", "\"big\" is not a whole number of at least 0"},
                    Bad{"Negative", "min-size", "-1", "\"-1\" is not a whole number of at least 0"},
                    Bad{"Nothing", "min-size", "", "\"\" is not a whole number of at least 0"},
                    Bad{"TooLarge", "min-size", "2147483648", "2147483648 is too large"},
                    Bad{"TooLargeFor16Bits", "log-level", "32768", "32768 is too large"},
                    Bad{"Maybe", "rollup", "maybe", "\"maybe\" is neither \"on\" nor \"off\""},
                    Bad{"Level", "level", "EX", "\"EX\" is none of ex, ef, es, std"},
                    Bad{"NoDot", "exclude", ".zip:jpg",
                        "\"jpg\" is no extension; write a list as \".zip:.jpg:.gif\""},
                    Bad{"TrayOff", "tray", "off",
                        "its mere presence turns it on; remove it with --default"}),
    CaseName);

TEST(ParseSetting, GivesTypedValuesUnderTheirValueNames) {
    const auto size = ParseSetting(*FindSetting("min-size"), "20000");
    const auto level = ParseSetting(*FindSetting("level"), "ex");
    const auto rollup = ParseSetting(*FindSetting("ROLLUP"), "No");

    EXPECT_EQ(size.value().name, "ZipBytesCompress");
    EXPECT_EQ(size.value().type, kRegDword);
    EXPECT_EQ(size.value().data, std::string("\x20\x4E\0\0", 4));
    EXPECT_EQ(level.value().type, kRegSz);
    EXPECT_EQ(level.value().data, std::string("-ex\0", 4));
    EXPECT_EQ(rollup.value().data, std::string(4, '\0'));
}

TEST(ParseSetting, TakesAnEmptyExclusionListForNothingExcluded) {
    const auto value = ParseSetting(*FindSetting("exclude"), "");

    ASSERT_TRUE(value.ok());
    EXPECT_EQ(value.value().data, std::string(1, '\0'));
}

TEST(ParseSetting, ReadsBackAsItWasWritten) {
    for (const auto& [name, text] :
         {std::pair{"min-size", "20000"}, std::pair{"rollup", "off"}, std::pair{"rollup", "on"},
          std::pair{"level", "std"}, std::pair{"level", "ef"}, std::pair{"exclude", ".zip:.jpg"},
          std::pair{"tray", "on"}}) {
        const Setting& setting = *FindSetting(name);
        const auto value = ParseSetting(setting, text);
        ASSERT_TRUE(value.ok());
        const Variant stored = DecodeStored(value.value());
        EXPECT_EQ(ShowStored(setting, stored), text) << name;
        EXPECT_TRUE(CheckStored(setting, stored).ok()) << name;
    }
}

TEST(CheckStored, FindsWhatTheComponentCannotConvert) {
    const auto check = [](const char* name, const Variant& stored) {
        const Status status = CheckStored(*FindSetting(name), stored);
        return status.ok() ? std::string() : status.error().description;
    };

    EXPECT_EQ(check("log-size", std::string("lots")), "\"lots\" is not a number");
    EXPECT_EQ(check("log-level", std::int32_t{40000}), "40000 is too large");
    EXPECT_EQ(check("rollup", std::string("perhaps")), "\"perhaps\" is not a yes or no");
    EXPECT_EQ(check("log-size", std::string("1,000")), "");
    EXPECT_EQ(check("rollup", std::string("True")), "");
    EXPECT_EQ(check("log-size", Variant()), "");
}

TEST(Settings, AreFoundByEitherNameAndHaveOneEach) {
    std::set<std::string> names;
    for (const Setting& setting : Settings()) {
        EXPECT_EQ(FindSetting(setting.name), &setting);
        EXPECT_EQ(FindSetting(setting.value_name), &setting);
        EXPECT_TRUE(names.insert(setting.name).second);
        EXPECT_STRNE(setting.about, "");
    }
    EXPECT_EQ(FindSetting("nothing"), nullptr);
}

}  // namespace
}  // namespace trevix::cli
