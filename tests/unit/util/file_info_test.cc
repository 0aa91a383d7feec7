#include "util/file_info.h"

#include <gtest/gtest.h>

#include <limits>

#include "fakes/fake_clock.h"
#include "fakes/fake_file_system.h"
#include "support/pe_image.h"
#include "util/format.h"

namespace trevix {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

struct World {
    World() {
        files.Put("/data/Report.final.txt", "12345");
        auto& details = files.details["/data/Report.final.txt"];
        details.created_ns = 1191585600 * kSecond;  // 2007-10-05 12:00:00 UTC
        details.accessed_ns = 1191585661 * kSecond + kSecond - 1;
        details.modified_ns = 1191589200 * kSecond;
    }

    CFileInfo At(const std::string& path) {
        CFileInfo info(files, clock);
        info.FullPathName(path);
        return info;
    }
    CFileInfo Report() { return At("/data/Report.final.txt"); }

    fakes::FaultPlan plan;
    fakes::FakeFileSystem files{plan};
    fakes::FakeClock clock;  // two hours ahead of UTC
};

Date At(int hour, int minute, int second) {
    return DateFromCivil({2007, 10, 5, hour, minute, second});
}

TEST(CFileInfoRefresh, ReadsEverythingWhenThePathIsSet) {
    World world;
    const CFileInfo info = world.Report();

    EXPECT_EQ(info.FullPathName(), "/data/Report.final.txt");
    EXPECT_TRUE(info.FileExists());
    EXPECT_TRUE(info.PathExists());
    EXPECT_EQ(info.FileName(), "Report.final.txt");
    EXPECT_EQ(info.FilePath(), "/data/");
    EXPECT_EQ(info.FileExtension(), "txt");
    EXPECT_EQ(info.FileSize(), 5);
    EXPECT_EQ(info.FileSizeHigh(), 0);
    EXPECT_EQ(info.Attributes(), kAttributeArchive);
}

TEST(CFileInfoRefresh, HasTheNearestForWhatTheSystemLacks) {
    World world;
    const CFileInfo info = world.Report();

    EXPECT_EQ(info.ShortPathName(), "/data/Report.final.txt");
    EXPECT_EQ(info.ShortName(), "Report.final.txt");
    EXPECT_EQ(info.ShortPath(), "/data/");
    EXPECT_EQ(info.DisplayName(), "Report.final.txt");
    EXPECT_EQ(info.TypeName(), "TXT File");
    EXPECT_EQ(info.CompressedFileSize(), 5);
    EXPECT_EQ(info.CompressedFileSizeHigh(), 0);
    EXPECT_EQ(info.hIcon(), 0);
}

TEST(CFileInfoRefresh, ReadsAMissingFileAsNothing) {
    World world;
    const CFileInfo info = world.At("/data/none.txt");

    EXPECT_FALSE(info.FileExists());
    EXPECT_TRUE(info.PathExists());
    EXPECT_EQ(info.FileName() + info.FilePath() + info.FileExtension() + info.ShortPathName() +
                  info.DisplayName() + info.TypeName() + info.VersionNumber(),
              "");
    EXPECT_EQ(info.FileSize(), 0);
    EXPECT_EQ(info.Attributes(), 0);
    EXPECT_EQ(info.ModifyTime(), Date{});
}

TEST(CFileInfoRefresh, TellsAMissingFolder) {
    World world;
    EXPECT_FALSE(world.At("/none/file.txt").PathExists());
    EXPECT_FALSE(world.At("/none/file.txt").FileExists());
}

TEST(CFileInfoRefresh, ForgetsTheFileBefore) {
    World world;
    world.files.Put("/data/p.exe", test::MakePeImage().bytes);
    CFileInfo info = world.At("/data/p.exe");

    info.FullPathName("/data/none.txt");

    EXPECT_EQ(info.FileName() + info.VersionNumber(), "");
    EXPECT_EQ(info.FileSize(), 0);
}

TEST(CFileInfoRefresh, SeesWhatChangedOnlyWhenAsked) {
    World world;
    CFileInfo info = world.Report();
    world.files.files["/data/Report.final.txt"] = "123456";
    EXPECT_EQ(info.FileSize(), 5);

    info.Refresh();

    EXPECT_EQ(info.FileSize(), 6);
}

TEST(CFileInfoRefresh, KnowsAFolderByItsAttribute) {
    World world;
    const CFileInfo info = world.At("/data");

    EXPECT_TRUE(info.FileExists());
    EXPECT_EQ(info.Attributes(), kAttributeDirectory);
    EXPECT_EQ(info.FilePath(), "/");
    EXPECT_EQ(info.FileExtension(), "");
    EXPECT_EQ(info.TypeName(), "File");
}

TEST(CFileInfoFileSize, IsSplitIntoTwoHalves) {
    World world;
    world.files.details["/data/Report.final.txt"].size_bytes = 0x2'8000'0001;
    const CFileInfo info = world.Report();

    EXPECT_EQ(info.FileSize(), -2147483647);
    EXPECT_EQ(info.FileSizeHigh(), 2);
    EXPECT_EQ(info.CompressedFileSize(), -2147483647);
    EXPECT_EQ(info.CompressedFileSizeHigh(), 2);
}

TEST(CFileInfoTimes, ReadInLocalTimeAndWholeSeconds) {
    World world;
    const CFileInfo info = world.Report();

    EXPECT_EQ(info.CreationTime(), At(14, 0, 0));
    EXPECT_EQ(info.LastAccessTime(), At(14, 1, 1));
    EXPECT_EQ(info.ModifyTime(), At(15, 0, 0));
}

TEST(CFileInfoTimes, ReadInWholeSecondsBefore1970Too) {
    World world;
    world.files.details["/data/Report.final.txt"].modified_ns = -kSecond / 2;

    EXPECT_EQ(world.Report().ModifyTime(), DateFromCivil({1970, 1, 1, 1, 59, 59}));
}

TEST(CFileInfoTimes, WriteTheOneTimeToTheFile) {
    World world;
    CFileInfo info = world.Report();

    info.ModifyTime(At(2, 30, 15));

    const auto& details = world.files.details["/data/Report.final.txt"];
    EXPECT_EQ(details.modified_ns, (1191585600 - 11 * 3600 - 29 * 60 - 45) * kSecond);
    EXPECT_EQ(details.created_ns, 1191585600 * kSecond);
    EXPECT_EQ(info.ModifyTime(), At(2, 30, 15));

    info.CreationTime(At(1, 0, 0));
    info.LastAccessTime(At(3, 0, 0));
    EXPECT_EQ(world.Report().CreationTime(), At(1, 0, 0));
    EXPECT_EQ(world.Report().LastAccessTime(), At(3, 0, 0));
}

TEST(CFileInfoTimes, StayWhenTheyCannotBeWritten) {
    World world;
    CFileInfo info = world.Report();
    world.plan.FailCalls("files.SetTime", RuntimeError(kPermissionDenied));

    info.ModifyTime(At(2, 30, 15));

    EXPECT_EQ(info.ModifyTime(), At(15, 0, 0));
    EXPECT_EQ(world.Report().ModifyTime(), At(15, 0, 0));
}

TEST(CFileInfoTimes, StayForADateThatNoFileCanHave) {
    World world;
    CFileInfo info = world.Report();

    info.ModifyTime(DateFromCivil({1600, 12, 31, 0, 0, 0}));
    info.ModifyTime(DateFromCivil({9999, 12, 31, 0, 0, 0}));
    info.ModifyTime(Date{1e9});
    info.ModifyTime(Date{std::numeric_limits<double>::quiet_NaN()});

    EXPECT_EQ(info.ModifyTime(), At(15, 0, 0));
}

TEST(CFileInfoTimes, AreLeftAloneOfAMissingFile) {
    World world;
    CFileInfo info = world.At("/data/none.txt");

    info.ModifyTime(At(1, 0, 0));

    EXPECT_EQ(info.ModifyTime(), Date{});
    EXPECT_FALSE(world.files.FileExists("/data/none.txt"));
}

TEST(CFileInfoAttributes, SettingHiddenSetsBit2AndKeepsTheOthersAsRead) {
    World world;
    world.files.details["/data/Report.final.txt"].attributes =
        kAttributeReadOnly | kAttributeArchive;
    CFileInfo info = world.Report();

    info.attrHidden(true);

    EXPECT_EQ(info.Attributes(), kAttributeReadOnly | kAttributeHidden | kAttributeArchive);
    EXPECT_TRUE(info.attrHidden());
    EXPECT_EQ(world.Report().Attributes(), info.Attributes());

    info.attrHidden(false);
    EXPECT_EQ(world.Report().Attributes(), kAttributeReadOnly | kAttributeArchive);
}

TEST(CFileInfoAttributes, AreOneBitEach) {
    World world;
    CFileInfo info = world.Report();

    info.attrReadOnly(true);
    EXPECT_EQ(info.Attributes(), 33);
    info.attrSystem(true);
    EXPECT_EQ(info.Attributes(), 37);
    info.attrArchive(false);
    EXPECT_EQ(info.Attributes(), 5);
    EXPECT_TRUE(info.attrReadOnly() && info.attrSystem());
    EXPECT_FALSE(info.attrArchive() || info.attrHidden());
}

TEST(CFileInfoAttributes, KeepTheBitsThatWereReadLast) {
    World world;
    CFileInfo info = world.Report();
    // Somebody else makes it a system file in the meantime.
    world.files.details["/data/Report.final.txt"].attributes = kAttributeSystem;

    info.attrHidden(true);

    EXPECT_EQ(info.Attributes(), kAttributeHidden | kAttributeArchive);
}

TEST(CFileInfoAttributes, SettingCompressedOrTemporaryLeavesTheFileAndTheObjectUnchanged) {
    World world;
    CFileInfo info = world.Report();
    const auto calls = world.plan.calls().size();

    info.attrCompressed(true);
    info.attrTemporary(true);

    EXPECT_FALSE(info.attrCompressed() || info.attrTemporary());
    EXPECT_EQ(info.Attributes(), kAttributeArchive);
    EXPECT_EQ(world.plan.calls().size(), calls);
}

TEST(CFileInfoAttributes, ShowWhatIsThereWhenTheyCannotBeWritten) {
    World world;
    CFileInfo info = world.Report();
    world.plan.FailCalls("files.SetAttributes", RuntimeError(kPermissionDenied));

    info.attrReadOnly(true);

    EXPECT_FALSE(info.attrReadOnly());
}

TEST(CFileInfoVersionNumber, IsThatOfTheProgram) {
    World world;
    world.files.Put("/data/p.dll", test::MakePeImage({.wide = true}).bytes);

    EXPECT_EQ(world.At("/data/p.dll").VersionNumber(), "5.1.2600.0");
}

TEST(CFileInfoVersionNumber, IsEmptyForAFileWithoutAVersionResource) {
    World world;
    EXPECT_EQ(world.Report().VersionNumber(), "");
}

TEST(CFileInfoVersionNumber, IsEmptyWhenTheFileCannotBeOpened) {
    World world;
    world.files.Put("/data/p.dll", test::MakePeImage().bytes);
    world.plan.FailCalls("files.OpenBlob", RuntimeError(kPermissionDenied));

    const CFileInfo info = world.At("/data/p.dll");

    EXPECT_EQ(info.VersionNumber(), "");
    EXPECT_TRUE(info.FileExists());
}

TEST(CFileInfoFormatFileDate, IsTheLongDateAndTheLongTime) {
    EXPECT_EQ(CFileInfo::FormatFileDate(At(15, 4, 5)), "Friday, October 5, 2007 3:04:05 PM");
    EXPECT_EQ(CFileInfo::FormatFileDate(Date{}), "Saturday, December 30, 1899 12:00:00 AM");
    EXPECT_EQ(CFileInfo::FormatFileDate(DateFromCivil({2000, 2, 29, 12, 0, 0})),
              "Tuesday, February 29, 2000 12:00:00 PM");
}

TEST(CFileInfoFormatFileSize, ChangesItsUnitWithTheSize) {
    const std::pair<std::int32_t, const char*> rows[] = {
        {0, "0 bytes"},
        {512, "512 bytes"},
        {1023, "1,023 bytes"},
        {1024, "1.00KB (1,024 bytes)"},
        {1536, "1.50KB (1,536 bytes)"},
        {10240, "10.0KB (10,240 bytes)"},
        {102400, "100KB (102,400 bytes)"},
        {1024000, "0.98MB (1,024,000 bytes)"},
        {10240000, "9.8MB (10,240,000 bytes)"},
        {102400000, "98MB (102,400,000 bytes)"},
        {1024000000, "0.95GB (1,024,000,000 bytes)"},
        {2147483647, "2.00GB (2,147,483,647 bytes)"},
    };
    for (const auto& [size, text] : rows)
        EXPECT_EQ(CFileInfo::FormatFileSize(size), text);
}

}  // namespace
}  // namespace trevix
