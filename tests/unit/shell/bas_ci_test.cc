#include "shell/bas_ci.h"

#include <gtest/gtest.h>

#include "support/world.h"

namespace trevix {
namespace {

using test::World;

TEST(BasCIMain, WritesOneEntryAndFailsWithoutAMessagingSession) {
    World world;
    world.plan.FailCalls("messaging.CreateSession", RuntimeError(kCannotCreateObject));

    EXPECT_FALSE(world.ci.Main());

    ASSERT_EQ(world.Log().size(), 1U);
    EXPECT_EQ(world.Log()[0],
              "basCI::Main:instantiate CDO error 429 ActiveX component can't create object");
}

TEST(BasCIMain, WritesOneEntryAndFailsWithoutTheHelperObject) {
    World world;
    world.plan.FailCalls("messaging.CreateUtilities", RuntimeError(kCannotCreateObject));

    EXPECT_FALSE(world.ci.Main());

    ASSERT_EQ(world.Log().size(), 1U);
    EXPECT_EQ(world.Log()[0],
              "basCI::Main: unable to instantiate QMUtils object ActiveX component can't create "
              "object");
}

TEST(BasCIMain, LetsLevelsUpToFourThroughUntilSettingsAreRead) {
    World world;
    ASSERT_TRUE(world.ci.Main());

    world.ci.log.Write("basCI", "Main", " four", 4);
    world.ci.log.Write("basCI", "Main", " five", 5);

    EXPECT_TRUE(world.Logged(" four"));
    EXPECT_FALSE(world.Logged(" five"));
    EXPECT_TRUE(world.ci.gAddinMode);
}

TEST(BasCIGetZipTemp, MakesTheDirectoryOnceAndKeepsThePath) {
    World world;

    world.ci.GetZipTemp();
    EXPECT_EQ(world.ci.gZipTemp, "/tmp/trevix-1000/ZipTemp/");
    EXPECT_TRUE(world.files.HasDirectory("/tmp/trevix-1000/ZipTemp"));

    world.files.RemoveTree("/tmp/trevix-1000/ZipTemp");
    world.ci.GetZipTemp();
    EXPECT_FALSE(world.files.HasDirectory("/tmp/trevix-1000/ZipTemp"));
}

TEST(BasCIGetZipTemp, ReportsADirectoryThatCannotBeMadeAndKeepsThePath) {
    World world;
    world.plan.FailCalls("files.MakeDirectory", RuntimeError(kPermissionDenied));

    world.ci.GetZipTemp();

    EXPECT_TRUE(world.Logged("basCI::GetZipTemp: error creating directory 70 Permission denied"));
    EXPECT_EQ(world.ci.gZipTemp, "/tmp/trevix-1000/ZipTemp/");
}

TEST(BasCIGetZipTemp, SweepsWhatDeadProcessesLeft) {
    World world;
    world.files.Put("/tmp/trevix-1000/ZipTemp/stage-7/letter.doc", "x");
    world.files.dead_stagings.insert("/tmp/trevix-1000/ZipTemp/stage-7/");

    world.ci.GetZipTemp();

    EXPECT_FALSE(world.files.files.contains("/tmp/trevix-1000/ZipTemp/stage-7/letter.doc"));
}

TEST(BasCITemporaryPath, IsCutAtTheFirstNulAndAt255Characters) {
    World world;
    world.files.temporary_path = std::string("/tmp/a\0b/", 9);
    EXPECT_EQ(world.ci.TemporaryPath(), "/tmp/a");

    world.files.temporary_path = "/" + std::string(400, 'x');
    EXPECT_EQ(world.ci.TemporaryPath().size(), 255U);
}

}  // namespace
}  // namespace trevix
