#include "manage/cmanage.h"

#include <gtest/gtest.h>

#include "manage/compression_log.h"
#include "store/run_lock.h"
#include "support/world.h"

namespace trevix {
namespace {

using test::World;

// Stands in for CIndex and keeps what a compression run hands over.
class FakeIndex final : public IndexRun {
 public:
    bool InProcess() const override { return false; }
    void TargetStoreIDs(const std::string& ids) override { targets = ids; }
    void Refresh(bool value) override { refresh = value; }
    void Index(bool recreate) override { calls.push_back(recreate); }
    void StartIndex() override {}
    void Abandon() override {}
    std::string GetZipIndexDir() override { return {}; }

    std::string targets = "unset";
    bool refresh = false;
    std::vector<bool> calls;
};

struct StartManageTest : testing::Test {
    CManage& manage() { return *world.session->Manage(); }
    void RunWithIndex(const std::string& folder_ids) {
        world.Logon();
        auto owned = std::make_unique<FakeIndex>();
        index = owned.get();
        world.ci.gIndex = std::move(owned);
        manage().Compress(true);
        manage().FolderIDs(folder_ids);
        manage().Events(&world.recorder);
        manage().Manage(true);
        world.loop.FireTimers();
    }
    void AddStore(const std::string& id) {
        auto store = std::make_unique<fakes::StoreData>();
        store->id = id;
        store->name = "Store " + id;
        store->root.id = "R" + id;
        store->root.name = "IPM_SUBTREE";
        world.messaging.state.stores.push_back(std::move(store));
    }
    std::string Log() {
        const Variant* log = world.Results()->Find("LastCompressLog");
        return log == nullptr ? std::string() : std::get<std::string>(*log);
    }
    World world;
    FakeIndex* index = nullptr;
};

TEST_F(StartManageTest, ManageReturnsAtOnceWithARunInProcess) {
    world.Logon();

    manage().Manage(false);

    EXPECT_TRUE(manage().InProcess());
    EXPECT_EQ(world.loop.intervals_ms, (std::vector<int>{50}));
    EXPECT_FALSE(world.Logged("StartManage: start"));
}

TEST_F(StartManageTest, AnEmptyFolderListIsTheWholeDefaultStore) {
    world.Run("");

    EXPECT_TRUE(world.Logged("StartManage: starting Compress only for entire store Anna's mail"));
    EXPECT_EQ(world.session->Manage()->Summary().folders.size(), 2U);
    EXPECT_EQ(world.recorder.events.back(), "Complete 0");
    EXPECT_FALSE(manage().InProcess());
}

TEST_F(StartManageTest, ReportsTheElapsedMilliseconds) {
    world.clock.tick_step = 250;

    world.Run();

    EXPECT_EQ(world.recorder.events.back(), "Complete 250");
}

TEST_F(StartManageTest, RaisesNoCompleteWhenTheElapsedTimeOverflows) {
    world.clock.tick = -2000000000;
    world.clock.tick_step = -1000000000;  // wraps: start -2,000,000,000, end +1,294,967,296

    world.Run();

    EXPECT_TRUE(world.recorder.events.empty());
    EXPECT_FALSE(manage().InProcess());
}

TEST_F(StartManageTest, AStoreWithoutRootIsReportedAndTheNextEntryTreated) {
    AddStore("52");
    world.messaging.state.stores[1]->root_fails = true;
    AddStore("53");

    world.Run("52,all;53,all");

    EXPECT_TRUE(
        world.Logged("StartManage: unable to obtain root folder for Store 52 -2147221219 "
                     "[Collaboration Data Objects - [MAPI_E_FAILONEPROVIDER(8004011D)]]"));
    EXPECT_TRUE(world.Logged(" starting Compress only for entire store Store 53"));
    EXPECT_EQ(manage().Summary().folders.size(), 1U);
}

TEST_F(StartManageTest, TreatsOneFolderWithoutItsSubfolders) {
    world.inbox->Add("F2", "Sub");

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged(" Compress only for folder Inbox"));
    ASSERT_EQ(manage().Summary().folders.size(), 1U);
    EXPECT_EQ(manage().Summary().folders[0].path, "Inbox");
}

TEST_F(StartManageTest, WalksTheSubfoldersOfAWholeStore) {
    world.inbox->Add("F2", "Sub").Add("F3", "Deep");

    world.Run("51,all");

    std::vector<std::string> paths;
    for (const auto& folder : manage().Summary().folders)
        paths.push_back(folder.path);
    EXPECT_EQ(paths, (std::vector<std::string>{"Top of Information Store", "Inbox", "Inbox\\Sub",
                                               "Inbox\\Sub\\Deep"}));
}

TEST_F(StartManageTest, AnEntryWithoutRoomForAStoreNamesNoneButItsFolderPartCounts) {
    RunWithIndex("x,all;F1");

    EXPECT_TRUE(world.Logged(" starting Compress only for entire store Anna's mail"));
    EXPECT_TRUE(world.Logged(" Compress only for folder Inbox"));
    EXPECT_EQ(index->targets, "unset");
}

TEST_F(StartManageTest, LogsWhichHalvesOfARunAreOn) {
    world.html = true;
    world.Run("51,F1;51,all");
    EXPECT_TRUE(world.Logged(" Compress+HTML for folder Inbox"));
    EXPECT_TRUE(world.Logged(" starting Compress+HTML for entire store Anna's mail"));

    World html_only;
    html_only.html = true;
    html_only.compress = false;
    html_only.Run("51,F1;51,all");
    EXPECT_TRUE(html_only.Logged(" HTML only for folder Inbox"));
    EXPECT_TRUE(html_only.Logged(" starting HTML only for entire store Anna's mail"));

    World neither;
    neither.compress = false;
    neither.Run("51,F1;51,all");
    EXPECT_TRUE(neither.Logged(" Compress only for folder Inbox"));
    EXPECT_TRUE(neither.Logged(" starting Compress only for entire store Anna's mail"));
}

TEST_F(StartManageTest, ARunCancelledBeforeItsFirstEntryAbortsAndWritesNoResults) {
    world.loop.on_pump = [&](int) { manage().Cancel(true); };

    world.Run();

    EXPECT_EQ(world.recorder.events, (std::vector<std::string>{"Abort Cancelled"}));
    EXPECT_TRUE(world.Logged("CManage::Cancel: set Cancel=True"));
    EXPECT_TRUE(world.Logged("CManage::StartManage: user cancelled."));
    EXPECT_EQ(world.Results()->Find("Incoming Original Attachments"), nullptr);
    EXPECT_NE(world.Results()->Find("EndCI"), nullptr);
    EXPECT_TRUE(manage().InProcess());
}

TEST_F(StartManageTest, ACancelledRunStoresNoLogAndKeepsTheOneOfTheRunBefore) {
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")});
    world.recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("Progress")) manage().Cancel(true);
    };
    world.Run();
    ASSERT_EQ(world.recorder.events.back(), "Abort Cancelled");
    EXPECT_EQ(world.Results()->Find("LastCompressLog"), nullptr);

    world.recorder.on_event = nullptr;
    manage().Cancel(false);
    world.Run();
    const std::string log = Log();
    ASSERT_TRUE(log.ends_with("</body></html>"));

    world.loop.on_pump = [&](int) { manage().Cancel(true); };
    world.Run();
    ASSERT_EQ(world.recorder.events.back(), "Abort Cancelled");
    EXPECT_EQ(Log(), log);
}

TEST_F(StartManageTest, ARunOfNoFoldersStoresHeaderTotalAndClosingAlone) {
    world.Run("51,unknown");

    EXPECT_TRUE(manage().Summary().folders.empty());
    EXPECT_TRUE(world.Logged("StartManage: unable to open folder unknown of Anna's mail: [Collab"));
    EXPECT_EQ(Log(), CompressionLogHeader(world.clock.local) + CompressionLogTotal(0, 0, 0, 0) +
                         CompressionLogClosing(world.clock.local));
}

TEST_F(StartManageTest, AStoreThatCannotBeOpenedIsNotReportedUnderTheNameOfAnother) {
    world.Run("51,F1;99,all");

    EXPECT_TRUE(world.Logged("StartManage: unable to obtain root folder for  "));
    EXPECT_FALSE(world.Logged(" unable to obtain root folder for Anna's mail"));
}

TEST_F(StartManageTest, ARefusedRunRaisesOnlyTheLocksAbort) {
    world.Logon();
    CheckInProcess(world.ci, kManageLockTexts, [](const std::string&) {});

    world.Run();

    EXPECT_EQ(world.recorder.events,
              (std::vector<std::string>{
                  "Abort Aborting procedure to avoid conflict with another process."}));
    EXPECT_FALSE(manage().InProcess());
    EXPECT_FALSE(world.Logged("GetZipAttachRender"));
}

TEST_F(StartManageTest, AnHtmlOnlyRunSavesNoCompressionLog) {
    world.compress = false;
    world.html = true;

    world.Run();

    EXPECT_EQ(world.Results()->Find("LastCompressLog"), nullptr);
    EXPECT_NE(world.Results()->Find("EndCI"), nullptr);
}

TEST_F(StartManageTest, TheStoredLogHasZerosAndZeroPercentForARunOfNothing) {
    world.Run("51,F1");

    EXPECT_NE(Log().find("<td width='44%'>Total</td><td width='16%' align='right'>0</td>"
                         "<td width='18%' align='right'>0</td><td width='18%' align='right'>0</td>"
                         "<td width='4%' align='right'>0</td></tr></table><br>Completed "),
              std::string::npos);
}

TEST_F(StartManageTest, ArchivesLargerThanTheirContentGiveZeroPercent) {
    world.zip.archive_overhead = 5000;
    world.Setting("CombineCompress", "False");
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "tiny")});

    world.Run("51,F1");

    EXPECT_NE(Log().find("align='right'>0</td></tr></table>"), std::string::npos);
    EXPECT_EQ(Log().find("align='right'>-"), std::string::npos);
}

TEST_F(StartManageTest, AddsTheRunToTheStoreTotals) {
    world.messaging.state.hidden.push_back({});
    world.Results()->id = "C1";
    world.Results()->revision = 1;
    world.Results()->message_class = "IPM.Post.Trevix Compression Results";
    world.Results()->named = {{"Incoming Original Attachments", std::int32_t{100}},
                              {"Incoming Compressed Attachments", std::int32_t{10}}};
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", std::string(50, 'a'))});

    world.Run();

    EXPECT_EQ(std::get<std::int32_t>(*world.Results()->Find("Incoming Original Attachments")), 150);
    EXPECT_GT(std::get<std::int32_t>(*world.Results()->Find("Incoming Compressed Attachments")),
              10);
}

TEST_F(StartManageTest, ATotalThatWouldOverflowStaysAsItWas) {
    world.messaging.state.hidden.push_back({});
    world.Results()->id = "C1";
    world.Results()->revision = 1;
    world.Results()->message_class = "IPM.Post.Trevix Compression Results";
    world.Results()->named = {{"Incoming Original Attachments", std::int32_t{2147483640}}};
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", std::string(50, 'a'))});

    world.Run();

    EXPECT_EQ(std::get<std::int32_t>(*world.Results()->Find("Incoming Original Attachments")),
              2147483640);
}

TEST_F(StartManageTest, TwoEntriesOfOneStoreInARowAreHandedOverOnce) {
    RunWithIndex("51,F1;51,all");

    EXPECT_EQ(index->targets, "51");
    EXPECT_TRUE(index->refresh);
    EXPECT_EQ(index->calls, (std::vector<bool>{false}));
    EXPECT_TRUE(world.Logged("StartManage: complete. Launch Index process"));
    EXPECT_FALSE(manage().SkipIndex());
    EXPECT_EQ(world.recorder.events.back(), "Complete 0");
}

TEST_F(StartManageTest, AStoreThatComesBackAfterAnotherIsListedAgain) {
    AddStore("52");

    RunWithIndex("51,F1;52,all;51,all");

    EXPECT_EQ(index->targets, "51;52;51");
}

TEST_F(StartManageTest, AMissingIndexObjectIsReportedAndTheRunStillCompletes) {
    world.Logon();
    world.ci.gIndex.reset();
    manage().Compress(true);
    manage().Events(&world.recorder);
    manage().Manage(true);
    world.loop.FireTimers();

    EXPECT_TRUE(world.Logged("StartManage: no Index class 91 Object variable"));
    EXPECT_EQ(world.recorder.events.back(), "Complete 0");
}

TEST_F(StartManageTest, WithoutTheIndexTheRunSaysComplete) {
    world.Run();

    EXPECT_TRUE(world.Logged("CManage::StartManage: cancel=False"));
    EXPECT_TRUE(world.Logged("CManage::StartManage: complete."));
}

TEST_F(StartManageTest, ADamagedFolderRecordSetIsReplacedByANewOne) {
    world.Logon();
    world.files.Put(world.ci.gIndexDir + "txfolders.adtg", "garbage");

    world.Run();

    EXPECT_TRUE(world.Logged("StartManage: FolderRST not found; creating new one"));
    EXPECT_EQ(world.recorder.events.back(), "Complete 0");
}

TEST_F(StartManageTest, ALevelOfZeroBecomesFive) {
    world.Logon();
    world.ci.Level = 0;

    world.Run();

    EXPECT_EQ(world.ci.Level, 5);
}

}  // namespace
}  // namespace trevix
