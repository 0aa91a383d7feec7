#include "platform/posix/posix_file_system.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/errors.h"
#include "unit/posix/scratch.h"

namespace trevix::posix {
namespace {

using test::Exists;
using test::Get;
using test::ModeOf;
using test::Put;
using test::Scratch;

struct World {
    Scratch scratch;
    PosixFileSystem files{FileSystemPlaces{scratch.root(), "/nowhere"}};
    std::string temporary = scratch / ("trevix-" + std::to_string(::geteuid()));
};

TEST(PosixFileSystemTemporaryPath, MakesAPrivateDirectoryOfThisUser) {
    World world;

    EXPECT_EQ(world.files.TemporaryPath(), world.temporary + "/");
    EXPECT_EQ(ModeOf(world.temporary), 0700U);
}

TEST(PosixFileSystemTemporaryPath, IsMadeAgainAfterACleanerRemovedIt) {
    World world;
    ASSERT_FALSE(world.files.TemporaryPath().empty());
    ASSERT_EQ(::rmdir(world.temporary.c_str()), 0);

    EXPECT_EQ(world.files.TemporaryPath(), world.temporary + "/");
    EXPECT_TRUE(Exists(world.temporary));
}

TEST(PosixFileSystemTemporaryPath, IsEmptyForALink) {
    World world;
    ASSERT_EQ(::mkdir((world.scratch / "elsewhere").c_str(), 0700), 0);
    ASSERT_EQ(::symlink("elsewhere", world.temporary.c_str()), 0);

    EXPECT_EQ(world.files.TemporaryPath(), "");
}

TEST(PosixFileSystemTemporaryPath, IsEmptyWhenOthersMayEnter) {
    World world;
    ASSERT_EQ(::mkdir(world.temporary.c_str(), 0700), 0);
    ASSERT_EQ(::chmod(world.temporary.c_str(), 0755), 0);

    EXPECT_EQ(world.files.TemporaryPath(), "");
}

TEST(PosixFileSystemTemporaryPath, IsEmptyForAFileOfThatName) {
    World world;
    Put(world.temporary, "");

    EXPECT_EQ(world.files.TemporaryPath(), "");
}

TEST(PosixFileSystemTemporaryPath, IsEmptyForADirectoryOfAnotherOwner) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give a directory away";
    World world;
    ASSERT_EQ(::mkdir(world.temporary.c_str(), 0700), 0);
    ASSERT_EQ(::chown(world.temporary.c_str(), 12345, 12345), 0);

    EXPECT_EQ(world.files.TemporaryPath(), "");
}

TEST(PosixFileSystemTemporaryPath, IsEmptyWhereNothingCanBeMade) {
    PosixFileSystem files(FileSystemPlaces{"/nonexistent/place", "/nowhere"});

    EXPECT_EQ(files.TemporaryPath(), "");
}

TEST(DefaultPlaces, TakesTheTemporaryDirectoryOnlyWhenItIsAbsolute) {
    const char* before = std::getenv("TMPDIR");
    const std::string kept = before != nullptr ? before : "";
    ::setenv("TMPDIR", "/var/tmp", 1);
    const std::string absolute = DefaultPlaces().temporary;
    ::setenv("TMPDIR", "relative", 1);
    const std::string relative = DefaultPlaces().temporary;
    if (before != nullptr) {
        ::setenv("TMPDIR", kept.c_str(), 1);
    } else {
        ::unsetenv("TMPDIR");
    }

    EXPECT_EQ(absolute, "/var/tmp");
    EXPECT_EQ(relative, "/tmp");
    EXPECT_TRUE(Exists(DefaultPlaces().installation + "/posix_test"));
}

TEST(PosixFileSystemWriteText, MakesAPrivateFileAndKeepsTheModeOfAnOldOne) {
    World world;
    Put(world.scratch / "old", "x");
    ASSERT_EQ(::chmod((world.scratch / "old").c_str(), 0640), 0);

    ASSERT_TRUE(world.files.WriteText(world.scratch / "new", "text").ok());
    ASSERT_TRUE(world.files.WriteText(world.scratch / "old", "text").ok());

    EXPECT_EQ(ModeOf(world.scratch / "new"), 0600U);
    EXPECT_EQ(ModeOf(world.scratch / "old"), 0640U);
    EXPECT_EQ(Get(world.scratch / "old"), "text");
}

TEST(PosixFileSystemWriteText, SaysThatTheDiskIsFull) {
    World world;
    if (!Exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";

    const Status written = world.files.WriteText("/dev/full", "text");

    EXPECT_EQ(written.error().number, kDiskFull);
    EXPECT_EQ(written.error().kind, ErrorKind::kNoSpace);
}

TEST(PosixFileSystemOpenBlob, IsDeniedAFileWithoutPermission) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads everything";
    World world;
    Put(world.scratch / "f", "x");
    ASSERT_EQ(::chmod((world.scratch / "f").c_str(), 0), 0);

    EXPECT_EQ(world.files.OpenBlob(world.scratch / "f").error().number, kPermissionDenied);
}

TEST(PosixFileSystemFileExists, CountsADanglingLinkAsAbsent) {
    World world;
    ASSERT_EQ(::symlink("none", (world.scratch / "link").c_str()), 0);

    EXPECT_FALSE(world.files.FileExists(world.scratch / "link"));
    EXPECT_EQ(world.files.OpenBlob(world.scratch / "link").error().number, kFileNotFound);
}

}  // namespace
}  // namespace trevix::posix
