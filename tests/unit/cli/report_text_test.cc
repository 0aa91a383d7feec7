#include "cli/report_text.h"

#include <gmock/gmock.h>

#include "manage/compression_log.h"

namespace trevix::cli {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string Page() {
    const Date start{39360.5};
    return CompressionLogHeader(start) + CompressionLogRow("Inbox", 3, 12345, 2345, 81) +
           CompressionLogRow("Archive\\Old", 0, 0, 0, 0) + CompressionLogTotal(3, 12345, 2345, 81) +
           CompressionLogClosing(Date{39360.75});
}

TEST(ParseCompressionLog, ReadsBackWhatTheRunWrote) {
    const LogReport report = ParseCompressionLog(Page());

    EXPECT_EQ(report.started, "10/5/2007 12:00:00 PM");
    EXPECT_EQ(report.completed, "10/5/2007 6:00:00 PM");
    ASSERT_EQ(report.rows.size(), 3U);
    EXPECT_EQ(report.rows[0].folder, "Inbox");
    EXPECT_EQ(report.rows[0].attachments, "3");
    EXPECT_EQ(report.rows[0].original_bytes, "12,345");
    EXPECT_EQ(report.rows[0].compressed_bytes, "2,345");
    EXPECT_EQ(report.rows[0].percent, "81");
    EXPECT_EQ(report.rows[2].folder, "Total");
}

TEST(ParseCompressionLog, KeepsFolderNamesThatHoldMarkup) {
    const LogReport report = ParseCompressionLog(CompressionLogRow("a<b>&amp;", 1, 2, 1, 50));

    ASSERT_EQ(report.rows.size(), 1U);
    EXPECT_EQ(report.rows[0].folder, "a<b>&amp;");
}

TEST(ParseCompressionLog, TakesAnyTextWithoutHarm) {
    for (const char* text : {"", "<tr>", "<tr><td>x</td></tr>", "<title>", "<br>Completed ",
                             "<tr><td></td><td></td><td></td><td></td><td></td></tr>"}) {
        const LogReport report = ParseCompressionLog(text);
        EXPECT_LE(report.rows.size(), 1U) << text;
    }
}

TEST(FormatLogReport, LeavesOutFoldersWithoutAnyWork) {
    const std::string text = FormatLogReport(ParseCompressionLog(Page()));

    EXPECT_THAT(text, HasSubstr("Inbox "));
    EXPECT_THAT(text, HasSubstr("12,345"));
    EXPECT_THAT(text, HasSubstr("Total "));
    EXPECT_THAT(text, HasSubstr("1 folder without anything to zip"));
    EXPECT_THAT(text, Not(HasSubstr("Archive")));
}

}  // namespace
}  // namespace trevix::cli
