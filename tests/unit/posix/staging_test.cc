#include "platform/posix/staging.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "platform/posix/posix_file_system.h"
#include "unit/posix/scratch.h"

namespace trevix::posix {
namespace {

using test::Exists;
using test::Get;
using test::ModeOf;
using test::Put;
using test::Scratch;

std::size_t CountEntries(const std::string& directory) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        (void)entry;
        ++count;
    }
    return count;
}

TEST(StagingAreaMake, GivesAPrivateDirectoryInAPrivateBase) {
    const Scratch scratch;
    StagingArea area;

    const auto staging = area.Make(scratch.root()).value();

    EXPECT_EQ(ModeOf(staging->path()), 0700U);
    EXPECT_EQ(ModeOf(staging->path() + ".."), 0700U);
    EXPECT_EQ(ModeOf(staging->path() + "../lock"), 0600U);
    EXPECT_EQ(CountEntries(scratch.root()), 1U);
}

TEST(StagingAreaMake, LeavesNothingBehind) {
    const Scratch scratch;
    {
        StagingArea area;
        const auto one = area.Make(scratch.root()).value();
        const auto two = area.Make(scratch.root()).value();
        Put(one->path() + "f", "x");
    }

    EXPECT_EQ(CountEntries(scratch.root()), 0U);
}

TEST(StagingAreaMake, AnEmptiedDirectoryServesAgain) {
    const Scratch scratch;
    StagingArea area;
    auto first = area.Make(scratch.root()).value();
    const std::string path = first->path();
    Put(path + "f", "x");
    std::filesystem::create_directories(path + "d/e");
    Put(path + "d/e/f", "x");
    first.reset();

    const auto second = area.Make(scratch.root()).value();

    EXPECT_EQ(second->path(), path);
    EXPECT_EQ(CountEntries(path), 0U);
    EXPECT_EQ(ModeOf(path), 0700U);
}

TEST(StagingAreaMake, ADirectoryThatWasOpenedToOthersDoesNotServeAgain) {
    const Scratch scratch;
    StagingArea area;
    auto first = area.Make(scratch.root()).value();
    const std::string path = first->path();
    std::filesystem::permissions(path, std::filesystem::perms::all);
    first.reset();

    EXPECT_NE(area.Make(scratch.root()).value()->path(), path);
}

TEST(StagingAreaMake, ADirectoryThatSomebodyFilledMeanwhileDoesNotServeAgain) {
    const Scratch scratch;
    StagingArea area;
    auto first = area.Make(scratch.root()).value();
    const std::string path = first->path();
    first.reset();
    Put(path + "planted", "x");

    EXPECT_NE(area.Make(scratch.root()).value()->path(), path);
}

TEST(StagingAreaMake, ADirectoryOutlivesTheArea) {
    const Scratch scratch;
    std::unique_ptr<StagingDirectory> staging;
    {
        StagingArea area;
        staging = area.Make(scratch.root()).value();
    }
    EXPECT_TRUE(Exists(staging->path()));
    staging.reset();

    EXPECT_EQ(CountEntries(scratch.root()), 0U);
}

TEST(StagingAreaMake, StartsAgainAfterACleanerRemovedTheBase) {
    const Scratch scratch;
    StagingArea area;
    const auto first = area.Make(scratch.root()).value();
    std::filesystem::remove_all(first->path() + "/..");

    const auto second = area.Make(scratch.root());

    ASSERT_TRUE(second.ok());
    EXPECT_TRUE(Exists(second.value()->path()));
}

TEST(SweepStagingBases, RemovesWhatAKilledProcessLeft) {
    const Scratch scratch;
    std::array<int, 2> ready{};
    ASSERT_EQ(::pipe(ready.data()), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        StagingArea area;
        const auto staging = area.Make(scratch.root()).value();
        Put(staging->path() + "f", "x");
        if (::write(ready[1], "x", 1) != 1) ::_exit(1);
        ::pause();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);

    SweepStagingBases(scratch.root());
    EXPECT_EQ(CountEntries(scratch.root()), 1U) << "the process still lives";
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    SweepStagingBases(scratch.root());

    EXPECT_EQ(CountEntries(scratch.root()), 0U);
    ::close(ready[0]);
    ::close(ready[1]);
}

// A base directory as a dead process leaves it.
void MakeDeadBase(const Scratch& scratch, const std::string& name) {
    ASSERT_EQ(::mkdir((scratch / name).c_str(), 0700), 0);
    Put(scratch / name + "/lock", "");
}

TEST(SweepStagingBases, RemovesABaseThatNeverGotItsLock) {
    const Scratch scratch;
    ASSERT_EQ(::mkdir((scratch / "stage-abcdef").c_str(), 0700), 0);

    SweepStagingBases(scratch.root());

    EXPECT_FALSE(Exists(scratch / "stage-abcdef"));
}

TEST(SweepStagingBases, DoesNotFollowLinks) {
    const Scratch scratch;
    ASSERT_EQ(::mkdir((scratch / "precious").c_str(), 0700), 0);
    Put(scratch / "precious/mail", "x");
    MakeDeadBase(scratch, "stage-abcdef");
    ASSERT_EQ(::symlink("../precious", (scratch / "stage-abcdef/link").c_str()), 0);
    ASSERT_EQ(::symlink("precious", (scratch / "stage-ghijkl").c_str()), 0);
    MakeDeadBase(scratch, "stage-locked");
    ASSERT_EQ(::unlink((scratch / "stage-locked/lock").c_str()), 0);
    ASSERT_EQ(::symlink("../precious/mail", (scratch / "stage-locked/lock").c_str()), 0);

    SweepStagingBases(scratch.root());

    EXPECT_FALSE(Exists(scratch / "stage-abcdef"));
    EXPECT_TRUE(Exists(scratch / "stage-ghijkl"));
    EXPECT_EQ(Get(scratch / "precious/mail"), "x");
}

TEST(SweepStagingBases, TakesOnlyTheNamesOfBaseDirectories) {
    const Scratch scratch;
    for (const char* name : {"stage-abcdefg", "stage-abc", "Stage-abcdef", "work"}) {
        MakeDeadBase(scratch, name);
    }
    Put(scratch / "stage-a_file", "x");

    SweepStagingBases(scratch.root());

    EXPECT_EQ(CountEntries(scratch.root()), 5U);
}

TEST(SweepStagingBases, LeavesTheDirectoryOfAnotherOwner) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give a directory away";
    const Scratch scratch;
    MakeDeadBase(scratch, "stage-abcdef");
    ASSERT_EQ(::chown((scratch / "stage-abcdef").c_str(), 12345, 12345), 0);

    SweepStagingBases(scratch.root());

    EXPECT_TRUE(Exists(scratch / "stage-abcdef/lock"));
}

TEST(SweepStagingBases, RemovesDirectoriesThatCannotBeRead) {
    const Scratch scratch;
    MakeDeadBase(scratch, "stage-abcdef");
    const std::string inner = scratch / "stage-abcdef/d";
    ASSERT_EQ(::mkdir(inner.c_str(), 0700), 0);
    Put(inner + "/f", "x");
    ASSERT_EQ(::chmod(inner.c_str(), 0), 0);

    SweepStagingBases(scratch.root());

    EXPECT_FALSE(Exists(scratch / "stage-abcdef"));
}

TEST(SweepStagingBases, IsHarmlessWhereThereIsNothing) {
    SweepStagingBases("/nonexistent/place/");
}

}  // namespace
}  // namespace trevix::posix
