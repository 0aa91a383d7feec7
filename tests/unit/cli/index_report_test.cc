#include "cli/index_report.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

namespace trevix::cli {
namespace {

constexpr const char* kStatistics =
    "Attachment index created for:\r\nAnn's mail\r\nOld mail\r\n"
    "Time to create index (seconds): 0.25\r\n"
    "Attachments count (including files within zip attachments): 1234\r\n"
    "Compressed size of all attachments: 1.50KB (1,536 bytes)\r\n"
    "Uncompressed size of all attachments: 4.00MB (4,194,304 bytes)\r\n"
    "Size of index (compressed): 900 bytes";

IndexSummary Summary() {
    IndexSummary summary;
    summary.text = kStatistics;
    summary.rows = 1234;
    summary.rows_added = 5;
    summary.bytes = 4194304;
    summary.stored_bytes = 1536;
    return summary;
}

TEST(ParseIndexStatistics, ReadsStoresAndSizes) {
    const IndexStatistics statistics = ParseIndexStatistics(kStatistics);
    EXPECT_THAT(statistics.stores, testing::ElementsAre("Ann's mail", "Old mail"));
    EXPECT_EQ(statistics.index_bytes, 900);
}

TEST(ParseIndexStatistics, FindsNothingInOtherTexts) {
    EXPECT_EQ(ParseIndexStatistics("").index_bytes, 0);
    EXPECT_EQ(ParseIndexStatistics("Size of index (compressed): lots").index_bytes, 0);
}

TEST(IndexSummaryLine, NamesStoresRowsAndSizes) {
    EXPECT_EQ(IndexSummaryLine(Summary(), 250),
              "index of Ann's mail, Old mail: 1,234 attachments (5 new), 4.00 MB (1.50 KB packed), "
              "index 900 bytes, 0.2 s");
    IndexSummary failed = Summary();
    failed.rows = 1;
    failed.messages_failed = 2;
    failed.folders_failed = 1;
    EXPECT_THAT(IndexSummaryLine(failed, 250), testing::HasSubstr(": 1 attachment (5 new)"));
    EXPECT_THAT(IndexSummaryLine(failed, 250), testing::HasSubstr(", 3 failures, "));
}

// The statistics text counts no further than 2 GB.
TEST(IndexSummaryLine, TellsTotalsOfMoreThanTwoGigabytes) {
    IndexSummary summary = Summary();
    summary.bytes = std::int64_t{30} << 30;
    summary.stored_bytes = std::int64_t{20} << 30;

    EXPECT_THAT(IndexSummaryLine(summary, 250), testing::HasSubstr("30.0 GB (20.0 GB packed)"));
    EXPECT_EQ(IndexSummaryFields(summary, 250)["bytes"], std::int64_t{30} << 30);
}

TEST(IndexSummaryFields, SayWhetherTheIndexWasSaved) {
    EXPECT_EQ(IndexSummaryFields(Summary(), 7)["saved"], true);
    EXPECT_EQ(IndexSummaryFields({}, 7)["saved"], false);
    EXPECT_EQ(IndexSummaryFields({}, 7)["elapsed_ms"], 7);
}

}  // namespace
}  // namespace trevix::cli
