#include <gtest/gtest.h>

#include "index_world.h"

namespace trevix {
namespace {

using test::IndexWorld;
using test::World;
using test::Zips;

struct GetAttachmentsTest : testing::Test {
    GetAttachmentsTest() {
        world.AddMessage(*world.inbox, "first", {World::File("a.txt", "alpha")}).number = 1;
        world.AddMessage(*world.inbox, "second", {World::File("b.txt", "beta")}).number = 2;
        world.AddMessage(*world.inbox, "third", {World::File("c.txt", "gamma")}).number = 3;
    }
    void UpdateLater() {
        world.clock.AdvanceMinutes(10);
        world.index_recorder.events.clear();
        world.Update();
    }
    // Lets the call fail while the second message of the Inbox is looked at, not before or after.
    void FailForTheSecondMessage(const std::string& call, const Error& error) {
        world.Logon();
        world.index_recorder.on_event = [this, call, error](const std::string& event) {
            if (event == "Progress Inbox 2") world.plan.FailCalls(call, error);
            if (event == "Progress Inbox 3") world.plan.Clear();
        };
    }
    std::int64_t Looked() { return world.index().Summary().messages_indexed; }
    test::IndexRow Record(const std::string& folder_id) {
        for (const auto& record : world.FolderRecords()) {
            if (record.at("FolderID") == folder_id) return record;
        }
        return {};
    }
    IndexWorld world;
};

TEST_F(GetAttachmentsTest, VisitsEveryMessageWithAttachmentsNewestFirst) {
    world.AddMessage(*world.inbox, "nothing attached", {});

    world.Rebuild();

    EXPECT_EQ(world.index_recorder.events,
              (std::vector<std::string>{
                  "FolderChange Inbox 3", "Progress Inbox 1", "Progress Inbox 2",
                  "Progress Inbox 3", "Progress Updating index, please wait... 0", "Complete 0"}));
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"c.txt", "b.txt", "a.txt"}));
    EXPECT_TRUE(world.Logged("CIndex::GetAttachments:Folder:Inbox;Count:3"));
    EXPECT_TRUE(
        world.Logged("CIndex::GetAttachments: processed all items in 'Inbox'; last message "
                     "= first, modified 9/25/2007 10:00:00 AM UTC;LastUpdate = 12:00:00 AM "
                     "UTC"));
}

TEST_F(GetAttachmentsTest, AContactsFolderIsNeverScannedAndItsRecordNotTouched) {
    auto& contacts = world.inbox->Add("F2", "People");
    contacts.container_class = "IPF.Contact";
    world.AddMessage(contacts, "card", {World::File("card.vcf", "x")});

    world.Rebuild();

    EXPECT_EQ(world.Rows().size(), 3U);
    EXPECT_TRUE(Record("F2").empty());
    EXPECT_FALSE(Record("F1").empty());
}

TEST_F(GetAttachmentsTest, ARefreshOverAnUnchangedFolderVisitsItsNewestMessageAndStopsThere) {
    world.Rebuild();

    UpdateLater();

    EXPECT_EQ(
        world.index_recorder.events,
        (std::vector<std::string>{"FolderChange Inbox 3", "Progress Inbox 3",
                                  "Progress Updating index, please wait... 0", "Complete 0"}));
    EXPECT_EQ(Looked(), 0);
    EXPECT_TRUE(
        world.Logged("CIndex::GetAttachments: exiting 'Inbox' at message 3, modified "
                     "9/25/2007 10:28:48 AM UTC;LastUpdate = 10/5/2007 9:59:58 AM UTC"));
    EXPECT_EQ(world.Rows().size(), 3U);
}

TEST_F(GetAttachmentsTest, AMessageModifiedAtTheVeryMarkCountsAsIndexed) {
    world.Rebuild();
    const double mark = std::stod(Record("F1").at("LastUpdate"));
    world.inbox->messages[0].modified = Date{mark};

    UpdateLater();

    EXPECT_EQ(Looked(), 0);
}

TEST_F(GetAttachmentsTest, AChangedMessageLosesAllItsOldRowsThoseOfZippedFilesIncluded) {
    world.inbox->messages[0].attachments.push_back(
        World::File("z.zip", Zips::Archive({{"x", "1"}, {"y", "2"}})));
    world.Rebuild();
    ASSERT_EQ(world.Rows().size(), 5U);
    world.inbox->messages[0].attachments = {World::File("new.txt", "n")};
    world.inbox->messages[0].modified = Date{world.clock.utc.days + 1.0 / 1440};

    UpdateLater();

    EXPECT_EQ(Looked(), 1);
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"c.txt", "b.txt", "new.txt"}));
}

TEST_F(GetAttachmentsTest, AFolderWithoutAttachmentsLeftLosesAllItsRowsAndItsCountIsZero) {
    world.Rebuild();
    EXPECT_EQ(Record("F1").at("LastCount"), "3");
    for (auto& message : world.inbox->messages)
        message.attachments.clear();

    UpdateLater();

    EXPECT_EQ(world.index_recorder.events,
              (std::vector<std::string>{
                  "FolderChange Inbox 0", "Progress Inbox 1", "Progress Inbox 2",
                  "Progress Inbox 3", "Progress Updating index, please wait... 0", "Complete 0"}));
    EXPECT_TRUE(
        world.Logged("CIndex::GetAttachments: no attachments remain in 'Inbox', deleted 3 "
                     "records from index"));
    EXPECT_TRUE(world.Rows().empty());
    EXPECT_EQ(Record("F1").at("LastCount"), "0");
}

TEST_F(GetAttachmentsTest, NewFoldersGetTheKeyAfterTheLastOne) {
    world.inbox->Add("F2", "Sub");
    world.Rebuild();
    EXPECT_EQ(Record("F0").at("FolderKey"), "1");
    EXPECT_EQ(Record("F1").at("FolderKey"), "2");
    EXPECT_EQ(Record("F2").at("FolderKey"), "3");
    EXPECT_EQ(world.Column("FolderKey"), (std::vector<std::string>{"2", "2", "2"}));
}

TEST_F(GetAttachmentsTest, AListingThatFailsEndsThisFoldersScanAndKeepsItsRows) {
    auto& sub = world.inbox->Add("F2", "Sub");
    world.AddMessage(sub, "fourth", {World::File("d.txt", "delta")});
    world.Rebuild();
    const std::string mark = Record("F1").at("LastUpdate");
    int tables = 0;
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event == "FolderChange Inbox 3") {
            world.plan.FailCalls("table.GetRows", MessagingError(kDiskError));
            ++tables;
        }
        if (event.starts_with("FolderChange Inbox\\Sub")) world.plan.Clear();
    };

    UpdateLater();

    EXPECT_EQ(tables, 1);
    EXPECT_TRUE(
        world.Logged("CIndex::GetAttachments:-2147221226GetRows error:[Collaboration Data "
                     "Objects - [MAPI_E_DISK_ERROR(80040116)]]"));
    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.Rows().size(), 4U);
    EXPECT_EQ(Record("F1").at("LastUpdate"), mark);
    EXPECT_EQ(world.index().Summary().folders_failed, 1);
}

TEST_F(GetAttachmentsTest, AFolderThatCannotBeCountedIsNotTakenForEmpty) {
    world.Rebuild();
    world.index_recorder.on_event = [&](const std::string&) { world.plan.Clear(); };
    world.clock.AdvanceMinutes(1);
    world.plan.FailCalls("messages.Count", MessagingError(kDiskError));

    UpdateLater();

    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.Rows().size(), 3U);
    EXPECT_TRUE(world.Logged("CIndex::GetAttachments: unable to read 'Inbox' -2147221226 "));
}

TEST_F(GetAttachmentsTest, WithoutALongTermIdTheEntryIdIsUsed) {
    world.inbox->messages[0].long_term_id = false;

    world.Rebuild();

    EXPECT_EQ(world.TimesLogged("CIndex::GetAttachments: no long term EntryID, getting EntryID"),
              1);
    EXPECT_EQ(world.Rows().size(), 3U);
}

TEST_F(GetAttachmentsTest, AMessageWithoutAValidIdIsPassedOver) {
    world.inbox->messages[1].id = "Error 5";

    world.Rebuild();

    EXPECT_TRUE(
        world.Logged("CIndex::GetAttachments:2 unable to retrieve valid EntryID for message "
                     "second, modified 9/25/2007 10:14:24 AM UTC"));
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"c.txt", "a.txt"}));
}

TEST_F(GetAttachmentsTest, AMessageThatCannotBeOpenedIsPassedOverAndTriedAgain) {
    FailForTheSecondMessage("utils.OpenMessage", MessagingError(kDiskError));
    world.Rebuild();

    EXPECT_TRUE(
        world.Logged("CIndex::GetAttachments:-2147221226 unable to return safMsg second "
                     "using\r\nEntryID=" +
                     world.inbox->messages[1].id + "\r\nStoreID=51\r\n"));
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"c.txt", "a.txt"}));
    EXPECT_EQ(world.index().Summary().messages_failed, 1);
    EXPECT_EQ(world.End(), "Complete 0");

    world.index_recorder.on_event = nullptr;
    UpdateLater();
    EXPECT_EQ(Looked(), 1);
    EXPECT_EQ(world.Rows().size(), 3U);
}

TEST_F(GetAttachmentsTest, AMessageThatMayNotBeReadIsTriedAgain) {
    FailForTheSecondMessage("utils.OpenMessage", MessagingError(kNoAccess));
    world.Rebuild();
    EXPECT_EQ(world.index().Summary().messages_failed, 1);

    world.index_recorder.on_event = nullptr;
    UpdateLater();

    EXPECT_EQ(Looked(), 1);
    EXPECT_EQ(world.Rows().size(), 3U);
}

TEST_F(GetAttachmentsTest, AMessageThatWasIndexedInPartIsLookedAtAgainAndNoOther) {
    world.inbox->messages[1].attachments.push_back(World::File("b2.txt", "beta 2"));
    FailForTheSecondMessage("attachment.Size", MessagingError(kDiskError));
    world.Rebuild();
    world.index_recorder.on_event = nullptr;
    EXPECT_EQ(world.Column("FileSize"), (std::vector<std::string>{"5", "0", "0", "5"}));

    UpdateLater();
    EXPECT_EQ(Looked(), 1);
    std::vector<std::string> sizes = world.Column("FileSize");
    std::sort(sizes.begin(), sizes.end());
    EXPECT_EQ(sizes, (std::vector<std::string>{"4", "5", "5", "6"}));

    UpdateLater();
    EXPECT_EQ(Looked(), 0);
}

TEST_F(GetAttachmentsTest, MailThatComesOrChangesDuringTheScanIsIndexedByTheNextRun) {
    world.Logon();
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event != "Progress Inbox 3") return;
        world.clock.AdvanceMinutes(1);
        world.AddMessage(*world.inbox, "late", {World::File("late.txt", "l")}).modified =
            world.clock.utc;
        world.inbox->messages[2].attachments = {World::File("changed.txt", "c")};
        world.inbox->messages[2].modified = world.clock.utc;
        world.clock.AdvanceMinutes(1);
    };
    world.Rebuild();
    world.index_recorder.on_event = nullptr;

    UpdateLater();

    EXPECT_EQ(Looked(), 2);
    std::vector<std::string> names = world.Column("FileName");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"a.txt", "b.txt", "changed.txt", "late.txt"}));
}

TEST_F(GetAttachmentsTest, AChangeInTheSameSecondAsTheScanIsNotMissed) {
    world.Rebuild();
    world.inbox->messages[0].attachments = {World::File("changed.txt", "c")};
    world.inbox->messages[0].modified = world.clock.utc;

    UpdateLater();

    EXPECT_EQ(world.Column("FileName"),
              (std::vector<std::string>{"c.txt", "b.txt", "changed.txt"}));
}

TEST_F(GetAttachmentsTest, AMessageThatComesWithATimeOfLongAgoIsIndexed) {
    world.Rebuild();
    world.AddMessage(*world.inbox, "restored", {World::File("old.txt", "o")}).modified =
        Date{30000};

    UpdateLater();

    EXPECT_EQ(Looked(), 1);
    EXPECT_EQ(world.Rows().size(), 4U);
    EXPECT_TRUE(world.Logged(" exiting 'Inbox' at message 3"));
}

TEST_F(GetAttachmentsTest, AMessageThatGivesNoRowsIsOpenedOnceUntilItChanges) {
    world.AddMessage(*world.inbox, "nameless", {World::File("", "x")});
    world.Rebuild();
    EXPECT_EQ(Looked(), 4);

    UpdateLater();
    EXPECT_EQ(Looked(), 0);
    UpdateLater();
    EXPECT_EQ(Looked(), 0);

    world.inbox->messages.back().attachments = {World::File("named.txt", "x")};
    world.inbox->messages.back().modified = Date{30000};
    UpdateLater();
    EXPECT_EQ(Looked(), 1);
    EXPECT_EQ(world.Rows().size(), 4U);
}

TEST_F(GetAttachmentsTest, AMarkThatLiesAheadIsNotBelieved) {
    world.Rebuild();
    world.inbox->messages[0].attachments = {World::File("changed.txt", "c")};
    world.clock.AdvanceMinutes(-60);
    world.inbox->messages[0].modified = world.clock.utc;

    UpdateLater();

    EXPECT_EQ(Looked(), 3);
    EXPECT_EQ(world.Rows().size(), 3U);
}

TEST_F(GetAttachmentsTest, ARenamedFoldersRowsSayItsNewName) {
    world.Rebuild();
    world.inbox->name = "Eingang";

    UpdateLater();

    EXPECT_EQ(world.Column("Folder"), (std::vector<std::string>{"Eingang", "Eingang", "Eingang"}));
}

TEST_F(GetAttachmentsTest, RowsOfAnEmptiedFolderGoEvenWhenItsCountWasLost) {
    world.Rebuild();
    world.inbox->messages.clear();
    world.Setting("ResetFolderRST", "True");

    UpdateLater();

    EXPECT_TRUE(world.Rows().empty());
}

TEST_F(GetAttachmentsTest, APathTooLongForTheColumnGivesWayToTheName) {
    auto& deep = world.inbox->Add("F2", std::string(100, 'd')).Add("F3", std::string(100, 'e'));
    world.AddMessage(deep, "fourth", {World::File("d.txt", "delta")});

    world.Rebuild();

    EXPECT_EQ(world.Column("Folder").back(), std::string(100, 'e'));
    EXPECT_TRUE(world.Raised("FolderChange Inbox\\" + std::string(100, 'd') + "\\" +
                             std::string(100, 'e') + " 1"));
}

TEST_F(GetAttachmentsTest, AFolderNameTooLongForTheColumnIsLeftOutAndItsMailNotReadAgain) {
    auto& folder = world.inbox->Add("F2", std::string(141, 'd'));
    world.AddMessage(folder, "fourth", {World::File("d.txt", "delta")});
    world.Rebuild();
    EXPECT_EQ(world.Column("FileName").back(), "d.txt");
    EXPECT_EQ(world.Column("Folder").back(), "");

    world.clock.AdvanceMinutes(10);
    world.Update();

    EXPECT_EQ(world.index().Summary().messages_indexed, 0);
    EXPECT_EQ(world.Column("FileName").back(), "d.txt");
}

TEST_F(GetAttachmentsTest, FoldersThatShareAKeyGetKeysOfTheirOwn) {
    auto& sub = world.inbox->Add("F2", "Sub");
    world.AddMessage(sub, "fourth", {World::File("d.txt", "delta")});
    world.Rebuild();
    for (auto& attachment : world.Results()->attachments) {
        if (attachment.name != "txfolders.zip") continue;
        std::string adtg = world.zip.EntriesOf(attachment.data).front().second;
        const std::size_t at = adtg.find("3|F2|");
        ASSERT_NE(at, std::string::npos);
        adtg[at] = '2';
        attachment.data = Zips::Archive({{"txfolders.adtg", adtg}});
    }

    UpdateLater();

    EXPECT_EQ(Record("F1").at("FolderKey"), "2");
    EXPECT_EQ(Record("F2").at("FolderKey"), "3");
    EXPECT_EQ(world.Rows().size(), 4U);
    UpdateLater();
    EXPECT_EQ(world.Rows().size(), 4U);
    EXPECT_EQ(Looked(), 0);
}

TEST_F(GetAttachmentsTest, AKeyTooLargeForTheIndexIsReplacedBySmallerOne) {
    world.Rebuild();
    for (auto& attachment : world.Results()->attachments) {
        if (attachment.name != "txfolders.zip") continue;
        std::string adtg = world.zip.EntriesOf(attachment.data).front().second;
        adtg.replace(adtg.find("2|F1|"), 5, "40000|F1|");
        attachment.data = Zips::Archive({{"txfolders.adtg", adtg}});
    }

    UpdateLater();

    EXPECT_EQ(Record("F1").at("FolderKey"), "2");
    EXPECT_EQ(world.Column("FolderKey"), (std::vector<std::string>{"2", "2", "2"}));
}

TEST_F(GetAttachmentsTest, TheRootsRowsSayTopOfInformationStore) {
    world.AddMessage(world.messaging.state.stores[0]->root, "stray", {World::File("r.txt", "r")});

    world.Rebuild();

    EXPECT_EQ(world.Column("Folder").front(), "Top of Information Store");
    EXPECT_TRUE(world.Raised("FolderChange Top of Information Store 1"));
}

}  // namespace
}  // namespace trevix
