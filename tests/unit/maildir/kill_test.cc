// A process that is killed at each step of a replacement, and the next opening of the store.
#include <signal.h>
#include <sys/wait.h>

#include "platform/maildir/file_names.h"
#include "unit/maildir/maildir_world.h"

namespace trevix::maildir {
namespace {

constexpr std::array kAllSteps = {Step::kStaged,     Step::kCompared,     Step::kRecorded,
                                  Step::kShown,      Step::kShownDurably, Step::kOldFound,
                                  Step::kOldRemoved, Step::kFinished};

// Replaces message 1.h in a child process that is killed at `step`, after `disturb` has run there.
void ReplaceAndDie(MaildirWorld& world, Step step, const std::function<void()>& disturb = {}) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        MaildirStore& store = world.Open();
        store.SetStepHook([&](Step now) {
            if (now != step) return;
            if (disturb) disturb();
            ::kill(::getpid(), SIGKILL);
        });
        (void)world.Replace("1.h", "new").ok();
        ::_exit(1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the step was not reached";
}

TEST(MaildirKill, LeavesTheMessageOnceAtEveryStep) {
    for (const Step step : kAllSteps) {
        SCOPED_TRACE(static_cast<int>(step));
        MaildirWorld world;
        world.Put("cur/1.h,S=3:2,FS", "old");
        world.Put("cur/2.h:2,S", "other");
        ReplaceAndDie(world, step);

        for (const std::string& content : world.Mail()) {
            EXPECT_TRUE(content == "old" || content == "new" || content == "other") << content;
        }
        world.Open();
        const bool shown = step >= Step::kShown;
        EXPECT_EQ(world.Mail(), (shown ? Strings{"new", "other"} : Strings{"old", "other"}));
        EXPECT_EQ(world.Names(""), (Strings{"cur", "new", "tmp"}));
        EXPECT_TRUE(world.Names("tmp").empty());
        for (const std::string& name : world.Names("cur")) {
            EXPECT_EQ(SuffixOf(name), KeyOf(name) == "2.h" ? ":2,S" : ":2,FS");
        }
    }
}

TEST(MaildirKill, CarriesOverAFlagSetBetweenDeathAndRecovery) {
    for (const Step step : kAllSteps) {
        SCOPED_TRACE(static_cast<int>(step));
        MaildirWorld world;
        world.Put("new/1.h", "old");
        ReplaceAndDie(world, step);
        const bool old_is_there = world.Has("new/1.h");
        if (old_is_there) world.Rename("new/1.h", "cur/1.h:2,S");

        world.Open();

        EXPECT_EQ(world.Mail().size(), 1U);
        if (!old_is_there) continue;
        EXPECT_TRUE(world.Names("new").empty());
        EXPECT_EQ(SuffixOf(world.Names("cur").at(0)), ":2,S");
    }
}

TEST(MaildirKill, KeepsTheNewMessageWhenTheOldOneIsDeletedBeforeRecovery) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    ReplaceAndDie(world, Step::kShown);
    world.Remove("cur/1.h:2,S");

    world.Open();

    EXPECT_EQ(world.Mail(), Strings{"new"});
}

TEST(MaildirKill, KeepsTheOldMessageWhenTheNewOneIsDeletedBeforeRecovery) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    ReplaceAndDie(world, Step::kShown);
    for (const std::string& name : world.Names("cur")) {
        if (KeyOf(name) != "1.h") world.Remove("cur/" + name);
    }

    world.Open();

    EXPECT_EQ(world.Mail(), Strings{"old"});
}

TEST(MaildirKill, FollowsANewMessageThatWasFlaggedBeforeRecovery) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    ReplaceAndDie(world, Step::kShown);
    for (const std::string& name : world.Names("cur")) {
        if (KeyOf(name) != "1.h")
            world.Rename("cur/" + name, "cur/" + std::string(KeyOf(name)) + ":2,RS");
    }
    world.Rename("cur/1.h:2,S", "cur/1.h:2,FS");

    world.Open();

    EXPECT_EQ(world.Mail(), Strings{"new"});
    EXPECT_EQ(SuffixOf(world.Names("cur").at(0)), ":2,FRS");
}

TEST(MaildirKill, InTheMiddleOfFollowingAFlagIsFinished) {
    MaildirWorld world;
    world.Put("new/1.h", "old");
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        MaildirStore& store = world.Open();
        store.SetStepHook([&](Step now) {
            if (now == Step::kShown) world.Rename("new/1.h", "cur/1.h:2,S");
            if (now == Step::kNewMoved) ::kill(::getpid(), SIGKILL);
        });
        (void)world.Replace("1.h", "new").ok();
        ::_exit(1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(world.Mail().size(), 2U);

    world.Open();

    EXPECT_EQ(world.Mail(), Strings{"new"});
    EXPECT_EQ(SuffixOf(world.Names("cur").at(0)), ":2,S");
}

TEST(MaildirKill, AStoreOpenedByTwoAfterwardsIsRecoveredOnce) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    ReplaceAndDie(world, Step::kShown);

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        TestClock clock;
        ::_exit(MaildirStore::Open(world.root(), nullptr, clock).ok() ? 0 : 1);
    }
    world.Open();
    int status = 0;
    ::waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
    EXPECT_EQ(world.Mail(), Strings{"new"});
    EXPECT_TRUE(world.Journals().empty());
}

}  // namespace
}  // namespace trevix::maildir
