#include "manage/compression_log.h"

#include <gtest/gtest.h>

namespace trevix {
namespace {

TEST(CompressionLog, HeaderHasItsTextToTheByte) {
    EXPECT_EQ(
        CompressionLogHeader({39360.5}),
        "<html><head><title>Trevix Compress Attachments Log 10/5/2007 12:00:00 PM</title></head>"
        "<body><font size='1' face='Arial'><table border='1' style='border-collapse: "
        "collapse;font-family:Arial,Geneva,Helvetica;font-size=8pt' bordercolor='#808080' "
        "width='100%'><tr bgcolor='#C0C0C0'><td width='44%'><strong>Folder</strong></td>"
        "<td width='16%'><strong>Compressed Attachments</strong></td><td width='18%'>"
        "<strong>Original bytes</strong></td><td width='18%'><strong>Compressed bytes</strong>"
        "</td><td width='4%' align='right'><strong>%</strong></td></tr>");
}

TEST(CompressionLog, RowShowsThousandsAndThePlainPercentage) {
    EXPECT_EQ(CompressionLogRow("Archive\\2019", 12, 1234567, 1000, 99),
              "<tr><td width='44%'>Archive\\2019</td><td width='16%' align='right'>12</td>"
              "<td width='18%' align='right'>1,234,567</td><td width='18%' align='right'>1,000"
              "</td><td width='4%' align='right'>99</td></tr>");
}

TEST(CompressionLog, InsertsFolderNamesWithoutEscaping) {
    EXPECT_NE(CompressionLogRow("<b>&", 0, 0, 0, 0).find("<td width='44%'><b>&</td>"),
              std::string::npos);
}

TEST(CompressionLog, TotalAndClosingHaveTheirTexts) {
    EXPECT_EQ(CompressionLogTotal(0, 0, 0, 0),
              "<tr><td width='44%'>Total</td><td width='16%' align='right'>0</td><td width='18%' "
              "align='right'>0</td><td width='18%' align='right'>0</td><td width='4%' "
              "align='right'>0</td></tr>");
    EXPECT_EQ(CompressionLogClosing({39360.5}),
              "</table><br>Completed 10/5/2007 12:00:00 PM</body></html>");
}

struct PercentageRow {
    const char* name;
    std::int32_t original_bytes;
    std::int32_t compressed_bytes;
    std::int32_t percentage;
};

class SavedPercentageTest : public testing::TestWithParam<PercentageRow> {};

TEST_P(SavedPercentageTest, IsCutTowardZeroAndNeverNegative) {
    EXPECT_EQ(SavedPercentage(GetParam().original_bytes, GetParam().compressed_bytes),
              GetParam().percentage);
}

constexpr PercentageRow kRows[] = {
    {"TwoThirds", 1000000, 370000, 63},
    {"Cut", 1000, 3, 99},
    {"NothingCompressed", 0, 0, 0},
    {"OriginalZero", 0, 500, 0},
    {"Larger", 100, 250, 0},
    {"FarLarger", 1, 2147483647, 0},
    {"Equal", 7, 7, 0},
    {"All", 100, 0, 100},
};

INSTANTIATE_TEST_SUITE_P(Rows, SavedPercentageTest, testing::ValuesIn(kRows),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace trevix
