#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/world.h"

namespace trevix {
namespace {

using test::World;

struct StationeryTest : testing::Test {
    StationeryTest() {
        world.html = true;
        world.compress = false;
        fakes::AttachmentData paper = World::File("paper.gif", "image");
        paper.content_id = "paper@x";
        message = &world.AddMessage(*world.inbox, "note", {World::File("a.txt", "data"), paper});
        message->formatted_body = "\\fromhtml1 <body background=\"cid:paper@x\">";
    }
    World world;
    fakes::MessageData* message = nullptr;
};

TEST_F(StationeryTest, TheBackgroundImageIsRemovedAndCounted) {
    world.Run("51,F1");

    ASSERT_EQ(message->attachments.size(), 1U);
    EXPECT_EQ(message->attachments[0].name, "a.txt");
    EXPECT_EQ(message->updates, 1);
    EXPECT_TRUE(world.Logged("CManage::DeleteStationery: for note strAttachID=paper@x"));
    EXPECT_TRUE(world.Logged("CManage::DeleteStationery: deleted paper@x from note"));
    EXPECT_EQ(std::get<std::int32_t>(*world.Results()->Find("Incoming Deleted Stationery")), 1);
    EXPECT_EQ(world.session->Manage()->Summary().stationery_removed, 1);
}

TEST_F(StationeryTest, AnIdentifierWithoutAttachmentIsReportedAndTheMessageNotSaved) {
    message->attachments[1].content_id = "Paper@x";

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("CManage::DeleteStationery: unable to locate paper@x on note"));
    EXPECT_EQ(message->updates, 0);
}

TEST_F(StationeryTest, AFailedDeletionIsCountedAndReported) {
    message->attachments[1].refuses_deleting = true;

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("CManage::DeleteStationery: error deleting paper@x from note [Coll"));
    EXPECT_EQ(message->updates, 0);
    EXPECT_EQ(std::get<std::int32_t>(*world.Results()->Find("Incoming Deleted Stationery")), 1);
}

TEST_F(StationeryTest, AMessageIsNeverSavedUnderASubjectThatCouldNotBeRead) {
    world.Logon();
    world.recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("Progress")) {
            world.plan.FailCalls("message.Subject", MessagingError(kDiskError));
        }
    };

    world.Run("51,F1");

    EXPECT_EQ(message->subject, "note");
    EXPECT_EQ(message->attachments.size(), 2U);
    EXPECT_TRUE(world.Logged("CManage::DeleteStationery: unable to read the message of paper@x: "));
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
}

struct DeniedStationeryTest : StationeryTest, testing::WithParamInterface<const char*> {};

TEST_P(DeniedStationeryTest, AMessageThatMayNotBeReadIsReachedByTheNextPass) {
    world.recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("Progress")) {
            world.plan.FailCalls(GetParam(), MessagingError(kNoAccess));
        }
    };
    world.Run("51,F1");
    EXPECT_EQ(world.session->Manage()->Summary().messages_failed, 1);
    EXPECT_EQ(world.session->Manage()->Summary().messages_left, 0);
    ASSERT_EQ(message->updates, 0);
    world.recorder.on_event = nullptr;
    world.plan.Clear();
    world.clock.AdvanceMinutes(10);

    world.Run("51,F1");

    EXPECT_EQ(message->attachments.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Calls, DeniedStationeryTest,
                         testing::Values("message.Subject", "message.AttachmentList",
                                         "attachments.Item"),
                         [](const auto& call) {
                             std::string name = call.param;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

TEST_F(StationeryTest, AMessageWithoutStationeryIsNotTouched) {
    message->formatted_body.clear();

    world.Run("51,F1");

    EXPECT_EQ(message->updates, 0);
    EXPECT_FALSE(world.Logged("DeleteStationery"));
}

TEST_F(StationeryTest, BothHalvesOfARunTreatTheSameMessage) {
    world.compress = true;

    world.Run("51,F1");

    ASSERT_EQ(message->attachments.size(), 1U);
    EXPECT_EQ(message->attachments[0].name, "a.zip");
}

TEST(GetZipAttachRender, LeavesNeitherMessageNorFileBehind) {
    World world;

    world.Run();

    EXPECT_TRUE(world.messaging.state.outbox.messages.empty());
    for (const auto& [path, bytes] : world.files.files) {
        EXPECT_EQ(path.find("TrevixTb.zip"), std::string::npos) << path;
    }
    EXPECT_FALSE(world.Logged("GetZipAttachRender"));
}

TEST(GetZipAttachRender, WithoutItsPageArchivesGetAnEmptyRendering) {
    World world;
    world.files.files.erase("/opt/trevix/TrevixTb.htm");
    world.AddMessage(*world.inbox, "note", {World::File("a.txt", "data")});

    world.Run();

    EXPECT_TRUE(world.Logged("CManage::GetZipAttachRender: error "));
    EXPECT_EQ(world.inbox->messages[0].attachments[0].name, "a.zip");
    EXPECT_EQ(world.inbox->messages[0].attachments[0].rendering, "");
}

TEST(ReadFileBinary, LogsThePathAndTheUpperBound) {
    World world;
    world.AddMessage(*world.inbox, "note", {World::File("a.txt", "data")});

    world.Run();

    bool found = false;
    for (const std::string& line : world.Log()) {
        found =
            found || (line.starts_with("CManage::ReadFileBinary: for /tmp/trevix-1000/ZipTemp/") &&
                      line.find("a.zip; len=") != std::string::npos);
    }
    EXPECT_TRUE(found);
}

TEST(ReadFileBinary, AnEmptyFileIsAnEmptyArrayWithItsUpperBoundInTheLog) {
    World world;
    world.Setting("CombineCompress", "False");
    world.AddMessage(*world.inbox, "note", {World::File("a.txt", "data")});
    world.zip.on_action = [&] {
        if (world.zip.last_item.find("a.txt") == std::string::npos) return;
        world.files.Put(world.zip.last_archive, "");
        world.zip.next_code = 0;
    };

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("a.zip; len=-1"));
    EXPECT_EQ(world.inbox->messages[0].attachments[0].data, "data");
    EXPECT_TRUE(world.Logged("TrevixItemRDM: archive check failed for a.txt; message left: "));
}

}  // namespace
}  // namespace trevix
