#include "index/cindex.h"

#include <gtest/gtest.h>

#include "index_world.h"

namespace trevix {
namespace {

using test::IndexWorld;
using test::World;

struct StartIndexTest : testing::Test {
    StartIndexTest() { world.AddMessage(*world.inbox, "first", {World::File("a.txt", "alpha")}); }
    void ListStores(const std::string& ids) {
        fakes::MessageData results;
        results.id = "C1";
        results.revision = 1;
        results.message_class = kResultsClass;
        results.named = {{"StoreIDs", ids}};
        world.messaging.state.hidden.push_back(results);
    }
    IndexWorld world;
};

TEST_F(StartIndexTest, IndexReturnsAtOnceWithARunInProcess) {
    world.index().Index();

    EXPECT_TRUE(world.index().InProcess());
    EXPECT_EQ(world.loop.intervals_ms, (std::vector<int>{50}));
    EXPECT_FALSE(world.Logged("CIndex::"));
}

TEST_F(StartIndexTest, IndexWithNoArgumentSetsRegenerateBackToFalseAndUpdates) {
    world.index().Regenerate(true);

    world.index().Index();
    EXPECT_FALSE(world.index().Regenerate());
    world.loop.FireTimers();

    EXPECT_TRUE(world.Logged("CIndex::StartIndex: updating existing index"));
    EXPECT_FALSE(world.Logged("creating new index"));
}

TEST_F(StartIndexTest, AnUpdateTurnsRefreshTrueEvenWhenTheCallerSetItFalse) {
    world.index().Refresh(false);

    world.Update();

    EXPECT_TRUE(world.index().Refresh());
}

TEST_F(StartIndexTest, ANewIndexLeavesRefreshAsTheCallerSetIt) {
    world.index().Refresh(false);
    world.Rebuild();
    EXPECT_TRUE(world.Logged("CIndex::StartIndex: creating new index"));
    EXPECT_FALSE(world.index().Refresh());

    world.index().Refresh(true);
    world.Rebuild();
    EXPECT_TRUE(world.index().Refresh());
}

TEST_F(StartIndexTest, ANewIndexIsWholeAlthoughRefreshIsTrueFromAnUpdate) {
    world.Update();
    world.clock.AdvanceMinutes(10);

    world.Rebuild();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

TEST_F(StartIndexTest, WithoutTargetsAndWithoutAStoreListTheInboxsStoreAloneIsIndexed) {
    fakes::StoreData& other = world.AddStore("52");
    world.AddMessage(other.root.Add("F52", "Elsewhere"), "second", {World::File("b.txt", "b")});

    world.Rebuild();

    EXPECT_EQ(world.index().TargetStoreIDs(), "51");
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

TEST_F(StartIndexTest, WithoutTargetsTheStoresOfTheResultsMessageAreIndexed) {
    fakes::StoreData& other = world.AddStore("52");
    world.AddMessage(other.root.Add("F52", "Elsewhere"), "second", {World::File("b.txt", "b")});
    ListStores("52;51");

    world.Rebuild();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"b.txt", "a.txt"}));
}

TEST_F(StartIndexTest, ATargetListThatEndsWithASemicolonHasALastEmptyEntry) {
    world.AddStore("52");
    world.index().TargetStoreIDs("52;");

    world.Rebuild();

    EXPECT_TRUE(world.ResultText("LogIndex")
                    .starts_with("Attachment index created for:\r\nStore 52\r\nAnna's mail\r\n"));
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

TEST_F(StartIndexTest, AStoreThatIsListedTwiceHasItsRowsOnce) {
    world.index().TargetStoreIDs("51;51");

    world.Rebuild();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

TEST_F(StartIndexTest, ARefusedRunRaisesOnlyTheLocksAbort) {
    world.Logon();
    world.index().Events(&world.index_recorder);
    EXPECT_FALSE(world.index().CheckInProcess());

    world.Rebuild();

    EXPECT_EQ(world.index_recorder.events,
              (std::vector<std::string>{
                  "Abort Aborting procedure to avoid conflict with another process"}));
    EXPECT_FALSE(world.index().InProcess());
    EXPECT_FALSE(world.Logged("StartIndex"));
}

TEST_F(StartIndexTest, ADamagedFolderRecordSetIsReplacedByANewOne) {
    world.Logon();
    world.files.Put(world.ci.gIndexDir + "txfolders.adtg", "garbage");

    world.Update();

    EXPECT_TRUE(world.Logged("CIndex::StartIndex: FolderRST not found; creating new one"));
    EXPECT_EQ(world.End(), "Complete 0");
}

TEST_F(StartIndexTest, MakesTheHelperObjectWhenThereIsNone) {
    world.Logon();
    world.Update();
    world.clock.AdvanceMinutes(10);
    const std::size_t before = world.plan.calls().size();
    world.index().StartIndex();
    std::vector<std::string> calls(world.plan.calls().begin() + static_cast<long>(before),
                                   world.plan.calls().end());
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "messaging.CreateUtilities"), 0);
    EXPECT_NE(world.ci.gUtils, nullptr);
}

TEST_F(StartIndexTest, ASecondStartInsideARunIsRefusedHoweverLongItTakes) {
    world.Logon();
    bool nested = false;
    world.loop.on_pump = [&](int) {
        if (std::exchange(nested, true)) return;
        world.clock.AdvanceMinutes(10);  // another process would be let in by now
        world.index().Index(true);
        world.loop.FireTimers();
    };

    world.Rebuild();

    EXPECT_TRUE(nested);
    EXPECT_EQ(world.TimesLogged("creating new index"), 1);
    EXPECT_EQ(world.TimesLogged("aborting index run to avoid conflict"), 1);
    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

TEST_F(StartIndexTest, KeepsUpdateStoreIDsForTheCaller) {
    world.index().UpdateStoreIDs("51");
    world.index().OffLine(true);

    world.Rebuild();

    EXPECT_EQ(world.index().UpdateStoreIDs(), "51");
    EXPECT_EQ(world.End(), "Complete 0");
}

TEST(GetZipIndexDir, CalledTwiceReturnsTheKeptValueWithoutTouchingTheFileSystem) {
    IndexWorld world;
    const std::string first = world.index().GetZipIndexDir();
    const std::size_t calls = world.plan.calls().size();

    EXPECT_EQ(world.index().GetZipIndexDir(), first);
    EXPECT_EQ(first, "/tmp/trevix-1000/ZipIndex/home/");
    EXPECT_EQ(world.plan.calls().size(), calls);
}

TEST(GetZipIndexDir, SaysWhichDirectoryCannotBeMade) {
    IndexWorld world;
    world.files.Put("/tmp/trevix-1000/ZipIndex", "a file of that name");
    world.Logon();
    EXPECT_TRUE(world.Logged("CIndex::ZipIndex: error creating ZipIndex directory 75 "));

    IndexWorld inner;
    inner.files.PutDirectory("/tmp/trevix-1000/ZipIndex");
    inner.files.Put("/tmp/trevix-1000/ZipIndex/home", "a file of that name");
    inner.Logon();
    EXPECT_TRUE(inner.Logged("CIndex::ZipIndex: error creating home directory 75 "));
    EXPECT_EQ(inner.index().GetZipIndexDir(), "");
}

TEST(GetZipIndexDir, WithoutItTheRunEndsWithoutSaving) {
    IndexWorld world;
    world.files.Put("/tmp/trevix-1000/ZipIndex", "a file of that name");

    world.Rebuild();

    EXPECT_EQ(world.End(),
              "Abort Attachment index failed for:\r\nAnna's mail\r\n\r\n"
              "Unable to complete save.");
    EXPECT_FALSE(world.index().InProcess());
}

}  // namespace
}  // namespace trevix
