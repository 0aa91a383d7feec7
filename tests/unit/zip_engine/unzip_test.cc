// The unzip engine: what it lists, what it extracts and what it refuses.
#include <gmock/gmock.h>

#include "raw_zip.h"
#include "zip_world.h"

namespace trevix {
namespace {

using test::CrcOf;
using test::Deflated;
using test::DirectoryRecord;
using test::EndRecord;
using test::Le;
using test::Prose;
using test::RawEntry;
using test::RawZip;
using testing::ElementsAre;
using testing::IsEmpty;

class UnzipListing : public test::ZipWorld {};
class UnzipExtract : public test::ZipWorld {};

TEST_F(UnzipListing, ShowsNameSizesNumberAndDateOfEachEntry) {
    Put("a.zip", RawZip({{.name = "a.txt", .data = "12345", .time = 0xBF7D, .date = 0x5D7F},
                         Deflated("docs/b.txt", std::string(1000, 'x'))}));

    ASSERT_EQ(Count(), 0);
    EXPECT_EQ(unzip_->entry_count, 2);
    unzip_->Action(kUnzipNext);
    EXPECT_EQ(unzip_->entry_name, "a.txt");
    EXPECT_FALSE(unzip_->entry_path_flag);
    EXPECT_EQ(unzip_->entry_size, 5);
    EXPECT_EQ(unzip_->entry_compressed_size, 5);
    EXPECT_EQ(unzip_->entry_number, 0);
    EXPECT_EQ(unzip_->entry_date, "11/31/2026 23:59:58");
    unzip_->Action(kUnzipNext);
    EXPECT_EQ(unzip_->entry_name, "docs/b.txt");
    EXPECT_TRUE(unzip_->entry_path_flag);
    EXPECT_EQ(unzip_->entry_size, 1000);
    EXPECT_EQ(unzip_->entry_number, 1);
}

TEST_F(UnzipListing, HasNoDateWhereThereIsNone) {
    Put("a.zip", RawZip({{.name = "none", .time = 0, .date = 0},
                         {.name = "month 13", .time = 0, .date = 0x5BA1},
                         {.name = "hour 24", .time = 0xC000, .date = 0x5A21}}));

    ASSERT_EQ(Count(), 0);
    for (int i = 0; i < 3; ++i) {
        unzip_->Action(kUnzipNext);
        EXPECT_EQ(unzip_->entry_date, "") << unzip_->entry_name;
    }
}

TEST_F(UnzipListing, AcceptsFolderEntriesAndDuplicateNames) {
    Put("a.zip", RawZip({{.name = "docs/"}, {.name = "n", .data = "1"}, {.name = "n"}}));

    EXPECT_THAT(Names(), ElementsAre("docs/", "n", "n"));
}

TEST_F(UnzipListing, AcceptsAnArchiveWithoutEntries) {
    Put("a.zip", RawZip({}));

    EXPECT_THAT(Names(), IsEmpty());
    unzip_->Action(kUnzipNext);
    EXPECT_EQ(unzip_->error_code, 12);
}

TEST_F(UnzipListing, StepsToNothingBeforeACount) {
    unzip_->Action(kUnzipNext);

    EXPECT_EQ(unzip_->error_code, 12);
}

TEST_F(UnzipListing, ReadsNamesOfAllEncodings) {
    RawEntry by_field{.name = "?.txt"};
    const std::string path = "\xD0\xB6.txt";
    by_field.extra =
        Le(0x7075, 2) + Le(5 + path.size(), 2) + Le(1, 1) + Le(CrcOf("?.txt"), 4) + path;
    RawEntry stale_field = by_field;
    stale_field.name = "new.txt";
    Put("a.zip", RawZip({{.name = "\x81"
                                  "bung\xFE.txt"},
                         {.name = "\xC3\xBC.txt", .flags = 0x800},
                         {.name = "\xC3\xBC.txt"},
                         {.name = "bad\xFF", .flags = 0x800},
                         by_field,
                         stale_field}));

    EXPECT_THAT(Names(),
                ElementsAre("\xC3\xBC"
                            "bung\xE2\x96\xA0.txt",
                            "\xC3\xBC.txt", "\xC3\xBC.txt", "bad\xC2\xA0", path, "new.txt"));
}

TEST_F(UnzipListing, SeparatesFoldersOfOldProgramsBySlashes) {
    Put("a.zip",
        RawZip({{.name = "docs\\sub\\a.txt", .made_by = 0}, {.name = "odd\\name", .made_by = 3}}));

    EXPECT_THAT(Names(), ElementsAre("docs/sub/a.txt", "odd\\name"));
}

TEST_F(UnzipListing, CutsANameAtAZeroByte) {
    Put("a.zip", RawZip({{.name = std::string("a.txt\0.exe", 10)}}));

    EXPECT_THAT(Names(), ElementsAre("a.txt"));
}

TEST_F(UnzipListing, FindsAnArchiveBetweenOtherBytes) {
    const std::string archive = RawZip({{.name = "f", .data = "x"}}, "a comment");

    Put("a.zip", "#!/bin/sh in front of it\n" + archive);
    EXPECT_THAT(Names(), ElementsAre("f"));
    EXPECT_EQ(Extract(), 0);
    EXPECT_EQ(Read("out/f"), "x");

    Put("a.zip", archive + std::string(100, '\0'));
    EXPECT_THAT(Names(), ElementsAre("f"));
}

TEST_F(UnzipListing, IsNotMisledByAnEndRecordInsideTheComment) {
    Put("a.zip", RawZip({{.name = "f", .data = "x"}}, "see " + EndRecord(7, 700, 0) + " there"));

    EXPECT_THAT(Names(), ElementsAre("f"));
}

// An archive whose numbers stand in its wide fields.
std::string WideZip() {
    RawEntry entry{.name = "wide"};
    entry.extra = Le(1, 2) + Le(24, 2) + Le(6'000'000'000, 8) + Le(5'000'000'000, 8) + Le(0, 8);
    std::string record = DirectoryRecord(entry, 0xFFFFFFFF);
    record.replace(20, 8, std::string(8, '\xFF'));
    const std::string header(30, 'h');
    const std::string wide = Le(0x06064B50, 4) + Le(44, 8) + Le(45, 2) + Le(45, 2) + Le(0, 4) +
                             Le(0, 4) + Le(1, 8) + Le(1, 8) + Le(record.size(), 8) +
                             Le(header.size(), 8);
    const std::string locator =
        Le(0x07064B50, 4) + Le(0, 4) + Le(header.size() + record.size(), 8) + Le(1, 4);
    return header + record + wide + locator + EndRecord(0xFFFF, 0xFFFFFFFF, 0xFFFFFFFF);
}

TEST_F(UnzipListing, ReadsWideFieldsAndCutsSizesToTheirRange) {
    Put("a.zip", WideZip());

    EXPECT_THAT(Names(), ElementsAre("wide"));
    EXPECT_EQ(unzip_->entry_size, 2147483647);
    EXPECT_EQ(unzip_->entry_compressed_size, 2147483647);
}

TEST_F(UnzipListing, CountsNoFurtherThan32767ButStepsOn) {
    // As many entries as wrap the 16-bit count of the end record to 0.
    std::string directory;
    for (int i = 0; i < 65536; ++i)
        directory += DirectoryRecord({.name = std::to_string(i)}, 0);
    Put("a.zip", directory + EndRecord(0, directory.size(), 0));

    ASSERT_EQ(Count(), 0);
    EXPECT_EQ(unzip_->entry_count, 32767);
    int steps = 0;
    for (;; ++steps) {
        unzip_->Action(kUnzipNext);
        if (unzip_->error_code != 0) break;
        ASSERT_EQ(unzip_->entry_number, steps);
    }
    EXPECT_EQ(steps, 65536);
    EXPECT_EQ(unzip_->error_code, 12);
}

TEST_F(UnzipListing, ClassifiesDamage) {
    const std::string whole = RawZip({{.name = "name", .data = std::string(200, 'd')}});
    const auto code_of = [&](const std::string& bytes) {
        Put("a.zip", bytes);
        return Count();
    };

    EXPECT_EQ(code_of(whole.substr(0, 100)), 2);
    EXPECT_EQ(code_of(whole.substr(0, whole.size() - 22)), 2);
    EXPECT_EQ(code_of(std::string(500, 'x')), 3);
    EXPECT_EQ(code_of("PK"), 3);
    EXPECT_EQ(code_of(""), 13);
    // A directory that is said to be larger than the file.
    EXPECT_EQ(code_of(EndRecord(1, 0xFFFFFFF0, 0)), 3);
    // Entries without a directory.
    EXPECT_EQ(code_of(EndRecord(1, 0, 0)), 3);
    // A name that reaches beyond the directory.
    std::string record = DirectoryRecord({.name = "n"}, 0);
    record[28] = '\x7F';
    EXPECT_EQ(code_of(record + EndRecord(1, record.size(), 0)), 3);
    // A record whose wide field is too short for what it has to give.
    RawEntry wide{.name = "n", .size = 0xFFFFFFFF, .extra = Le(1, 2) + Le(4, 2) + Le(0, 4)};
    const std::string short_field = DirectoryRecord(wide, 0);
    Put("a.zip", short_field + EndRecord(1, short_field.size(), 0));
    EXPECT_EQ(Count(), 0);
    unzip_->Action(kUnzipNext);
    EXPECT_EQ(unzip_->error_code, 3);
}

TEST_F(UnzipListing, RefusesAVolumeWithoutTheDirectory) {
    std::string first = Le(0x08074B50, 4) + std::string(200, 'x');
    Put("a.zip", first);
    EXPECT_EQ(Count(), 21);

    std::string last = RawZip({{.name = "f", .data = "x"}});
    last[last.size() - 18] = 1;
    Put("a.zip", last);
    EXPECT_EQ(Count(), 21);
}

TEST_F(UnzipListing, ListsTheLastVolumeButExtractsNothingFromIt) {
    std::string last = RawZip({{.name = "f", .data = "x"}});
    last[last.size() - 18] = 1;
    last[last.size() - 16] = 1;
    Put("a.zip", last);

    EXPECT_THAT(Names(), ElementsAre("f"));
    EXPECT_EQ(Extract(), 21);
}

TEST_F(UnzipListing, NoticesThatTheArchiveWasReplacedMeanwhile) {
    std::vector<RawEntry> entries;
    for (int i = 0; i < 4000; ++i)
        entries.push_back({.name = "entry " + std::to_string(i)});
    Put("a.zip", RawZip(entries));
    ASSERT_EQ(Count(), 0);
    unzip_->Action(kUnzipNext);
    ASSERT_EQ(unzip_->error_code, 0);

    Put("b.zip", RawZip(entries));
    std::filesystem::rename(In("b.zip"), In("a.zip"));
    std::int16_t code = 0;
    for (int i = 1; i < 4000 && code == 0; ++i) {
        unzip_->Action(kUnzipNext);
        code = unzip_->error_code;
    }

    EXPECT_EQ(code, 11);
    unzip_->Action(kUnzipNext);
    EXPECT_EQ(unzip_->error_code, 12);
}

TEST_F(UnzipListing, CodesForWhatCannotBeOpened) {
    EXPECT_EQ(Count(), 13);
    unzip_->zip_file = In("no/such/folder.zip");
    EXPECT_EQ(Count(), 13);
    unzip_->zip_file = root_;
    EXPECT_EQ(Count(), 18);
}

TEST_F(UnzipExtract, MakesFoldersAndFiles) {
    Put("a.zip", RawZip({{.name = "empty/"},
                         {.name = "a/b/c.txt", .data = "deep"},
                         {.name = "./d.txt", .data = "here"},
                         Deflated("large", Prose(9'000'000)),
                         Deflated("none", "")}));

    ASSERT_EQ(Extract(), 0);

    EXPECT_TRUE(std::filesystem::is_directory(In("out/empty")));
    EXPECT_EQ(Read("out/a/b/c.txt"), "deep");
    EXPECT_EQ(Read("out/d.txt"), "here");
    EXPECT_EQ(Read("out/large"), Prose(9'000'000));
    EXPECT_EQ(std::filesystem::file_size(In("out/none")), 0U);
}

struct HostileName {
    const char* label;
    std::string name;
    std::uint32_t attributes = 0;
};

class UnzipHostile : public test::ZipWorld, public testing::WithParamInterface<HostileName> {};

TEST_P(UnzipHostile, IsRefusedBeforeAnythingIsWritten) {
    std::filesystem::create_directory(In("out"));
    Put("a.zip",
        RawZip({{.name = "harmless", .data = "x"},
                {.name = GetParam().name, .data = "evil", .attributes = GetParam().attributes}}));

    EXPECT_EQ(Extract(), 3);

    EXPECT_TRUE(std::filesystem::is_empty(In("out")));
    EXPECT_FALSE(Exists("evil"));
}

INSTANTIATE_TEST_SUITE_P(
    Names, UnzipHostile,
    testing::Values(HostileName{"Parent", "../evil"}, HostileName{"Inner", "a/../../evil"},
                    HostileName{"Last", "a/.."}, HostileName{"Absolute", "/tmp/evil"},
                    HostileName{"Backslash", "..\\evil"}, HostileName{"AnyBackslash", "a\\b"},
                    HostileName{"Empty", ""}, HostileName{"Dot", "."},
                    HostileName{"Zero", std::string("evil\0x", 6)},
                    HostileName{"Link", "link", 0120777U << 16}),
    [](const auto& row) { return std::string(row.param.label); });

TEST_F(UnzipExtract, WritesWhatCameFromAPipeToAFile) {
    Put("a.zip", RawZip({{.name = "-", .data = "piped", .attributes = 0010600U << 16}}));

    EXPECT_EQ(Extract(), 0);

    EXPECT_TRUE(std::filesystem::is_regular_file(In("out/-")));
    EXPECT_EQ(Read("out/-"), "piped");
}

TEST_F(UnzipExtract, NeverWritesThroughALinkInTheDestination) {
    std::filesystem::create_directory(In("out"));
    std::filesystem::create_directory(In("elsewhere"));
    Put("elsewhere/f", "precious");
    std::filesystem::create_symlink(In("elsewhere"), In("out/a"));
    Put("a.zip", RawZip({{.name = "a/f", .data = "evil"}}));
    EXPECT_EQ(Extract(), 3);
    EXPECT_EQ(Read("elsewhere/f"), "precious");

    std::filesystem::create_symlink(In("elsewhere/f"), In("out/f"));
    Put("a.zip", RawZip({{.name = "f", .data = "new"}}));
    EXPECT_EQ(Extract(), 0);
    EXPECT_EQ(Read("elsewhere/f"), "precious");
    EXPECT_EQ(Read("out/f"), "new");
}

TEST_F(UnzipExtract, WritesOnlyWhatHasTheRightChecksum) {
    RawEntry wrong{.name = "f", .data = "content"};
    wrong.crc = 0x12345678;
    Put("a.zip", RawZip({wrong}));

    EXPECT_EQ(Extract(), 3);

    EXPECT_FALSE(Exists("out/f"));
}

TEST_F(UnzipExtract, KeepsAnOldFileWhenTheNewOneIsDamaged) {
    std::filesystem::create_directory(In("out"));
    Put("out/f", "old");
    RawEntry wrong = Deflated("f", "content");
    wrong.data[2] = static_cast<char>(wrong.data[2] ^ 0x55);
    Put("a.zip", RawZip({wrong}));

    EXPECT_EQ(Extract(), 3);

    EXPECT_EQ(Read("out/f"), "old");
}

TEST_F(UnzipExtract, StopsWhereMoreComesOutThanWasSaid) {
    for (const std::size_t size : {std::size_t{1'000}, std::size_t{8'000'000}}) {
        SCOPED_TRACE(size);
        RawEntry bomb = Deflated("f", std::string(20'000'000, 'x'));
        bomb.size = static_cast<std::int64_t>(size);
        Put("a.zip", RawZip({bomb}));

        EXPECT_EQ(Extract(), 3);

        EXPECT_FALSE(Exists("out/f"));
    }
}

TEST_F(UnzipExtract, RefusesLessThanWasSaidAndCutOffStreams) {
    RawEntry less = Deflated("f", Prose(100));
    less.size = 5'000'000;
    Put("a.zip", RawZip({less}));
    EXPECT_EQ(Extract(), 3);

    RawEntry cut = Deflated("f", Prose(6'000'000));
    cut.data.resize(cut.data.size() - 50);
    Put("a.zip", RawZip({cut}));
    EXPECT_EQ(Extract(), 3);

    RawEntry stored{.name = "f", .data = "abc", .size = 2};
    Put("a.zip", RawZip({stored}));
    EXPECT_EQ(Extract(), 3);
    EXPECT_FALSE(Exists("out/f"));
}

TEST_F(UnzipExtract, RefusesEncryptedEntriesAndOtherMethods) {
    Put("a.zip", RawZip({{.name = "fine", .data = "x"}, {.name = "f", .data = "x", .flags = 1}}));
    EXPECT_EQ(Extract(), 17);
    Put("a.zip", RawZip({{.name = "fine", .data = "x"}, {.name = "f", .data = "x", .method = 12}}));
    EXPECT_EQ(Extract(), 17);

    EXPECT_TRUE(std::filesystem::is_empty(In("out")));
    // They are listed like any other.
    EXPECT_THAT(Names(), ElementsAre("fine", "f"));
}

TEST_F(UnzipExtract, RefusesAnEntryThatLiesOutsideTheFile) {
    std::string archive = RawZip({{.name = "f", .data = "x"}});
    archive[archive.find("PK\x01\x02") + 44] = '\x7F';
    Put("a.zip", archive);

    EXPECT_EQ(Extract(), 3);
}

TEST_F(UnzipExtract, NeedsItsDestination) {
    Put("a.zip", RawZip({{.name = "f", .data = "x"}}));
    unzip_->destination = In("missing/");

    unzip_->Action(kUnzipExtract);

    EXPECT_EQ(unzip_->error_code, 15);
    EXPECT_FALSE(Exists("missing"));
}

TEST_F(UnzipExtract, AFolderInTheWayOfAFileFails15) {
    std::filesystem::create_directories(In("out/f"));
    Put("a.zip", RawZip({{.name = "f", .data = "x"}}));

    EXPECT_EQ(Extract(), 15);
}

}  // namespace
}  // namespace trevix
