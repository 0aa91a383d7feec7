#include "shell/frm_icon.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/world.h"

namespace trevix {
namespace {

using test::World;

std::ptrdiff_t RunsStarted(const World& world) {
    const std::vector<std::string> log = world.Log();
    return std::count(log.begin(), log.end(), "CManage::StartManage: start");
}

TEST(FrmIconManageTimer, StartsOneRunWhenManageIsCalledTwiceBeforeItFires) {
    World world;
    world.Logon();
    world.session->Manage()->Compress(true);
    world.session->Manage()->Events(&world.recorder);

    world.session->Manage()->Manage(false);
    world.session->Manage()->Manage(false);
    world.loop.FireTimers();
    world.loop.FireTimers();

    EXPECT_EQ(RunsStarted(world), 1);
    EXPECT_EQ(world.loop.intervals_ms, (std::vector<int>{50, 50}));
}

TEST(FrmIconManageTimer, DoesNothingWithoutASharedObject) {
    World world;
    FrmIcon form(world.ci);
    form.EnableManageTimer(50);
    form.EnableIndexTimer(50);
    const std::size_t lines = world.Log().size();

    world.loop.FireTimers();

    EXPECT_EQ(world.Log().size(), lines);
    EXPECT_TRUE(world.loop.timers.empty());
}

TEST(FrmIconManageTimer, CannotStartTheRunAgainFromAPumpInsideIt) {
    World world;
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")});
    world.loop.on_pump = [&](int) { world.loop.FireTimers(); };

    world.Run();

    EXPECT_EQ(RunsStarted(world), 1);
}

TEST(FrmIconManageTimer, IsDisarmedWhenTheFormIsUnloaded) {
    World world;
    {
        FrmIcon form(world.ci);
        form.EnableManageTimer(50);
        EXPECT_EQ(world.loop.timers.size(), 1U);
    }
    EXPECT_TRUE(world.loop.timers.empty());
}

}  // namespace
}  // namespace trevix
