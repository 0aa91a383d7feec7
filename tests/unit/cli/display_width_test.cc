#include "cli/display_width.h"

#include <gtest/gtest.h>

namespace trevix::cli {
namespace {

TEST(DisplayColumns, CountsWhatATerminalShows) {
    EXPECT_EQ(DisplayColumns(""), 0U);
    EXPECT_EQ(DisplayColumns("abc"), 3U);
    EXPECT_EQ(DisplayColumns("größer"), 6U);
    EXPECT_EQ(DisplayColumns("日本語"), 6U);
    EXPECT_EQ(DisplayColumns("한글"), 4U);
    EXPECT_EQ(DisplayColumns("e\xCC\x81"), 1U) << "a letter and an accent on it";
    EXPECT_EQ(DisplayColumns("📎"), 2U);
    EXPECT_EQ(DisplayColumns("שָׁלוֹם"), 4U);
    EXPECT_EQ(DisplayColumns("\xFF\xC3"), 2U) << "bytes that are no characters";
}

}  // namespace
}  // namespace trevix::cli
