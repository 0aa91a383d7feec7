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

TEST_P(FileSystemContract, StagingDirectoriesAreSeparateAndGoWithTheirObject) {
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

    EXPECT_FALSE(files().DirectoryExists(first_path));
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

}  // namespace trevix::contract
