// CZIP over the real engines, where the fake ones cannot tell.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "fakes/fake_log.h"
#include "fakes/fake_message_loop.h"
#include "index_rows.h"
#include "platform/posix/posix_file_system.h"
#include "platform/zip/factory.h"
#include "unit/zip_engine/raw_zip.h"
#include "zip/czip.h"

namespace trevix {
namespace {

using testing::ElementsAre;
using testing::EndsWith;

class CZIPOverTheEngines : public testing::Test {
 protected:
    CZIPOverTheEngines() {
        std::string name = (std::filesystem::temp_directory_path() / "czip-XXXXXX").string();
        folder_ = ::mkdtemp(name.data());
        path_ = folder_ + "/a.zip";
    }
    ~CZIPOverTheEngines() override { std::filesystem::remove_all(folder_); }

    void Put(const std::vector<test::RawEntry>& entries) {
        std::ofstream(path_, std::ios::binary) << test::RawZip(entries);
    }

    std::string Bytes() const {
        std::ostringstream bytes;
        bytes << std::ifstream(path_, std::ios::binary).rdbuf();
        return bytes.str();
    }

    std::vector<std::string> ListedNames() {
        std::unique_ptr<RecordSet> index = test::OpenIndex();
        zip_.GetZIPContent(path_, "a.zip", AttachedTo(), index, loop_);
        return test::ColumnOf(*index, "FileName");
    }

    std::string folder_;
    std::string path_;
    zip_engine::Factory factory_;
    posix::PosixFileSystem files_;
    fakes::FakeLog log_;
    fakes::FakeMessageLoop loop_;
    CZIP zip_{factory_, files_, log_, 5};
};

TEST_F(CZIPOverTheEngines, ListsNamesOfCodePage437AndOfUtf8) {
    Put({{.name = "stra\xE1"
                  "e.txt"},
         {.name = "caf\xC3\xA9.txt", .flags = 0x800},
         {.name = "docs/\x81"
                  "ber.txt"}});

    EXPECT_THAT(ListedNames(), ElementsAre("stra\xC3\x9F"
                                           "e.txt",
                                           "caf\xC3\xA9.txt",
                                           "\xC3\xBC"
                                           "ber.txt"));
}

TEST_F(CZIPOverTheEngines, ListsWhatItCouldNotInflate) {
    Put({{.name = "a.bin", .data = "no deflated data", .method = 8, .size = 5000, .crc = 1},
         {.name = "b.bin", .data = "x", .method = 99, .flags = 1}});

    EXPECT_THAT(ListedNames(), ElementsAre("a.bin", "b.bin"));
}

TEST_F(CZIPOverTheEngines, ListsALargeArchiveAsFarAsItsEntriesHaveNumbers) {
    std::vector<test::RawEntry> entries(65536);
    for (std::size_t i = 0; i < entries.size(); ++i)
        entries[i].name = std::to_string(i);
    Put(entries);

    const std::vector<std::string> names = ListedNames();

    ASSERT_EQ(names.size(), 32767U);
    EXPECT_EQ(names.back(), "32766");
    EXPECT_EQ(zip_.LastListing(), ZipListing::kComplete);
}

TEST_F(CZIPOverTheEngines, WarnsOnceInAnArchiveThatIsCheckedTwice) {
    Put({{.name = "setup.exe", .data = "MZ"}, {.name = "readme.doc", .data = "hello"}});

    EXPECT_TRUE(zip_.CheckZIPContent(path_, ".exe:.bat"));
    EXPECT_TRUE(zip_.CheckZIPContent(path_, ".exe:.bat"));

    EXPECT_THAT(ListedNames(), ElementsAre("setup.exe", "readme.doc",
                                           "!_Trevix Level 1 Attachment Warning - Readme.txt"));
    EXPECT_THAT(Bytes(), EndsWith("File Name(s):\r\nsetup.exe\r\n"));
    std::string destination = folder_ + "/out";
    std::filesystem::create_directory(destination);
    EXPECT_EQ(zip_.ZIPExtract(path_, destination), 0);
    EXPECT_EQ(files_.ReadText(destination + "setup.exe").value(), "MZ");
    EXPECT_EQ(files_.ReadText(destination + "readme.doc").value(), "hello");
    EXPECT_THAT(
        files_.ReadText(destination + "!_Trevix Level 1 Attachment Warning - Readme.txt").value(),
        EndsWith("File Name(s):\r\nsetup.exe\r\n"));
}

}  // namespace
}  // namespace trevix
