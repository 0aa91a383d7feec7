// What every FileSystem must do, in executable form. Each implementation instantiates the suite
// with a factory of a fresh world: a file system and an empty directory in it.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "platform/errors.h"
#include "platform/file_system.h"

namespace trevix::contract {

class FileSystemWorld {
 public:
    virtual ~FileSystemWorld() = default;
    virtual FileSystem& files() = 0;
    virtual std::string root() = 0;  // exists, empty, ends in "/"
};

struct FileSystemCase {
    const char* name;
    std::function<std::unique_ptr<FileSystemWorld>()> make;
};

inline std::string FileSystemCaseName(const testing::TestParamInfo<FileSystemCase>& row) {
    return row.param.name;
}

class FileSystemContract : public testing::TestWithParam<FileSystemCase> {
 protected:
    void SetUp() override {
        world_ = GetParam().make();
        ASSERT_NE(world_, nullptr);
    }
    FileSystem& files() { return world_->files(); }
    std::string In(const std::string& name) { return world_->root() + name; }

    std::unique_ptr<FileSystemWorld> world_;
};

TEST_P(FileSystemContract, ReadsBackWhatWasWritten) {
    const std::string text("a\0b\r\nc\xC3\xA9", 8);

    ASSERT_TRUE(files().WriteText(In("f"), text).ok());

    EXPECT_EQ(files().ReadText(In("f")).value(), text);
    EXPECT_EQ(files().FileSize(In("f")).value(), text.size());
    EXPECT_EQ(files().OpenBlob(In("f")).value().ToString().value(), text);
}

TEST_P(FileSystemContract, WritingReplacesALongerText) {
    ASSERT_TRUE(files().WriteText(In("f"), "a long text").ok());

    ASSERT_TRUE(files().WriteText(In("f"), "short").ok());

    EXPECT_EQ(files().ReadText(In("f")).value(), "short");
}

TEST_P(FileSystemContract, AppendingGoesBehindWhatIsThere) {
    ASSERT_TRUE(files().AppendText(In("f"), "one").ok());
    ASSERT_TRUE(files().AppendText(In("f"), "two").ok());

    EXPECT_EQ(files().ReadText(In("f")).value(), "onetwo");
}

TEST_P(FileSystemContract, AppendingNothingCreatesAnEmptyFile) {
    ASSERT_TRUE(files().AppendText(In("f"), "").ok());

    EXPECT_TRUE(files().FileExists(In("f")));
    EXPECT_EQ(files().FileSize(In("f")).value(), 0U);
}

TEST_P(FileSystemContract, AMissingFileIs53) {
    EXPECT_EQ(files().ReadText(In("none")).error().number, kFileNotFound);
    EXPECT_EQ(files().FileSize(In("none")).error().number, kFileNotFound);
    EXPECT_EQ(files().OpenBlob(In("none")).error().number, kFileNotFound);
    EXPECT_EQ(files().Delete(In("none")).error().number, kFileNotFound);
    EXPECT_FALSE(files().FileExists(In("none")));
}

TEST_P(FileSystemContract, AMissingFolderIs76) {
    EXPECT_EQ(files().ReadText(In("none/f")).error().number, kPathNotFound);
    EXPECT_EQ(files().WriteText(In("none/f"), "x").error().number, kPathNotFound);
    EXPECT_EQ(files().AppendText(In("none/f"), "x").error().number, kPathNotFound);
    EXPECT_EQ(files().MakeDirectory(In("none/d")).error().number, kPathNotFound);
    EXPECT_FALSE(files().MakeStaging(In("none/")).ok());
}

TEST_P(FileSystemContract, ADirectoryIsNoFile) {
    ASSERT_TRUE(files().MakeDirectory(In("d")).ok());

    EXPECT_TRUE(files().DirectoryExists(In("d")));
    EXPECT_TRUE(files().DirectoryExists(In("d/")));
    EXPECT_FALSE(files().FileExists(In("d")));
    EXPECT_FALSE(files().ReadText(In("d")).ok());
    EXPECT_FALSE(files().Delete(In("d")).ok());
    EXPECT_TRUE(files().DirectoryExists(In("d")));
}

TEST_P(FileSystemContract, AFileIsNoDirectory) {
    ASSERT_TRUE(files().WriteText(In("f"), "x").ok());

    EXPECT_FALSE(files().DirectoryExists(In("f")));
    EXPECT_TRUE(files().FileExists(In("f")));
}

TEST_P(FileSystemContract, MakingADirectoryTwiceIs75) {
    ASSERT_TRUE(files().MakeDirectory(In("d/")).ok());

    EXPECT_EQ(files().MakeDirectory(In("d/")).error().number, kPathFileAccess);
}

TEST_P(FileSystemContract, ABlobOutlivesItsFile) {
    const std::string text(200000, 'x');
    ASSERT_TRUE(files().WriteText(In("f"), text).ok());
    const Blob blob = files().OpenBlob(In("f")).value();

    ASSERT_TRUE(files().Delete(In("f")).ok());

    EXPECT_FALSE(files().FileExists(In("f")));
    EXPECT_EQ(blob.ToString().value(), text);
}

TEST_P(FileSystemContract, TheTemporaryPathIsThereAndEndsInASlash) {
    const std::string path = files().TemporaryPath();

    ASSERT_FALSE(path.empty());
    EXPECT_TRUE(path.ends_with('/'));
    EXPECT_TRUE(files().DirectoryExists(path));
    EXPECT_EQ(files().TemporaryPath(), path);
}

TEST_P(FileSystemContract, StagingDirectoriesAreSeparateAndTheirFilesGoWithThem) {
    auto first = files().MakeStaging(world_->root()).value();
    auto second = files().MakeStaging(world_->root()).value();
    const std::string first_path = first->path();
    ASSERT_TRUE(files().WriteText(first_path + "f", "x").ok());
    ASSERT_TRUE(files().MakeDirectory(first_path + "d").ok());
    ASSERT_TRUE(files().WriteText(first_path + "d/f", "x").ok());

    EXPECT_NE(first_path, second->path());
    EXPECT_TRUE(first_path.ends_with('/'));
    EXPECT_TRUE(first_path.starts_with(world_->root()));
    first.reset();

    EXPECT_FALSE(files().DirectoryExists(first_path + "d"));
    EXPECT_FALSE(files().FileExists(first_path + "f"));
    EXPECT_TRUE(files().DirectoryExists(second->path()));
}

TEST_P(FileSystemContract, ASweepLeavesTheLivingAlone) {
    auto staging = files().MakeStaging(world_->root()).value();
    ASSERT_TRUE(files().WriteText(staging->path() + "f", "x").ok());
    ASSERT_TRUE(files().WriteText(In("stage-mine"), "x").ok());

    files().SweepStaging(world_->root());

    EXPECT_EQ(files().ReadText(staging->path() + "f").value(), "x");
    EXPECT_EQ(files().ReadText(In("stage-mine")).value(), "x");
}

TEST_P(FileSystemContract, FindsAFileWithItsNameSizeAndTimes) {
    ASSERT_TRUE(files().WriteText(In("Name.txt"), "12345").ok());

    const FileDetails found = files().FindFile(In("Name.txt")).value();

    EXPECT_EQ(found.name, "Name.txt");
    EXPECT_EQ(found.size_bytes, 5U);
    EXPECT_EQ(found.attributes, kAttributeArchive);
}

TEST_P(FileSystemContract, FindsADirectoryButNotWithAFinalSlash) {
    ASSERT_TRUE(files().MakeDirectory(In("d")).ok());

    const FileDetails found = files().FindFile(In("d")).value();

    EXPECT_EQ(found.name, "d");
    EXPECT_EQ(found.attributes, kAttributeDirectory);
    EXPECT_EQ(found.size_bytes, 0U);
    EXPECT_EQ(files().FindFile(In("d/")).error().number, kFileNotFound);
    EXPECT_EQ(files().FindFile(In("none")).error().number, kFileNotFound);
    EXPECT_FALSE(files().FindFile("").ok());
}

TEST_P(FileSystemContract, SetsOneTimeAndLeavesTheOther) {
    constexpr std::int64_t kOld = -86399'500'000'000;
    constexpr std::int64_t kNew = 1191585600'000'000'000;
    ASSERT_TRUE(files().WriteText(In("f"), "x").ok());
    ASSERT_TRUE(files().SetTime(In("f"), FileTime::kAccessed, kOld).ok());
    ASSERT_TRUE(files().SetTime(In("f"), FileTime::kModified, kNew).ok());

    EXPECT_EQ(files().FindFile(In("f")).value().accessed_ns, kOld);
    EXPECT_EQ(files().FindFile(In("f")).value().modified_ns, kNew);
    EXPECT_FALSE(files().SetTime(In("none"), FileTime::kModified, kNew).ok());
}

TEST_P(FileSystemContract, SetsTheTimeOfCreationOrSaysThatItIsFixed) {
    constexpr std::int64_t kNew = 1191585600'000'000'000;
    ASSERT_TRUE(files().WriteText(In("f"), "x").ok());
    const std::int64_t before = files().FindFile(In("f")).value().created_ns;

    const Status set = files().SetTime(In("f"), FileTime::kCreated, kNew);

    EXPECT_TRUE(set.ok() || set.error().kind == ErrorKind::kUnsupported);
    EXPECT_EQ(files().FindFile(In("f")).value().created_ns, set.ok() ? kNew : before);
}

TEST_P(FileSystemContract, TakesAndGivesThePermissionToWrite) {
    ASSERT_TRUE(files().WriteText(In("f"), "x").ok());

    ASSERT_TRUE(files().SetAttributes(In("f"), kAttributeReadOnly | kAttributeArchive).ok());
    EXPECT_EQ(files().FindFile(In("f")).value().attributes, kAttributeReadOnly | kAttributeArchive);

    ASSERT_TRUE(files().SetAttributes(In("f"), kAttributeArchive).ok());
    EXPECT_EQ(files().FindFile(In("f")).value().attributes, kAttributeArchive);
}

TEST_P(FileSystemContract, KeepsTheOtherAttributesOrSaysThatItCannot) {
    constexpr std::int32_t kOthers = kAttributeHidden | kAttributeSystem;
    ASSERT_TRUE(files().WriteText(In("f"), "x").ok());

    const Status set = files().SetAttributes(In("f"), kOthers | kAttributeDirectory | 256 | 2048);

    EXPECT_TRUE(set.ok() || set.error().kind == ErrorKind::kUnsupported);
    EXPECT_EQ(files().FindFile(In("f")).value().attributes, set.ok() ? kOthers : kAttributeArchive);
    EXPECT_FALSE(files().SetAttributes(In("none"), kOthers).ok());
}

TEST_P(FileSystemContract, ANameWithALeadingPointIsHidden) {
    ASSERT_TRUE(files().WriteText(In(".f"), "x").ok());

    EXPECT_EQ(files().FindFile(In(".f")).value().attributes, kAttributeHidden | kAttributeArchive);
    ASSERT_TRUE(files().SetAttributes(In(".f"), kAttributeArchive).ok());
    EXPECT_EQ(files().FindFile(In(".f")).value().attributes, kAttributeHidden | kAttributeArchive);
}

}  // namespace trevix::contract
