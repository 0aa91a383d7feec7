#include "util/file_name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "util/text.h"

namespace trevix {
namespace {

TEST(BaseName, CutsTheLastExtensionOfArchiveTarGz) {
    EXPECT_EQ(BaseName("archive.tar.gz"), "archive.tar");
    EXPECT_EQ(Extension("archive.tar.gz"), "gz");
}

TEST(BaseName, IsTheWholeNameWithoutADot) {
    EXPECT_EQ(BaseName("README"), "README");
    EXPECT_EQ(Extension("README"), "README");
}

TEST(BaseName, HandlesADotAtEitherEnd) {
    EXPECT_EQ(BaseName(".profile"), "");
    EXPECT_EQ(Extension(".profile"), "profile");
    EXPECT_EQ(BaseName("name."), "name");
    EXPECT_EQ(Extension("name."), "");
    EXPECT_EQ(BaseName(""), "");
}

TEST(MakeFileNameSafe, ReplacesEachReservedCharacterByOneBlank) {
    std::string text = "a:b/c\\d>e<f|g?h*i\"j";
    MakeFileNameSafe(text);
    EXPECT_EQ(text, "a b c d e f g h i\"j");
}

TEST(SafeFileComponent, KeepsOrdinaryNames) {
    for (const char* name :
         {"report.pdf", ".profile", "a b.txt", "\u00DCbersicht (2).xls", "..."}) {
        EXPECT_EQ(SafeFileComponent(name), name);
    }
}

TEST(SafeFileComponent, LeavesNoWayOutOfTheFolder) {
    EXPECT_EQ(SafeFileComponent("../x"), ".._x");
    EXPECT_EQ(SafeFileComponent("..\\..\\x"), ".._.._x");
    EXPECT_EQ(SafeFileComponent("/etc/passwd"), "_etc_passwd");
    EXPECT_EQ(SafeFileComponent("."), "attachment");
    EXPECT_EQ(SafeFileComponent(".."), "attachment");
    EXPECT_EQ(SafeFileComponent(" .. "), "attachment");
}

TEST(SafeFileComponent, ReplacesQuotesControlCharactersAndNul) {
    EXPECT_EQ(SafeFileComponent("a\"b.txt"), "a_b.txt");
    EXPECT_EQ(SafeFileComponent(std::string("a\0b\n\x7F", 5)), "a_b__");
    EXPECT_EQ(SafeFileComponent("a\u0085b"), "a_b");
}

TEST(SafeFileComponent, ReplacesBytesThatAreNotUtf8) {
    EXPECT_EQ(SafeFileComponent("caf\xE9.txt"), "caf_.txt");
    EXPECT_EQ(SafeFileComponent("\xC0\xAF"), "__");
}

TEST(SafeFileComponent, IsNeverEmptyAndHasNoBlanksAtItsEnds) {
    EXPECT_EQ(SafeFileComponent(""), "attachment");
    EXPECT_EQ(SafeFileComponent("   "), "attachment");
    EXPECT_EQ(SafeFileComponent("  a.txt "), "a.txt");
}

TEST(SafeFileComponent, CutsLongNamesAndKeepsTheExtension) {
    const std::string cut = SafeFileComponent(std::string(300, 'a') + ".pdf");
    EXPECT_EQ(cut, std::string(196, 'a') + ".pdf");
    EXPECT_EQ(SafeFileComponent("a." + std::string(300, 'b')).size(), 200U);
}

TEST(SafeFileComponent, CutsAtACharacterBoundary) {
    for (std::size_t lead = 0; lead < 4; ++lead) {
        std::string name(lead, 'x');
        while (name.size() < 400)
            name += "\U0001F600";
        const std::string cut = SafeFileComponent(name + ".txt");
        EXPECT_LE(cut.size(), 200U);
        EXPECT_GT(cut.size(), 196U - 1);
        EXPECT_TRUE(cut.ends_with(".txt"));
        for (std::size_t at = 0; at < cut.size();) {
            const std::size_t bytes = Utf8CharacterBytes(cut, at);
            ASSERT_GT(bytes, 0U);
            at += bytes;
        }
    }
}

TEST(SafeFileComponent, HoldsItsPromiseForEveryPairOfBytes) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const std::string name = {static_cast<char>(first), static_cast<char>(second)};
            const std::string safe = SafeFileComponent(name);
            ASSERT_FALSE(safe.empty() || safe == "." || safe == "..");
            ASSERT_EQ(safe.find_first_of(std::string("/\\\"\n\0", 5)), std::string::npos);
            ASSERT_NE(safe.front(), ' ');
            ASSERT_NE(safe.back(), ' ');
            ASSERT_EQ(SafeFileComponent(safe), safe);
        }
    }
}

}  // namespace
}  // namespace trevix
