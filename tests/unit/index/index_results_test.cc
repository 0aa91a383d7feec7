#include <gtest/gtest.h>

#include "index_world.h"

namespace trevix {
namespace {

using test::IndexWorld;
using test::World;
using test::Zips;

struct SaveIndexResultsTest : testing::Test {
    void UpdateLater() {
        world.clock.AdvanceMinutes(10);
        world.index_recorder.events.clear();
        world.Update();
    }
    static std::string SizeTextOf(const std::string& bytes) {
        return std::to_string(bytes.size()) + " bytes";
    }
    IndexWorld world;
};

TEST_F(SaveIndexResultsTest, TheStatisticsReadLikeThisToTheByte) {
    world.clock.tick_step = 12003;
    world.AddMessage(*world.inbox, "first", {World::File("a.txt", std::string(1536, 'a'))});
    world.AddMessage(*world.inbox, "second",
                     {World::File("z.zip", Zips::Archive({{"one", std::string(1024, '1')}}))});
    world.AddMessage(world.AddStore("52").root.Add("F2", "x"), "third", {World::File("b", "b")});
    world.index().TargetStoreIDs("51;52");

    world.Rebuild();

    std::int32_t packed = 0;
    for (const auto& row : world.Rows()) {
        const bool whole = row.at("ZipIndex").starts_with("-");
        packed += std::stoi(row.at(whole ? "FileSize" : "FileIndex"));
    }
    const std::size_t zip_bytes = world.Saved("txattach.zip").size();
    ASSERT_LT(zip_bytes, 1024U);
    ASSERT_EQ(packed / 1024, 2);
    EXPECT_EQ(world.ResultText("LogIndex"),
              "Attachment index created for:\r\n"
              "Anna's mail\r\n"
              "Store 52\r\n"
              "Time to create index (seconds): 12.003\r\n"
              "Attachments count (including files within zip attachments): 3\r\n"
              "Compressed size of all attachments: 2.00KB (2,049 bytes)\r\n"
              "Uncompressed size of all attachments: 2.50KB (2,561 bytes)\r\n"
              "Size of index (compressed): " +
                  std::to_string(zip_bytes) + " bytes");
}

TEST_F(SaveIndexResultsTest, TheCountIncludesFilesInsideZipAttachments) {
    world.AddMessage(
        *world.inbox, "first",
        {World::File("z.zip", Zips::Archive({{"one", "1"}, {"two", "2"}, {"three", "3"}})),
         World::File("a.txt", "a")});

    world.Rebuild();

    EXPECT_NE(world.ResultText("LogIndex")
                  .find("Attachments count (including files within zip attachments): 4\r\n"),
              std::string::npos);
    EXPECT_EQ(world.index().Summary().rows, 4);
}

TEST_F(SaveIndexResultsTest, AfterTwoRunsThereIsOneArchiveOfEachKind) {
    world.AddMessage(*world.inbox, "first", {World::File("a.txt", "a")});
    world.Rebuild();

    UpdateLater();

    EXPECT_EQ(world.CountSaved("txattach.zip"), 1);
    EXPECT_EQ(world.CountSaved("txfolders.zip"), 1);
    EXPECT_TRUE(
        world.Logged("CIndex::SaveIndexResults: deleting existing attachment txattach.zip"));
    EXPECT_TRUE(
        world.Logged("CIndex::SaveIndexResults: deleting existing attachment txfolders.zip"));
    EXPECT_TRUE(world.Logged("CIndex::SaveIndexResults: write results to hidden message"));
    EXPECT_TRUE(world.Logged("CIndex::SaveIndexResults: success"));
    EXPECT_EQ(world.Results()->attachments[0].name, "txattach.zip");
    EXPECT_EQ(world.Results()->attachments[1].name, "txfolders.zip");
}

TEST_F(SaveIndexResultsTest, AnEmptyStoreHasACountOfZeroAndZeroTotals) {
    world.Rebuild();

    const std::string text = world.ResultText("LogIndex");
    EXPECT_TRUE(text.starts_with(
        "Attachment index created for:\r\nAnna's mail\r\nTime to create index (seconds): 0\r\n"
        "Attachments count (including files within zip attachments): 0\r\n"
        "Compressed size of all attachments: 0 bytes\r\n"
        "Uncompressed size of all attachments: 0 bytes\r\nSize of index (compressed): "))
        << text;
    EXPECT_EQ(world.End(), "Complete 0");
}

TEST_F(SaveIndexResultsTest, RecordsWhenTheIndexWasMadeAndReleasesTheLock) {
    world.Rebuild();

    EXPECT_EQ(world.ResultText("LastIndex"), "10/5/2007 12:00:00 PM");
    EXPECT_EQ(std::get<Date>(*world.Results()->Find("EndCI")), world.clock.local);
    EXPECT_TRUE(
        world.Logged("CIndex::SaveIndexResults: set gstrIndexCreated=10/5/2007 12:00:00 PM"));
    EXPECT_TRUE(world.Logged("CIndex::SaveIndexResults: compressed index size="));
    EXPECT_TRUE(world.Logged("CIndex::RefreshIndexCounts: AttachBytes=0"));
    EXPECT_EQ(world.ci.gIndexCreated, "10/5/2007 12:00:00 PM");
}

TEST_F(SaveIndexResultsTest, LeavesNoFilesBehind) {
    world.AddMessage(*world.inbox, "first", {World::File("a.txt", "a")});
    world.Rebuild();
    UpdateLater();

    for (const auto& [path, bytes] : world.files.files) {
        EXPECT_EQ(path.find(".adtg"), std::string::npos) << path;
        EXPECT_EQ(path.find(".zip"), std::string::npos) << path;
        EXPECT_EQ(path.find("/stage-"), std::string::npos) << path;
    }
    EXPECT_EQ(world.ci.gAttachRST->State(), kStateClosed);
    EXPECT_EQ(world.ci.gFolderRST->State(), kStateClosed);
}

TEST_F(SaveIndexResultsTest, TotalsThatWouldOverflowStayAsTheyWere) {
    fakes::AttachmentData huge = World::File("a.bin", "a");
    huge.size_bytes = 2147483647;
    world.AddMessage(*world.inbox, "first", {huge, World::File("b.txt", "b"), huge});

    world.Rebuild();

    EXPECT_NE(world.ResultText("LogIndex")
                  .find("Uncompressed size of all attachments: 2.00GB (2,147,483,647 bytes)"),
              std::string::npos);
    EXPECT_EQ(world.index().Summary().bytes, std::int64_t{2} * 2147483647 + 1);
    EXPECT_EQ(world.index().Summary().stored_bytes, std::int64_t{2} * 2147483647 + 1);
}

TEST_F(SaveIndexResultsTest, WithoutAResultsMessageNothingIsSavedAndTheRunFails) {
    world.AddMessage(*world.inbox, "first", {World::File("a.txt", "a")});
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("Progress Updating")) {
            world.plan.FailCalls("utils.HiddenItems", MessagingError(kDiskError));
        }
    };

    world.Rebuild();

    EXPECT_TRUE(world.Logged(
        "CIndex::SaveIndexResults: hidden message not available, unable to save results"));
    EXPECT_EQ(world.End(),
              "Abort Attachment index failed for:\r\nAnna's mail\r\n\r\n"
              "Unable to complete save.");
    EXPECT_TRUE(
        world.Logged("CIndex::CreateNewIndex:Attachment index failed for:\r\nAnna's mail"
                     "\r\n\r\nUnable to complete save."));
    EXPECT_EQ(world.index().Summary().text, "");
}

// What fails while the results are being saved.
struct Failure {
    const char* name;
    const char* call;
    const char* line;
};

class SaveFailures : public testing::TestWithParam<Failure> {
 protected:
    void UpdateLater() {
        world.clock.AdvanceMinutes(10);
        world.index_recorder.events.clear();
        world.Update();
    }
    IndexWorld world;
};

TEST_P(SaveFailures, KeepTheOldIndexWithItsOwnMarksAndReleaseTheLock) {
    world.AddMessage(*world.inbox, "first", {World::File("a.txt", "a")});
    world.Rebuild();
    const std::string index = world.Saved("txattach.zip");
    const std::string folders = world.Saved("txfolders.zip");
    world.AddMessage(*world.inbox, "second", {World::File("b.txt", "b")}).modified =
        world.clock.utc;
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event.starts_with("Progress Updating")) {
            world.plan.FailCalls(GetParam().call, MessagingError(kDiskError));
        }
    };

    UpdateLater();
    world.plan.Clear();
    world.index_recorder.on_event = nullptr;

    EXPECT_EQ(world.End(),
              "Abort Attachment index failed for:\r\nAnna's mail\r\n\r\n"
              "Unable to complete save.");
    EXPECT_TRUE(world.Logged(GetParam().line));
    EXPECT_EQ(world.Saved("txattach.zip"), index);
    EXPECT_EQ(world.Saved("txfolders.zip"), folders);
    EXPECT_FALSE(world.index().InProcess());

    UpdateLater();
    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.Rows().size(), 2U);
}

constexpr Failure kFailures[] = {
    {"Save", "recordset.Save", "CIndex::SaveIndexResults: error saving recordset -2147221226 "},
    {"Filter", "recordset.SetFilter",
     "CIndex::SaveIndexResults: error saving recordset -2147221226 "},
    {"Staging", "files.MakeStaging",
     "CIndex::SaveIndexResults: error saving recordset -2147221226 "},
    {"Zip", "zip.Action", "CIndex::SaveIndexResults: error saving recordset 53 "},
    {"DeleteOld", "attachment.Delete", "CIndex::SaveIndexResults: error replacing attachments: "},
    {"AddNew", "attachments.Add", "CIndex::SaveIndexResults: error replacing attachments: "},
    {"SetProperty", "message.SetField", "CIndex::SaveIndexResults: error writing results "},
    {"Update", "message.Update", "CIndex::SaveIndexResults: error on update: -2147221226 "},
};

INSTANTIATE_TEST_SUITE_P(All, SaveFailures, testing::ValuesIn(kFailures),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace trevix
