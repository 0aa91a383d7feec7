#include <gtest/gtest.h>

#include "support/world.h"

namespace trevix {
namespace {

using test::World;

struct SaveCompressionResultsTest : testing::Test {
    // The attachments named so on the results message.
    int Count(const std::string& name) {
        int count = 0;
        for (const auto& attachment : world.Results()->attachments) {
            count += attachment.name == name ? 1 : 0;
        }
        return count;
    }
    World world;
};

TEST_F(SaveCompressionResultsTest, WritesTotalsLogAndEndMark) {
    world.AddMessage(*world.inbox, "note", {World::File("a.txt", std::string(80, 'x'))});

    world.Run();

    fakes::MessageData& results = *world.Results();
    EXPECT_EQ(std::get<std::int32_t>(*results.Find("Incoming Deleted Stationery")), 0);
    EXPECT_EQ(std::get<std::int32_t>(*results.Find("Incoming Original Attachments")), 80);
    EXPECT_NE(results.Find("Incoming Compressed Attachments"), nullptr);
    EXPECT_EQ(std::get<std::string>(*results.Find("LastIndex")), "");
    EXPECT_TRUE(std::get<std::string>(*results.Find("LastCompressLog"))
                    .starts_with("<html><head><title>Trevix Compress Attachments Log "));
    EXPECT_EQ(std::get<Date>(*results.Find("EndCI")), world.clock.local);
    EXPECT_TRUE(
        world.Logged("SaveCompressionResults: writing compression stats to hidden message"));
    EXPECT_TRUE(world.Logged("SaveCompressionResults: saving folder recordset"));
    EXPECT_TRUE(world.Logged("SaveCompressionResults: added new attachment and updated message."));
}

TEST_F(SaveCompressionResultsTest, LeavesOneRecordSetAttachmentAndNoFiles) {
    world.AddMessage(*world.inbox, "note", {World::File("a.txt", "data")});

    world.Run();

    EXPECT_EQ(Count("txfolders.zip"), 1);
    EXPECT_FALSE(world.files.files.contains(world.ci.gIndexDir + "txfolders.adtg"));
    EXPECT_FALSE(world.files.files.contains(world.ci.gIndexDir + "txfolders.zip"));
}

TEST_F(SaveCompressionResultsTest, TwoRecordSetAttachmentsBecomeOne) {
    world.Run();
    world.Results()->attachments.push_back(world.Results()->attachments[0]);
    ASSERT_EQ(Count("txfolders.zip"), 2);
    world.clock.AdvanceMinutes(10);

    world.Run();

    EXPECT_EQ(Count("txfolders.zip"), 1);
    EXPECT_TRUE(world.Logged("SaveCompressionResults: deleting existing txfolders.zip attachment"));
}

TEST_F(SaveCompressionResultsTest, AnHtmlOnlyRunLeavesThePreviousLogInPlace) {
    world.Run();
    const std::string log = std::get<std::string>(*world.Results()->Find("LastCompressLog"));
    world.clock.AdvanceMinutes(10);
    world.compress = false;
    world.html = true;

    world.Run();

    EXPECT_EQ(std::get<std::string>(*world.Results()->Find("LastCompressLog")), log);
}

TEST_F(SaveCompressionResultsTest, WithoutAResultsMessageNothingIsWrittenAndNoFileMade) {
    world.Logon();
    world.loop.on_pump = [&](int) {
        world.plan.FailCalls("utils.HiddenItems", MessagingError(kCallFailed));
    };

    world.Run();

    EXPECT_TRUE(
        world.Logged("SaveCompressionResults: hidden message not available, unable to "
                     "record compression results"));
    EXPECT_FALSE(world.Logged("saving folder recordset"));
    EXPECT_EQ(Count("txfolders.zip"), 0);
    EXPECT_EQ(world.recorder.events.back(), "Complete 0");
}

TEST_F(SaveCompressionResultsTest, AnOlderRecordSetStaysWhenTheNewOneCannotBeZipped) {
    world.Run();
    world.clock.AdvanceMinutes(10);
    world.zip.fail_items = {"txfolders.adtg"};

    world.Run();

    EXPECT_EQ(Count("txfolders.zip"), 1);
}

TEST_F(SaveCompressionResultsTest, ReportsAFailedUpdate) {
    world.Logon();
    world.loop.on_pump = [&](int) {
        world.plan.FailCalls("message.Update", MessagingError(kNotEnoughDisk));
    };

    world.Run();

    EXPECT_TRUE(world.Logged("SaveCompressionResults: error on update: -2147221235 [Collab"));
}

TEST_F(SaveCompressionResultsTest, TheMarksAreFoundByTheNextProcess) {
    world.AddMessage(*world.inbox, "note", {World::File("a.txt", "data")});
    world.Run("51,F1");
    world.session.reset();
    world.clock.AdvanceMinutes(10);
    world.Logon();
    world.recorder.events.clear();

    world.Run("51,F1");

    EXPECT_TRUE(world.Logged("CompressAttachments: exiting 'Inbox' at message 'note'"));
}

}  // namespace
}  // namespace trevix
