#include <gtest/gtest.h>

#include "store/folder_record_set.h"
#include "support/world.h"

namespace trevix {
namespace {

using test::World;

struct CompressAttachmentsTest : testing::Test {
    CompressAttachmentsTest() { world.Setting("CombineCompress", "False"); }

    Date Mark(const char* field, const std::string& folder_id = "F1") {
        if (!FindFolderRecord(*world.ci.gFolderRST, folder_id, false)) return Date{-1};
        return std::get<Date>(world.ci.gFolderRST->Get(field).value());
    }
    // A second run some minutes later, past the run lock.
    void RunAgain() {
        world.clock.AdvanceMinutes(10);
        world.recorder.events.clear();
        world.Run("51,F1");
    }
    World world;
};

TEST_F(CompressAttachmentsTest, LeavesAContactsFolderAloneAndOutOfTheLog) {
    world.inbox->container_class = "IPF.Contact";
    world.AddMessage(*world.inbox, "card", {World::File("a.txt", "data")});

    world.Run("51,F1");

    EXPECT_EQ(world.recorder.events, (std::vector<std::string>{"Complete 0"}));
    EXPECT_TRUE(world.session->Manage()->Summary().folders.empty());
    EXPECT_EQ(Mark("LastCompress"), Date{-1});
    EXPECT_EQ(world.inbox->messages[0].updates, 0);
}

TEST_F(CompressAttachmentsTest, VisitsMessagesWithAttachmentsNewestFirst) {
    world.AddMessage(*world.inbox, "old", {World::File("old.txt", "data")});
    world.AddMessage(*world.inbox, "plain", {});
    world.AddMessage(*world.inbox, "new", {World::File("new.txt", "data")});

    world.Run("51,F1");

    EXPECT_EQ(world.recorder.events,
              (std::vector<std::string>{"FolderChange Inbox 2", "Progress Inbox 1",
                                        "Progress Inbox 2", "Complete 0"}));
    EXPECT_EQ(world.inbox->messages[0].attachments[0].name, "old.zip");
    EXPECT_EQ(world.inbox->messages[2].attachments[0].name, "new.zip");
    EXPECT_EQ(world.inbox->messages[1].updates, 0);
}

TEST_F(CompressAttachmentsTest, StopsAtTheNewestMessageOfAnUnchangedFolder) {
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")});
    world.AddMessage(*world.inbox, "two", {World::File("b.txt", "data")});
    world.Run("51,F1");
    const Date first_mark = Mark("LastCompress");
    world.messaging.state.opened.clear();

    RunAgain();

    EXPECT_EQ(world.recorder.events,
              (std::vector<std::string>{"FolderChange Inbox 2", "Progress Inbox 2", "Complete 0"}));
    EXPECT_TRUE(
        world.Logged("CompressAttachments: exiting 'Inbox' at message 'one'; "
                     "MessageLastMod of 10/5/2007 10:00:00 AM UTC <=LastCompress of "
                     "10/5/2007 10:00:00 AM UTC"));
    EXPECT_GT(Mark("LastCompress"), first_mark);
    // No message of the folder was opened, only the results message.
    for (const std::string& id : world.messaging.state.opened)
        EXPECT_EQ(id, world.Results()->id);
}

TEST_F(CompressAttachmentsTest, TreatsAMessageThatIsNewerThanTheMark) {
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")});
    world.Run("51,F1");
    world.AddMessage(*world.inbox, "late", {World::File("b.txt", "data")}).modified = {
        world.clock.utc.days + 1.0 / 1440};

    RunAgain();

    EXPECT_EQ(world.inbox->messages[1].attachments[0].name, "b.zip");
}

TEST_F(CompressAttachmentsTest, AModificationTimeEqualToTheMarkEndsThePass) {
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")});
    world.Run("51,F1");
    world.AddMessage(*world.inbox, "same", {World::File("b.txt", "data")}).modified =
        Mark("LastCompress");

    RunAgain();

    EXPECT_EQ(world.inbox->messages[1].attachments[0].name, "b.txt");
}

TEST_F(CompressAttachmentsTest, ALoweredThresholdReadsAllMessagesAgain) {
    world.Setting("ZipBytesCompress", "100");
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", std::string(50, 'a'))});
    world.Run("51,F1");
    EXPECT_EQ(world.inbox->messages[0].attachments[0].name, "a.txt");

    world.ci.ZipBytesCompress = 10;
    RunAgain();

    EXPECT_EQ(world.inbox->messages[0].attachments[0].name, "a.zip");
}

TEST_F(CompressAttachmentsTest, OneOfTheTwoMarksIsEnoughToStop) {
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")});
    world.Run("51,F1");
    world.html = true;

    RunAgain();

    EXPECT_EQ(world.TimesLogged(" UTC <=LastCompress of "), 1);
    EXPECT_EQ(world.TimesLogged(" UTC <=LastHTML of "), 0);
    EXPECT_GT(Mark("LastHTML"), Date{});
}

TEST_F(CompressAttachmentsTest, ACancelledPassWritesNoDatesButItsRow) {
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")});
    world.AddMessage(*world.inbox, "two", {World::File("b.txt", "data")});
    world.recorder.on_event = [&](const std::string& event) {
        if (event == "Progress Inbox 1") world.session->Manage()->Cancel(true);
    };

    world.Run("51,F1");

    EXPECT_EQ(Mark("LastCompress"), Date{});
    EXPECT_EQ(world.session->Manage()->Summary().folders.size(), 1U);
    EXPECT_TRUE(world.Logged("CompressAttachments:user cancel; exiting For"));
    EXPECT_EQ(world.recorder.events.back(), "Abort Cancelled");
    EXPECT_EQ(world.inbox->messages[0].updates, 0);
}

TEST_F(CompressAttachmentsTest, UsesThePlainEntryIdWithoutALongTermOne) {
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")}).long_term_id = false;

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("CompressAttachments: no long term EntryID, getting EntryID for one"));
    EXPECT_EQ(world.inbox->messages[0].attachments[0].name, "a.zip");
}

TEST_F(CompressAttachmentsTest, AnUnusableEntryIdEndsTheFolder) {
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")});
    world.AddMessage(*world.inbox, "two", {World::File("b.txt", "data")}).id = "error 5";

    world.Run("51,F1");

    EXPECT_TRUE(
        world.Logged("CompressAttachments: unable to retrieve valid EntryID for message two, "
                     "modified "));
    EXPECT_EQ(world.inbox->messages[0].updates, 0);
    EXPECT_EQ(world.session->Manage()->Summary().folders.size(), 1U);
}

TEST_F(CompressAttachmentsTest, AMessageThatCannotBeOpenedIsPassedOver) {
    world.AddMessage(*world.inbox, "one", {World::File("a.txt", "data")});
    world.Logon();
    world.plan.FailCalls("utils.OpenMessage", MessagingError(kObjectDeleted));
    world.messaging.state.hidden.clear();

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("CompressAttachments: left 'one': [Collaboration"));
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
}

TEST_F(CompressAttachmentsTest, AMessageThatCouldNotBeSavedIsReachedByTheNextPass) {
    world.AddMessage(*world.inbox, "stubborn", {World::File("a.txt", "data")});
    world.AddMessage(*world.inbox, "easy", {World::File("b.txt", "data")});
    // Somebody flags the older message while it is being treated.
    world.loop.on_pump = [&](int) {};
    world.zip.on_action = [&] {
        if (world.zip.last_item.find("a.txt") != std::string::npos) {
            ++world.inbox->messages[0].revision;
        }
    };
    world.Run("51,F1");
    ASSERT_TRUE(world.Logged("TrevixItemRDM: err at save for a.txt "));
    ASSERT_EQ(world.inbox->messages[0].attachments[0].name, "a.txt");
    world.zip.on_action = nullptr;

    RunAgain();

    EXPECT_EQ(world.inbox->messages[0].attachments[0].name, "a.zip");
    EXPECT_EQ(world.inbox->messages[1].updates, 1);
}

TEST_F(CompressAttachmentsTest, AMessageWhoseArchiveFailedIsReachedByTheNextPass) {
    for (const char* combine : {"False", "True"}) {
        World failing;
        failing.Setting("CombineCompress", combine);
        failing.AddMessage(*failing.inbox, "note", {World::File("a.txt", "data")});
        failing.zip.fail_items = {"a.txt"};
        failing.Run("51,F1");
        EXPECT_EQ(failing.session->Manage()->Summary().messages_failed, 1);
        ASSERT_EQ(failing.inbox->messages[0].attachments[0].name, "a.txt");
        failing.zip.fail_items.clear();
        failing.clock.AdvanceMinutes(10);

        failing.Run("51,F1");

        EXPECT_EQ(failing.inbox->messages[0].attachments[0].name, "a.zip");
        EXPECT_EQ(failing.session->Manage()->Summary().messages_failed, 0);
    }
}

TEST_F(CompressAttachmentsTest, AMessageThatMayNotBeReadIsReachedByTheNextPass) {
    for (const char* call : {"utils.OpenMessage", "message.AttachmentList", "message.Field"}) {
        World denied;
        denied.AddMessage(*denied.inbox, "note", {World::File("a.txt", "data")});
        denied.recorder.on_event = [&](const std::string& event) {
            if (event.starts_with("Progress")) {
                denied.plan.FailCalls(call, MessagingError(kNoAccess));
            }
        };
        denied.Run("51,F1");
        EXPECT_EQ(denied.session->Manage()->Summary().messages_failed, 1) << call;
        ASSERT_EQ(denied.inbox->messages[0].attachments[0].name, "a.txt");
        denied.recorder.on_event = nullptr;
        denied.plan.Clear();
        denied.clock.AdvanceMinutes(10);

        denied.Run("51,F1");

        EXPECT_EQ(denied.inbox->messages[0].attachments[0].name, "a.zip") << call;
    }
}

struct UnreadFolderRow {
    const char* name;
    const char* call;
};

class CompressAttachmentsUnread : public testing::TestWithParam<UnreadFolderRow> {};

TEST_P(CompressAttachmentsUnread, AFolderThatCouldNotBeSeenIsReportedAndNotMarkedAsTreated) {
    World world;
    world.AddMessage(*world.inbox, "note", {World::File("a.txt", "data")});
    world.Logon();
    world.recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("FolderChange")) {
            world.plan.FailCalls(GetParam().call, MessagingError(kDiskError));
        }
    };
    world.Run("51,F1");
    EXPECT_TRUE(world.Logged("CompressAttachments: unable to read 'Inbox': [Collab"));
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
    ASSERT_EQ(world.inbox->messages[0].attachments[0].name, "a.txt");
    world.plan.Clear();
    world.recorder.on_event = nullptr;
    world.clock.AdvanceMinutes(10);

    world.Run("51,F1");

    EXPECT_EQ(world.inbox->messages[0].attachments[0].name, "a.zip");
}

constexpr UnreadFolderRow kUnread[] = {
    {"Sort", "messages.Sort"},       {"Table", "utils.CreateTable"}, {"Source", "table.SetSource"},
    {"Columns", "table.SetColumns"}, {"RowCount", "table.RowCount"}, {"Rows", "table.GetRows"},
};

INSTANTIATE_TEST_SUITE_P(Calls, CompressAttachmentsUnread, testing::ValuesIn(kUnread),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(CompressAttachmentsTest, FoldersThatCannotBeListedAreReported) {
    world.inbox->Add("F2", "Sub");
    world.Logon();
    world.plan.FailCalls("folder.Folders", MessagingError(kDiskError));

    world.Run();

    EXPECT_TRUE(
        world.Logged("CompressAttachments: unable to list the folders of 'IPM_SUBTREE': [Collab"));
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
    EXPECT_EQ(world.recorder.events.back(), "Complete 0");
}

TEST_F(CompressAttachmentsTest, FoldersThatCannotBeCountedAreWalkedAllTheSame) {
    world.inbox->Add("F2", "Sub");
    world.Logon();
    world.plan.FailCalls("folder.FolderCount", MessagingError(kDiskError));

    world.Run();

    EXPECT_EQ(world.session->Manage()->Summary().folders.size(), 3U);
}

TEST_F(CompressAttachmentsTest, AFolderThatCannotBeCountedIsReported) {
    world.Logon();
    world.plan.FailCalls("messages.Count", MessagingError(kDiskError));

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("CompressAttachments: unable to list 'Inbox': "));
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
}

TEST_F(CompressAttachmentsTest, CountsThatOverflowSixteenBitsLeaveTheTotalAsItWas) {
    world.inbox->name = "Big";
    std::vector<fakes::AttachmentData> many(33000, World::File("a.txt", ""));
    world.AddMessage(*world.inbox, "many", std::move(many));
    world.Setting("CombineCompress", "True");
    world.Setting("ErrorLogLevel", "1");

    world.Run("51,F1");

    const std::string log = std::get<std::string>(*world.Results()->Find("LastCompressLog"));
    EXPECT_NE(log.find(">33,000<"), std::string::npos);
    EXPECT_NE(log.find("Total</td><td width='16%' align='right'>0<"), std::string::npos);
}

TEST_F(CompressAttachmentsTest, ReportsAFolderThatCannotBeListed) {
    world.Logon();
    world.plan.FailCalls("folder.MessageList", MessagingError(kNoAccess));

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("CompressAttachments: unable to list 'Inbox': "));
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
}

}  // namespace
}  // namespace trevix
