#include "cli/index_output.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/display_width.h"
#include "index_rows.h"

namespace trevix::cli {
namespace {

using test::IndexRow;
using testing::HasSubstr;

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

class IndexOutput : public testing::Test {
 protected:
    void SetUp() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
    std::string Table(std::vector<RowNumber> rows, std::size_t columns) {
        std::ostringstream out;
        WriteTable(*index_, rows, columns, out);
        return out.str();
    }

    std::unique_ptr<RecordSet> index_ = test::NewIndex();
};

TEST_F(IndexOutput, VisitsRowsInTheirOrder) {
    for (int i = 0; i < 5; ++i) {
        IndexRow row;
        row.file_name = "file" + std::to_string(i);
        test::Add(*index_, row);
    }
    std::vector<RowNumber> all;
    ForEachRow(*index_, [&](RowNumber row) { all.push_back(row); });
    EXPECT_THAT(all, testing::ElementsAre(1, 2, 3, 4, 5));
    std::vector<std::string> names;
    ForEachRow(*index_, {1, 3, 5, 9}, [&](RowNumber) { names.emplace_back(index_->TextAt(0)); });
    EXPECT_THAT(names, testing::ElementsAre("file0", "file2", "file4"));
}

TEST_F(IndexOutput, VisitsNothingInAnEmptyIndex) {
    int visits = 0;
    ForEachRow(*index_, [&](RowNumber) { ++visits; });
    ForEachRow(*index_, {1}, [&](RowNumber) { ++visits; });
    EXPECT_EQ(visits, 0);
    EXPECT_EQ(Table({}, 80), "");
}

TEST_F(IndexOutput, AlignsTheTable) {
    test::Add(*index_, {});
    IndexRow wide;
    wide.file_name = "日本語.txt";
    wide.file_size = 5 << 20;
    test::Add(*index_, wide);
    EXPECT_EQ(Table({1, 2}, 0),
              "Row  Name              Size  Date        Folder  From             Subject\n"
              "  1  report.doc  1000 bytes  2007-10-05  Inbox   ann@example.org  The report\n"
              "  2  日本語.txt     5.00 MB  2007-10-05  Inbox   ann@example.org  The report\n");
}

TEST_F(IndexOutput, ShowsTheArchiveOfAFileInOne) {
    IndexRow inside;
    inside.zip_file = "papers.zip";
    inside.zip_index = 0;
    test::Add(*index_, inside);
    const auto lines = Lines(Table({1}, 0));
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], HasSubstr("In "));
    EXPECT_THAT(lines[1], HasSubstr("papers.zip"));
}

TEST_F(IndexOutput, KeepsEveryLineInsideTheTerminal) {
    IndexRow row;
    row.file_name = std::string(200, 'n') + ".doc";
    row.subject = "日本語日本語日本語日本語日本語日本語日本語日本語日本語日本語";
    row.folder = "Archive\\Projects\\2007";
    test::Add(*index_, row);
    test::Add(*index_, {});
    for (const std::size_t columns : {200U, 100U, 80U, 61U, 40U, 20U, 5U, 1U}) {
        for (const std::string& line : Lines(Table({1, 2}, columns))) {
            EXPECT_LE(DisplayColumns(line), columns) << line;
        }
    }
    const auto lines = Lines(Table({1}, 100));
    EXPECT_EQ(DisplayColumns(lines[1]), 100U) << "no room is given away: " << lines[1];
    EXPECT_THAT(lines[1], HasSubstr("Archive/Proj"));
}

TEST_F(IndexOutput, LetsNothingSteerTheTerminal) {
    IndexRow row;
    row.file_name = "a\x1B[2J\r\n\tb.doc";
    row.subject =
        "x\xC2\x9Bm\xE2\x80\xAE"
        "cod.exe";
    row.folder = "F\x07";
    row.from = "\x7F";
    row.zip_file = "z\b.zip";
    row.zip_index = 1;
    test::Add(*index_, row);
    for (const std::size_t columns : {0U, 200U}) {
        const std::string table = Table({1}, columns);
        EXPECT_THAT(table, HasSubstr("a?[2J???b.doc"));
        EXPECT_THAT(table, HasSubstr("x?m?cod.exe"));
        for (const char c : table) {
            EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20);
        }
    }
}

TEST_F(IndexOutput, ShowsTheFilesTimeWhenTheMessageHasNone) {
    IndexRow row;
    row.received = Empty();
    test::Add(*index_, row);
    row.file_date = Empty();
    test::Add(*index_, row);
    const auto lines = Lines(Table({1, 2}, 0));
    EXPECT_THAT(lines[1], HasSubstr("2007-10-04"));
    EXPECT_THAT(lines[2], testing::Not(HasSubstr("2007")));
}

TEST_F(IndexOutput, WritesCsvThatIsReadBack) {
    IndexRow row;
    row.subject = "He said \"no\", twice\r\nand left";
    row.zip_index = -3;
    row.received = Empty();
    test::Add(*index_, row);
    std::ostringstream out;
    WriteCsv(*index_, {1}, false, out);
    EXPECT_EQ(out.str(),
              "Row,FileName,FileIndex,FileDate,FileSize,ZipIndex,ZipFile,Folder,EntryID,StoreID,"
              "Subject,From,Sender,To,DisplayTo,Received,FolderKey\r\n"
              "1,report.doc,0,2007-10-04T08:00:00,1000,-3,,Inbox,AB01,,"
              "\"He said \"\"no\"\", twice\r\nand left\",ann@example.org,Ann Archer,"
              "ben@example.org,Ben Baker; Cy,,1\r\n");
    std::ostringstream terminal;
    WriteCsv(*index_, {1}, true, terminal);
    EXPECT_THAT(terminal.str(), HasSubstr("\"He said \"\"no\"\", twice??and left\""));
}

TEST_F(IndexOutput, WritesJsonThatIsReadBack) {
    IndexRow row;
    row.file_name = "quo\"te\\ \x1B[0m \x7F \xC2\x9B größe.doc";
    row.received = Empty();
    test::Add(*index_, {});
    test::Add(*index_, row);
    std::ostringstream out;
    WriteJson(*index_, {2}, out);
    const auto lines = Lines(out.str());
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_THAT(lines[0], HasSubstr("\\u001b[0m \\u007f \\u009b größe"));
    const auto object = nlohmann::json::parse(lines[0]);
    EXPECT_EQ(object["event"], "row");
    EXPECT_EQ(object["Row"], 2);
    EXPECT_EQ(object["FileName"], row.file_name);
    EXPECT_EQ(object["FileSize"], 1000);
    EXPECT_EQ(object["ZipIndex"], -1);
    EXPECT_EQ(object["FileDate"], "2007-10-04T08:00:00");
    EXPECT_TRUE(object["Received"].is_null());
    EXPECT_EQ(object.size(), 18U);
}

}  // namespace
}  // namespace trevix::cli
