#include <gtest/gtest.h>

#include "index_world.h"

namespace trevix {
namespace {

using test::IndexWorld;
using test::World;
using test::Zips;

struct IndexRunTest : testing::Test {
    IndexRunTest() {
        world.AddMessage(*world.inbox, "first", {World::File("a.txt", "alpha")});
        other = &world.AddStore("52");
        elsewhere = &other->root.Add("F52", "Elsewhere");
        world.AddMessage(*elsewhere, "second", {World::File("b.txt", "beta")});
    }
    void Both() { world.index().TargetStoreIDs("51;52"); }
    void Later() {
        world.clock.AdvanceMinutes(10);
        world.index_recorder.events.clear();
    }
    void UpdateLater() {
        Later();
        world.Update();
    }
    IndexWorld world;
    fakes::StoreData* other = nullptr;
    fakes::FolderData* elsewhere = nullptr;
};

TEST_F(IndexRunTest, AStoreThatCannotBeOpenedIsOneLineAndTheNextIsIndexed) {
    world.index().TargetStoreIDs("99;52");

    world.Rebuild();

    EXPECT_TRUE(
        world.Logged("CIndex::CreateNewIndex:-2147221233 unable to retrieve infostore "
                     "(ID=99)\r\n[Collaboration Data Objects - "
                     "[MAPI_E_NOT_FOUND(8004010F)]]"));
    EXPECT_EQ(world.TimesLogged("unable to retrieve"), 1);
    EXPECT_TRUE(world.Logged("CIndex::CreateNewIndex: indexing store:Store 52"));
    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"b.txt"}));

    Later();
    world.Update();
    EXPECT_TRUE(
        world.Logged("CIndex::UpdateIndex:-2147221233 unable to retrieve Infostore (ID= "
                     "99)\r\n[Collaboration"));
    EXPECT_EQ(world.End(), "Complete 0");
}

TEST_F(IndexRunTest, WhereNoStoreCanBeOpenedTheSavedIndexStands) {
    world.Rebuild();
    world.index().TargetStoreIDs("99");
    Later();

    world.Rebuild();

    EXPECT_EQ(world.End(), "Abort Attachment index failed for:\r\n\r\n");
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

TEST_F(IndexRunTest, CancelDuringTheFirstOfTwoStoresStopsBeforeTheSecond) {
    Both();
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event == "Progress Inbox 1") world.index().Cancel(true);
    };

    world.Rebuild();

    EXPECT_FALSE(world.index().Cancel());
    EXPECT_FALSE(world.Logged("indexing store:Store 52"));
    EXPECT_EQ(world.End(), "Abort Attachment index canceled for:\r\nAnna's mail\r\n\r\n");
    EXPECT_TRUE(world.Logged(
        "CIndex::CreateNewIndex:Attachment index canceled for:\r\nAnna's mail\r\n\r\n"));
    EXPECT_FALSE(world.index().InProcess());
    EXPECT_EQ(world.Saved("txattach.zip"), "");
    EXPECT_EQ(world.Saved("txfolders.zip"), "");
    EXPECT_EQ(world.ci.gAttachRST->State(), kStateClosed);
    EXPECT_EQ(world.ci.gFolderRST->State(), kStateClosed);
}

TEST_F(IndexRunTest, ACancelledRunReleasesTheLockAndTheNextOneIsWhole) {
    world.index_recorder.on_event = [&](const std::string&) { world.index().Cancel(true); };
    world.Rebuild();
    world.index_recorder = {};

    world.Update();  // at once: the lock is free

    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

TEST_F(IndexRunTest, ACancelLeftFromBeforeIsForgotten) {
    world.index().Cancel(true);

    world.Rebuild();

    EXPECT_EQ(world.End(), "Complete 0");
}

TEST_F(IndexRunTest, AnUpdateOverASavedIndexOf15ColumnsRebuildsItFromNothing) {
    world.Rebuild();
    for (auto& attachment : world.Results()->attachments) {
        if (attachment.name != "txattach.zip") continue;
        std::string adtg = world.zip.EntriesOf(attachment.data).front().second;
        adtg = adtg.substr(0, adtg.find('\n'));
        adtg = adtg.substr(0, adtg.rfind('|'));
        attachment.data = Zips::Archive({{"txattach.adtg", adtg}});
    }

    UpdateLater();

    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
    EXPECT_EQ(world.Column("FolderKey"), (std::vector<std::string>{"2"}));
}

TEST_F(IndexRunTest, CompleteCarriesMilliseconds) {
    world.clock.tick_step = 2500;

    world.Rebuild();

    EXPECT_EQ(world.End(), "Complete 2500");
    EXPECT_TRUE(world.Logged("Time to create index (seconds): 2.5\r\n"));
}

TEST_F(IndexRunTest, AnIndexThatCannotBeBegunAborts) {
    world.Logon();
    world.plan.FailCalls("recordset.Append", RuntimeError(kOutOfMemory));
    world.Rebuild();
    EXPECT_EQ(world.End(), "Abort Unable to initialize index!");
    EXPECT_TRUE(world.Logged("CIndex::CreateNewIndex: unable to initialize index."));
    EXPECT_TRUE(world.index().InProcess());  // deliberate

    Later();
    world.Update();
    EXPECT_EQ(world.End(), "Abort Unable to initialize index!");
    EXPECT_TRUE(world.Logged("CIndex::UpdateIndex: unable to initialize index."));
    EXPECT_FALSE(world.index().InProcess());

    world.plan.Clear();
    world.index_recorder.events.clear();
    world.Update();
    EXPECT_EQ(world.End(), "Complete 0");
}

TEST_F(IndexRunTest, AWalkThatStopsEarlyInTheLastStoreFailsTheRun) {
    Both();
    world.Rebuild();
    other->root_fails = true;

    UpdateLater();

    EXPECT_EQ(world.End(), "Abort Attachment index failed for:\r\nAnna's mail\r\nStore 52\r\n\r\n");
    EXPECT_EQ(world.Rows().size(), 2U);
}

TEST_F(IndexRunTest, ALaterStoreThatCompletesClearsTheFailureAndTheFirstKeepsItsRows) {
    Both();
    world.Rebuild();
    world.messaging.state.stores[0]->root_fails = true;
    world.AddMessage(*elsewhere, "third", {World::File("c.txt", "c")});

    UpdateLater();

    EXPECT_EQ(world.End(), "Complete 0");
    std::vector<std::string> names = world.Column("FileName");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"a.txt", "b.txt", "c.txt"}));
}

TEST_F(IndexRunTest, RowsOfRemovedFoldersGoAndThoseOfOtherStoresStay) {
    Both();
    auto& sub = world.inbox->Add("F2", "Sub");
    world.AddMessage(sub, "third", {World::File("c.txt", "c")});
    world.Rebuild();
    ASSERT_EQ(world.Rows().size(), 3U);
    world.inbox->folders.clear();
    world.index().TargetStoreIDs("51");

    UpdateLater();

    EXPECT_TRUE(world.Logged("CIndex::UpdateIndex: deleted 1 records of folders that are gone"));
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt", "b.txt"}));
}

TEST_F(IndexRunTest, RowsOfAFolderThatCouldNotBeRecognizedStay) {
    auto& sub = world.inbox->Add("F2", "Sub");
    world.AddMessage(sub, "third", {World::File("c.txt", "c")});
    world.Rebuild();
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("Progress Inbox")) {
            world.plan.FailCalls("folder.Id", MessagingError(kDiskError));
        }
        if (event.starts_with("Progress Updating")) world.plan.Clear();
    };

    UpdateLater();

    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_TRUE(world.Logged("CIndex::GetAttachments: no folder record for 'Inbox\\Sub' "));
    EXPECT_EQ(world.index().Summary().folders_failed, 1);
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt", "c.txt"}));
}

TEST_F(IndexRunTest, AFailedRunLeavesWhatWasSaved) {
    Both();
    world.Rebuild();
    const std::string index = world.Saved("txattach.zip");
    const std::string folders = world.Saved("txfolders.zip");
    world.AddMessage(*world.inbox, "third", {World::File("c.txt", "c")});
    other->root_fails = true;

    UpdateLater();

    EXPECT_EQ(world.Saved("txattach.zip"), index);
    EXPECT_EQ(world.Saved("txfolders.zip"), folders);
    other->root_fails = false;
    world.Update();
    EXPECT_EQ(world.Rows().size(), 3U);
}

TEST_F(IndexRunTest, AFolderTreeThatCannotBeReadFailsTheRun) {
    world.Rebuild();
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("Progress Inbox")) {
            world.plan.FailCalls("folder.FolderCount", MessagingError(kDiskError));
        }
    };
    UpdateLater();

    EXPECT_EQ(world.End(), "Abort Attachment index failed for:\r\nAnna's mail\r\n\r\n");
    world.plan.Clear();
    EXPECT_EQ(world.Rows().size(), 1U);
}

TEST_F(IndexRunTest, TheSaveIsAnnouncedAndItsTextLogged) {
    world.Rebuild();

    EXPECT_TRUE(world.Raised("Progress Updating index, please wait... 0"));
    EXPECT_TRUE(
        world.Logged("CIndex::CreateNewIndex:Attachment index created for:\r\nAnna's mail\r\n"));
    EXPECT_EQ(world.index().Summary().text, world.ResultText("LogIndex"));
}

TEST_F(IndexRunTest, AnUpdateWithoutChangesReadsNoMessage) {
    Both();
    world.Rebuild();
    Later();
    const std::size_t before = world.plan.calls().size();

    world.Update();

    const std::vector<std::string> calls(
        world.plan.calls().begin() + static_cast<std::ptrdiff_t>(before), world.plan.calls().end());
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "message.AttachmentList"), 3);  // results only
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "message.Subject"), 0);
    EXPECT_EQ(world.index().Summary().messages_indexed, 0);
}

// Whatever the pump serves the end of the session in: nothing of the index is touched afterwards,
// and what was saved stands.
TEST_F(IndexRunTest, ASessionThatEndsInsideAnyPumpEndsTheRunAndKeepsTheSavedIndex) {
    const auto arrange = [](IndexWorld& one) {
        one.AddMessage(*one.inbox, "plain", {World::File("p.txt", "p")});
        one.AddMessage(one.inbox->Add("F3", "Emptied"), "gone", {World::File("g.txt", "g")});
        one.AddMessage(one.inbox->Add("F4", "Zips"), "zips",
                       {World::File("z.zip", test::Zips::Archive({{"x", "1"}, {"y", "2"}})),
                        World::File("after.txt", "a")});
        one.Rebuild();
        ASSERT_EQ(one.End(), "Complete 0");
        one.inbox->folders[0]->messages.clear();
        one.inbox->folders[1]->messages[0].modified = one.clock.utc;
        one.clock.AdvanceMinutes(10);
        one.index_recorder.events.clear();
        one.loop.pumps = 0;
    };
    IndexWorld dry;
    arrange(dry);
    dry.Update();
    ASSERT_EQ(dry.End(), "Complete 0");
    const int pumps = dry.loop.pumps;
    ASSERT_GT(pumps, 6);

    for (int nth = 1; nth <= pumps; ++nth) {
        SCOPED_TRACE(nth);
        IndexWorld one;
        arrange(one);
        const std::string saved = one.Saved("txattach.zip");
        one.loop.on_pump = [&](int pump) {
            if (pump == nth) one.session.reset();
        };

        one.Update();

        EXPECT_EQ(one.session, nullptr);
        EXPECT_EQ(one.ci.gAttachRST, nullptr);
        EXPECT_EQ(one.ci.gIndex, nullptr);
        EXPECT_EQ(one.Saved("txattach.zip"), saved);
        EXPECT_FALSE(one.Raised("Complete 0"));
        for (const auto& [path, bytes] : one.files.files)
            EXPECT_EQ(path.find("/stage-"), std::string::npos) << path;
    }
}

// A compression run that hands over to an index run.
struct ChainedRunTest : IndexRunTest {
    void RunChained(const std::string& folder_ids) {
        world.Logon();
        CManage& manage = *world.session->Manage();
        manage.Compress(true);
        manage.FolderIDs(folder_ids);
        manage.Events(&world.recorder);
        world.index().Events(&world.index_recorder);
        manage.Manage(true);
        world.loop.FireTimers();
        compression_end = world.recorder.events.back();
        index_began_early = !world.index_recorder.events.empty();
        world.loop.FireTimers();
    }
    std::string compression_end;
    bool index_began_early = false;
};

TEST_F(ChainedRunTest, TheIndexFollowsAndShowsWhatTheCompressionMade) {
    RunChained("51,all");

    EXPECT_EQ(compression_end, "Complete 0");
    EXPECT_FALSE(index_began_early);
    EXPECT_TRUE(world.Logged("CManage::StartManage: complete. Launch Index process"));
    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.index().TargetStoreIDs(), "51");
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
    EXPECT_EQ(world.Column("ZipFile"), (std::vector<std::string>{"a.zip"}));
    EXPECT_NE(world.Results()->Find("LastCompressLog"), nullptr);
    EXPECT_NE(world.Results()->Find("LogIndex"), nullptr);
}

TEST_F(ChainedRunTest, AnotherCompressionKeepsTheMarksOfTheIndex) {
    RunChained("51,all");
    const std::string mark = world.FolderRecords()[1].at("LastUpdate");
    world.clock.AdvanceMinutes(10);

    world.Run();

    EXPECT_EQ(world.FolderRecords()[1].at("LastUpdate"), mark);
    EXPECT_EQ(world.ResultText("LastIndex"), "10/5/2007 12:00:00 PM");
    EXPECT_EQ(world.CountSaved("txattach.zip"), 1);
    EXPECT_EQ(world.CountSaved("txfolders.zip"), 1);
}

TEST_F(ChainedRunTest, EntriesWithoutAStoreLeadToTheDefaultStore) {
    RunChained("");

    EXPECT_EQ(world.index().TargetStoreIDs(), "51");
    EXPECT_EQ(world.End(), "Complete 0");
}

TEST_F(ChainedRunTest, ACancelledCompressionIsNotFollowedByAnIndex) {
    world.loop.on_pump = [&](int) { world.session->Manage()->Cancel(true); };

    RunChained("51,all");

    EXPECT_EQ(compression_end, "Abort Cancelled");
    EXPECT_TRUE(world.index_recorder.events.empty());
}

}  // namespace
}  // namespace trevix
