#include "cli/glob.h"

#include <gtest/gtest.h>

#include <string>

namespace trevix::cli {
namespace {

struct GlobCase {
    const char* pattern;
    const char* name;
    bool matches;
};

class GlobMatches : public testing::TestWithParam<GlobCase> {};

TEST_P(GlobMatches, AsAShellWould) {
    EXPECT_EQ(Glob(GetParam().pattern).Matches(GetParam().name), GetParam().matches)
        << GetParam().pattern << " and " << GetParam().name;
}

INSTANTIATE_TEST_SUITE_P(
    All, GlobMatches,
    testing::Values(GlobCase{"*", "", true}, GlobCase{"", "", true}, GlobCase{"", "a", false},
                    GlobCase{"a", "", false}, GlobCase{"report.doc", "Report.DOC", true},
                    GlobCase{"report", "report.doc", false}, GlobCase{"*.pdf", "a.pdf", true},
                    GlobCase{"*.PDF", "a.pdf", true}, GlobCase{"*.pdf", "a.pdf.exe", false},
                    GlobCase{"*.pdf", ".pdf", true}, GlobCase{"a*b*c", "aXbYbZc", true},
                    GlobCase{"a*b*c", "aXbYbZ", false}, GlobCase{"a**c", "abc", true},
                    GlobCase{"?.txt", "ä.txt", true}, GlobCase{"??.txt", "ä.txt", false},
                    GlobCase{"?", "", false}, GlobCase{"*ÄRZTE*", "liste-ärzte.xls", true},
                    GlobCase{"[ab].txt", "B.txt", true}, GlobCase{"[!ab].txt", "b.txt", false},
                    GlobCase{"[^ab].txt", "c.txt", true},
                    GlobCase{"file[0-9].txt", "file7.txt", true},
                    GlobCase{"file[0-9].txt", "filex.txt", false}, GlobCase{"[ä-ü]", "ö", true},
                    GlobCase{"[]]", "]", true}, GlobCase{"[", "[", true},
                    GlobCase{"a[b", "a[b", true}, GlobCase{"\\*", "*", true},
                    GlobCase{"\\*", "a", false}, GlobCase{"a\\", "a\\", true},
                    GlobCase{"*[x]", "aax", true}, GlobCase{"*\xFF", "a\xFF", true}));

TEST(Glob, IsQuickWithManyStars) {
    const std::string name(2000, 'a');
    EXPECT_FALSE(Glob("*a*a*a*a*a*a*a*a*b").Matches(name));
}

}  // namespace
}  // namespace trevix::cli
