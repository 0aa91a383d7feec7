#include "store/run_lock.h"

#include <gtest/gtest.h>

#include "index/cindex.h"
#include "support/world.h"

namespace trevix {
namespace {

using test::World;

struct RunLockTest : testing::Test {
    RunLockTest() { world.Logon(); }

    // A results message whose last run began `minutes` ago and ended a day before that.
    void StartedMinutesAgo(double minutes) {
        fakes::MessageData item;
        item.id = "C1";
        item.message_class = "IPM.Post.Trevix Compression Results";
        item.revision = 1;
        const Date start{world.clock.local.days - minutes / 1440.0};
        item.named = {{"StartCI", start}, {"EndCI", Date{start.days - 1}}};
        world.messaging.state.hidden = {item};
    }
    Date Stamp(const char* name) {
        const Variant* value = world.Results()->Find(name);
        return value == nullptr ? Date{} : std::get<Date>(*value);
    }
    bool CheckManage() {
        return CheckInProcess(world.ci, kManageLockTexts,
                              [&](const std::string& text) { aborts.push_back(text); });
    }
    World world;
    std::vector<std::string> aborts;
};

TEST_F(RunLockTest, AFreshResultsMessageIsFree) {
    EXPECT_FALSE(CheckManage());

    EXPECT_TRUE(world.Logged("CManage::CheckInProcess: start"));
    EXPECT_TRUE(world.Logged(" StartCI=12:00:00 AM; EndCI=12:00:00 AM"));
    EXPECT_TRUE(world.Logged("CManage::CheckInProcess: initiating compression run"));
    EXPECT_EQ(Stamp("StartCI"), world.clock.local);
    EXPECT_TRUE(aborts.empty());
}

TEST_F(RunLockTest, IsRefusedFiveMinutesAfterTheStart) {
    StartedMinutesAgo(5);

    EXPECT_TRUE(CheckManage());

    EXPECT_EQ(
        aborts,
        (std::vector<std::string>{"Aborting procedure to avoid conflict with another process."}));
    EXPECT_TRUE(world.Logged(
        " aborting compression run to avoid conflict. StartCI = 10/5/2007 11:55:00 AM"));
}

TEST_F(RunLockTest, IsTakenOverSixMinutesAfterTheStartWithTheOldStartInTheLog) {
    StartedMinutesAgo(6);

    EXPECT_FALSE(CheckManage());

    EXPECT_TRUE(
        world.Logged(" initiating compression run after timeout of previous process. "
                     "StartCI =10/5/2007 11:54:00 AM"));
    EXPECT_EQ(Stamp("StartCI"), world.clock.local);
}

TEST_F(RunLockTest, CountsMinuteBoundariesNotElapsedSeconds) {
    world.clock.local.days += 1.0 / 86400;  // 12:00:01
    StartedMinutesAgo(5 + 2.0 / 60);        // 11:54:59, six boundaries ago

    EXPECT_FALSE(CheckManage());
}

TEST_F(RunLockTest, ARunOfTheSameProcessKeepsItHoweverLongItTakes) {
    StartedMinutesAgo(60);
    {
        const RunMark running(world.ci.is_running);
        EXPECT_TRUE(CheckManage());
    }
    EXPECT_EQ(aborts.size(), 1U);
    EXPECT_FALSE(CheckManage());
}

TEST_F(RunLockTest, AnEndEqualToTheStartIsFree) {
    StartedMinutesAgo(1);
    world.Results()->named[1].value = world.Results()->named[0].value;

    EXPECT_FALSE(CheckManage());
    EXPECT_TRUE(world.Logged(" initiating compression run"));
}

TEST_F(RunLockTest, RefusesARunWithoutResultsMessage) {
    world.plan.FailCalls("utils.HiddenItems", MessagingError(kCallFailed));

    EXPECT_TRUE(CheckManage());

    EXPECT_EQ(aborts,
              (std::vector<std::string>{"Aborting procedure: hidden message not available"}));
    EXPECT_TRUE(world.Logged("CManage::CheckInProcess: hidden message not available; aborting"));
}

TEST_F(RunLockTest, IsStillTakenWhenTheStampCannotBeWritten) {
    world.plan.FailCalls("message.Update", MessagingError(kDiskError));

    EXPECT_FALSE(CheckManage());
    EXPECT_TRUE(world.Logged(" initiating compression run"));
}

TEST_F(RunLockTest, TheIndexSaysItInItsOwnWordsAndOrder) {
    StartedMinutesAgo(2);
    CIndex* index = world.session->Index();
    std::size_t lines_at_abort = 0;
    world.index_recorder.on_event = [&](const std::string& event) {
        aborts.push_back(event);
        lines_at_abort = world.Log().size();
    };
    index->Events(&world.index_recorder);

    EXPECT_TRUE(index->CheckInProcess());

    EXPECT_EQ(aborts, (std::vector<std::string>{
                          "Abort Aborting procedure to avoid conflict with another process"}));
    EXPECT_TRUE(world.Log()[lines_at_abort - 1].starts_with(
        "CIndex::CheckInProcess: aborting index run to avoid conflict. StartCI = "));
    EXPECT_FALSE(world.Logged("CIndex::CheckInProcess: start"));
    EXPECT_FALSE(world.Logged("CIndex::CheckInProcess: StartCI="));
}

TEST_F(RunLockTest, CompressionRaisesItsAbortBeforeItLogsTheConflict) {
    StartedMinutesAgo(2);
    bool logged_before = true;

    CheckInProcess(world.ci, kManageLockTexts,
                   [&](const std::string&) { logged_before = world.Logged("to avoid conflict"); });

    EXPECT_FALSE(logged_before);
}

TEST_F(RunLockTest, TheIndexTakesAFreeLock) {
    EXPECT_FALSE(world.session->Index()->CheckInProcess());
    EXPECT_TRUE(world.Logged("CIndex::CheckInProcess: initiating index run"));
    StartedMinutesAgo(9);
    EXPECT_FALSE(world.session->Index()->CheckInProcess());
    EXPECT_TRUE(world.Logged(
        "CIndex::CheckInProcess: initiating index run after timeout of previous process. "
        "StartCI =10/5/2007 11:51:00 AM"));
}

TEST_F(RunLockTest, ClearEndCIReleasesTheLock) {
    StartedMinutesAgo(1);

    ClearEndCI(world.ci);

    EXPECT_EQ(Stamp("EndCI"), world.clock.local);
    EXPECT_TRUE(world.Logged("basCI::ClearEndCI:success"));
    EXPECT_FALSE(CheckManage());
}

TEST_F(RunLockTest, ClearEndCIReportsAFailure) {
    StartedMinutesAgo(1);
    world.plan.FailCalls("message.Update", MessagingError(kDiskError));

    ClearEndCI(world.ci);

    EXPECT_TRUE(world.Logged("basCI::ClearEndCI: error -2147221226 [Collab"));
}

TEST_F(RunLockTest, ACancelledCompressionRunLeavesTheLockFree) {
    world.loop.on_pump = [&](int) { world.session->Manage()->Cancel(true); };
    world.Run();
    ASSERT_EQ(world.recorder.events.back(), "Abort Cancelled");

    EXPECT_FALSE(CheckManage());
}

}  // namespace
}  // namespace trevix
