// What other mail programs do between two steps of a replacement.
#include "platform/maildir/file_names.h"
#include "platform/maildir/replacement.h"
#include "unit/maildir/maildir_world.h"

namespace trevix::maildir {
namespace {

constexpr std::array kSteps = {Step::kStaged, Step::kCompared,     Step::kRecorded,
                               Step::kShown,  Step::kShownDurably, Step::kOldFound};

// A store with one message whose replacement is disturbed once, at one step.
struct Disturbed {
    MaildirWorld world;
    std::string start;

    explicit Disturbed(std::string name) : start(std::move(name)) { world.Put(start, "old"); }

    Result<MailEntry> Replace(Step step, std::function<void()> disturb) {
        MaildirStore& store = world.Open();
        bool done = false;
        store.SetStepHook([step, done, disturb = std::move(disturb)](Step now) mutable {
            if (now != step || done) return;
            done = true;
            disturb();
        });
        return world.Replace("1.h", "new");
    }

    // The replacement as it lies in cur or new; empty when it is not there.
    std::string NewName(const std::string& place) const {
        for (const std::string& name : world.Names(place)) {
            if (KeyOf(name) != "1.h") return name;
        }
        return {};
    }
};

TEST(MaildirSteps, AFlagSetMeanwhileIsOnTheMessageAfterwards) {
    for (const Step step : kSteps) {
        SCOPED_TRACE(static_cast<int>(step));
        Disturbed test("cur/1.h:2,S");

        const auto replaced =
            test.Replace(step, [&] { test.world.Rename("cur/1.h:2,S", "cur/1.h:2,FS"); });

        const Strings names = test.world.Names("cur");
        ASSERT_EQ(names.size(), 1U);
        EXPECT_EQ(SuffixOf(names[0]), ":2,FS");
        EXPECT_EQ(test.world.Mail(), Strings{replaced.ok() ? "new" : "old"});
        EXPECT_TRUE(replaced.ok() || replaced.error().kind == ErrorKind::kChanged);
    }
}

TEST(MaildirSteps, AFlagSetAfterShowingDoesNotStopTheReplacement) {
    for (const Step step : {Step::kRecorded, Step::kShown, Step::kShownDurably, Step::kOldFound}) {
        Disturbed test("cur/1.h:2,S");

        const auto replaced =
            test.Replace(step, [&] { test.world.Rename("cur/1.h:2,S", "cur/1.h:2,"); });

        ASSERT_TRUE(replaced.ok()) << static_cast<int>(step);
        EXPECT_EQ(test.world.Mail(), Strings{"new"});
        EXPECT_EQ(SuffixOf(test.NewName("cur")), ":2,");
        const MailListing listing = test.world.List();
        EXPECT_EQ(listing.entries.at(0).locator, replaced.value().locator);
    }
}

TEST(MaildirSteps, AMessageReadMeanwhileMovesToCur) {
    for (const Step step : kSteps) {
        SCOPED_TRACE(static_cast<int>(step));
        Disturbed test("new/1.h");

        const auto replaced =
            test.Replace(step, [&] { test.world.Rename("new/1.h", "cur/1.h:2,S"); });

        EXPECT_TRUE(test.world.Names("new").empty());
        const Strings names = test.world.Names("cur");
        ASSERT_EQ(names.size(), 1U);
        EXPECT_EQ(SuffixOf(names[0]), ":2,S");
        EXPECT_EQ(test.world.Mail(), Strings{replaced.ok() ? "new" : "old"});
    }
}

TEST(MaildirSteps, ADeletionMeanwhileStands) {
    for (const Step step : kSteps) {
        SCOPED_TRACE(static_cast<int>(step));
        Disturbed test("cur/1.h:2,S");

        const auto replaced = test.Replace(step, [&] { test.world.Remove("cur/1.h:2,S"); });

        ASSERT_FALSE(replaced.ok());
        EXPECT_EQ(replaced.error().kind, ErrorKind::kGone);
        EXPECT_EQ(replaced.error().number, static_cast<int>(kObjectDeleted));
        EXPECT_TRUE(test.world.Mail().empty());
        EXPECT_TRUE(test.world.Names("tmp").empty());
    }
}

TEST(MaildirSteps, AMoveToAnotherFolderMeanwhileStands) {
    for (const Step step : kSteps) {
        SCOPED_TRACE(static_cast<int>(step));
        Disturbed test("cur/1.h:2,S");
        test.world.MakeMaildir(".Other");

        const auto replaced =
            test.Replace(step, [&] { test.world.Rename("cur/1.h:2,S", ".Other/cur/1.h:2,S"); });

        EXPECT_EQ(replaced.error().kind, ErrorKind::kGone);
        EXPECT_TRUE(test.world.Mail().empty());
        EXPECT_EQ(test.world.Mail(".Other"), Strings{"old"});
    }
}

TEST(MaildirSteps, AFileWrittenOverMeanwhileStands) {
    for (const Step step :
         {Step::kStaged, Step::kCompared, Step::kRecorded, Step::kShown, Step::kShownDurably}) {
        SCOPED_TRACE(static_cast<int>(step));
        Disturbed test("cur/1.h:2,S");

        const auto replaced =
            test.Replace(step, [&] { test.world.Put("cur/1.h:2,S", "by another", kReceived + 5); });

        EXPECT_EQ(replaced.error().kind, ErrorKind::kChanged);
        EXPECT_EQ(test.world.Mail(), Strings{"by another"});
    }
}

TEST(MaildirSteps, AFlagOnTheNewMessageIsKept) {
    for (const Step step : {Step::kShown, Step::kShownDurably, Step::kOldFound}) {
        SCOPED_TRACE(static_cast<int>(step));
        Disturbed test("cur/1.h:2,S");

        const auto replaced = test.Replace(step, [&] {
            const std::string name = test.NewName("cur");
            test.world.Rename("cur/" + name, "cur/" + std::string(KeyOf(name)) + ":2,RS");
        });

        ASSERT_TRUE(replaced.ok());
        EXPECT_EQ(test.world.Mail(), Strings{"new"});
        EXPECT_EQ(SuffixOf(test.NewName("cur")), ":2,RS");
    }
}

TEST(MaildirSteps, FlagsOnBothMessagesAreJoined) {
    Disturbed test("cur/1.h:2,S");

    const auto replaced = test.Replace(Step::kShown, [&] {
        const std::string name = test.NewName("cur");
        test.world.Rename("cur/" + name, "cur/" + std::string(KeyOf(name)) + ":2,RS");
        test.world.Rename("cur/1.h:2,S", "cur/1.h:2,FS");
    });

    ASSERT_TRUE(replaced.ok());
    EXPECT_EQ(test.world.Mail(), Strings{"new"});
    EXPECT_EQ(SuffixOf(test.NewName("cur")), ":2,FRS");
}

TEST(MaildirSteps, TheOldMessageStaysWhenTheNewOneIsTakenAway) {
    for (const Step step : {Step::kShown, Step::kShownDurably}) {
        Disturbed test("cur/1.h:2,S");

        const auto replaced =
            test.Replace(step, [&] { test.world.Remove("cur/" + test.NewName("cur")); });

        EXPECT_EQ(replaced.error().kind, ErrorKind::kGone);
        EXPECT_EQ(test.world.Mail(), Strings{"old"});
    }
}

TEST(MaildirSteps, TwoStoresReplacingOneMessageLeaveExactlyOne) {
    for (const Step step : kSteps) {
        SCOPED_TRACE(static_cast<int>(step));
        Disturbed test("cur/1.h:2,S");
        auto other = MaildirStore::Open(test.world.root(), nullptr, test.world.clock).value();
        const auto listed = other->List("", nullptr);
        const MailEntry entry = listed.value().listing.entries.at(0);

        bool other_done = false;
        const auto replaced = test.Replace(step, [&] {
            auto staged = other->Stage("", entry, Blob::FromString("other")).value();
            other_done = staged->Commit().ok();
        });

        EXPECT_TRUE(other_done);
        EXPECT_FALSE(replaced.ok());
        EXPECT_EQ(test.world.Mail(), Strings{"other"});
    }
}

TEST(MaildirSteps, AnOpeningOfTheStoreMeanwhileTouchesNothing) {
    for (const Step step : kSteps) {
        SCOPED_TRACE(static_cast<int>(step));
        Disturbed test("cur/1.h:2,S");

        const auto replaced = test.Replace(step, [&] {
            EXPECT_TRUE(MaildirStore::Open(test.world.root(), nullptr, test.world.clock).ok());
        });

        ASSERT_TRUE(replaced.ok());
        EXPECT_EQ(test.world.Mail(), Strings{"new"});
    }
}

TEST(MaildirSteps, AMessageThatIsRenamedAgainAndAgainIsFollowed) {
    MaildirWorld world;
    world.Put("cur/1.h:2,", "old");
    MaildirStore& store = world.Open();
    std::string name = "1.h:2,";
    int renames = 0;
    store.SetStepHook([&](Step step) {
        if (step != Step::kOldFound || renames == 5) return;
        const std::string next = "1.h:2," + std::string(1, static_cast<char>('a' + renames++));
        world.Rename("cur/" + name, "cur/" + next);
        name = next;
    });

    ASSERT_TRUE(world.Replace("1.h", "new").ok());

    EXPECT_EQ(world.Mail(), Strings{"new"});
    EXPECT_EQ(SuffixOf(world.Names("cur")[0]), ":2,e");
}

// One of our processes beside that of the world.
struct OtherProcess {
    explicit OtherProcess(MaildirWorld& world) {
        auto opened = MaildirStore::Open(world.root(), nullptr, world.clock);
        EXPECT_TRUE(opened.ok());
        store = std::move(opened).value();
    }
    std::vector<MailEntry> List() {
        auto change = store->List("", nullptr);
        EXPECT_TRUE(change.ok());
        return std::move(change).value().listing.entries;
    }
    Result<MailEntry> Replace(const MailEntry& entry, const std::string& content) {
        auto staged = store->Stage("", entry, Blob::FromString(content));
        if (!staged.ok()) return staged.error();
        return staged.value()->Commit();
    }
    std::unique_ptr<MaildirStore> store;
};

TEST(MaildirSteps, WhatMayBeTakenBackIsReplacedByNobody) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    MaildirStore& store = world.Open();
    OtherProcess second(world);
    OtherProcess third(world);
    const MailEntry old_entry = second.List().at(0);
    bool is_disturbed = false;
    store.SetStepHook([&](Step step) {
        if (step != Step::kShown || std::exchange(is_disturbed, true)) return;
        // The second is quicker; the third sees what each of them has shown.
        ASSERT_TRUE(second.Replace(old_entry, "of the second").ok());
        for (const MailEntry& entry : third.List()) {
            EXPECT_EQ(third.Replace(entry, "of the third").error().kind, ErrorKind::kChanged);
        }
    });

    EXPECT_EQ(world.Replace("1.h", "of the first").error().kind, ErrorKind::kGone);

    EXPECT_TRUE(is_disturbed);
    EXPECT_EQ(world.Mail(), Strings{"of the second"});
    // Once its maker has left the store, it is a message like any other.
    second.store.reset();
    EXPECT_TRUE(third.Replace(third.List().at(0), "of the third").ok());
    EXPECT_EQ(world.Mail(), Strings{"of the third"});
}

TEST(MaildirSteps, AMessageThatNeverHoldsStillIsLeftAlone) {
    MaildirWorld world;
    world.Put("cur/1.h:2,", "old");
    MaildirStore& store = world.Open();
    std::string name = "1.h:2,";
    int renames = 0;
    store.SetStepHook([&](Step step) {
        if (step != Step::kOldFound) return;
        const std::string next = ++renames % 2 == 0 ? "1.h:2," : "1.h:2,S";
        world.Rename("cur/" + name, "cur/" + next);
        name = next;
    });

    EXPECT_EQ(world.Replace("1.h", "new").error().kind, ErrorKind::kBusy);

    EXPECT_EQ(world.Mail(), Strings{"old"});
}

}  // namespace
}  // namespace trevix::maildir
