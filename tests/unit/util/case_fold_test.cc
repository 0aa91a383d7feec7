#include "util/case_fold.h"

#include <gtest/gtest.h>

#include <map>

namespace trevix {
namespace {

const std::map<char32_t, char32_t>& Expected() {
    static const std::map<char32_t, char32_t> kExpected = {
#include "case_fold_expected.inc"
    };
    return kExpected;
}

TEST(FoldCharacter, AgreesWithAnotherImplementationOnEveryCharacter) {
    for (char32_t character = 0; character < 0x110000; ++character) {
        const auto expected = Expected().find(character);
        const char32_t folded = expected == Expected().end() ? character : expected->second;
        ASSERT_EQ(FoldCharacter(character), folded) << std::hex << std::uint32_t{character};
    }
}

TEST(FoldCharacter, IsDoneOnce) {
    for (const auto& [character, folded] : Expected()) {
        EXPECT_EQ(FoldCharacter(folded), folded) << std::hex << std::uint32_t{character};
    }
}

TEST(FoldCase, FoldsTextsOfSeveralScripts) {
    EXPECT_EQ(FoldCase("Report.PDF"), "report.pdf");
    EXPECT_EQ(FoldCase("ÄÖÜ Éé"), "äöü éé");
    EXPECT_EQ(FoldCase("ΣΊΣΥΦΟΣ"), FoldCase("σίσυφος"));
    EXPECT_EQ(FoldCase("ОТЧЁТ"), "отчёт");
    EXPECT_EQ(FoldCase("ԲԱՐԵՒ"), "բարեւ");
    EXPECT_EQ(FoldCase("\xE2\x84\xAA"), "k") << "the sign for Kelvin";
    EXPECT_EQ(FoldCase("𐐀"), "𐐨");
    EXPECT_EQ(FoldCase("日本"), "日本");
}

TEST(FoldCase, KeepsBytesThatAreNoCharacters) {
    EXPECT_EQ(FoldCase("A\xFF\xC3"
                       "B\xE2\x82"),
              "a\xFF\xC3"
              "b\xE2\x82");
    EXPECT_EQ(FoldCase(""), "");
}

TEST(FoldedText, IsFoundWhateverTheCase) {
    EXPECT_TRUE(FoldedText("REPORT").IsIn("yearly report.doc"));
    EXPECT_TRUE(FoldedText("doc").IsIn("yearly report.DOC"));
    EXPECT_TRUE(FoldedText("yearly report.doc").IsIn("Yearly Report.doc"));
    EXPECT_FALSE(FoldedText("yearly report.docx").IsIn("Yearly Report.doc"));
    EXPECT_FALSE(FoldedText("rapport").IsIn("yearly report.doc"));
    EXPECT_TRUE(FoldedText("aab").IsIn("aaab"));
    EXPECT_TRUE(FoldedText("grüße").IsIn("Viele GRÜßE"));
    EXPECT_TRUE(FoldedText("viele").IsIn("Viele GRÜßE"));
    EXPECT_FALSE(FoldedText("grüße").IsIn("Viele Gruesse"));
    EXPECT_TRUE(
        FoldedText("kelvin").IsIn("300 \xE2\x84\xAA"
                                  "elvin"));
    EXPECT_TRUE(FoldedText("\xE2\x84\xAA"
                           "elvin")
                    .IsIn("300 KELVIN"));
}

TEST(FoldedText, IsEverywhereWhenEmpty) {
    EXPECT_TRUE(FoldedText("").IsIn(""));
    EXPECT_TRUE(FoldedText("").IsIn("a"));
    EXPECT_FALSE(FoldedText("a").IsIn(""));
}

}  // namespace
}  // namespace trevix
