#include "store/folder_record_set.h"

#include <gtest/gtest.h>

#include "store/results_message.h"
#include "support/world.h"

namespace trevix {
namespace {

using test::World;

constexpr const char* kAdtgPath = "/tmp/trevix-1000/ZipIndex/home/txfolders.adtg";

struct GetFolderRSTTest : testing::Test {
    GetFolderRSTTest() { world.Logon(); }

    // A record of a folder, kept on the results message by an earlier run.
    void SaveARecord() {
        ResetFolderRST(world.ci);
        ASSERT_TRUE(FindFolderRecord(*world.ci.gFolderRST, "F7", true));
        ASSERT_TRUE(world.ci.gFolderRST->Update().ok());
        ASSERT_TRUE(world.ci.gFolderRST->Save(kAdtgPath, kPersistAdtg).ok());
        const std::string zip_path = ZipRST(world.ci, kAdtgPath);
        const auto message = GetResultsHM(world.ci);
        auto attachments = message->AttachmentList();
        ASSERT_TRUE(attachments.value()->Add("txfolders.zip", 0, 1, zip_path).ok());
        ASSERT_TRUE(message->Update().ok());
        world.files.files.erase(kAdtgPath);
        world.files.files.erase(zip_path);
        world.ci.gFolderRST.reset();
    }
    World world;
};

TEST_F(GetFolderRSTTest, BuildsANewEmptySetWithSevenFieldsWithoutSavedOne) {
    EXPECT_TRUE(GetFolderRST(world.ci));

    ASSERT_TRUE(IsOpen(world.ci.gFolderRST));
    const char* names[] = {"FolderKey",    "FolderID", "LastCount",   "LastUpdate",
                           "LastCompress", "LastHTML", "LastZipBytes"};
    ASSERT_EQ(world.ci.gFolderRST->FieldCount(), 7);
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(world.ci.gFolderRST->FieldName(i), names[i]);
    EXPECT_EQ(world.ci.gFolderRST->RecordCount(), 0);
    EXPECT_TRUE(world.Logged("basCI::GetFolderRST: no existing folder adtg"));
    EXPECT_TRUE(world.Logged("basCI::GetFolderRST: return True"));
}

TEST_F(GetFolderRSTTest, BuildsANewEmptySetFromAnAttachmentListWithoutTheZipAndNoFile) {
    SaveARecord();
    ASSERT_EQ(world.Results()->attachments.size(), 1U);
    world.Results()->attachments[0].name = "txattach.zip";

    EXPECT_TRUE(GetFolderRST(world.ci));

    ASSERT_TRUE(IsOpen(world.ci.gFolderRST));
    EXPECT_EQ(world.ci.gFolderRST->FieldCount(), 7);
    EXPECT_EQ(world.ci.gFolderRST->RecordCount(), 0);
    EXPECT_TRUE(world.Logged("basCI::GetFolderRST: no existing folder adtg"));
}

TEST_F(GetFolderRSTTest, BuildsANewEmptySetFromADamagedZip) {
    SaveARecord();
    world.Results()->attachments[0].data = "no archive";

    EXPECT_TRUE(GetFolderRST(world.ci));

    EXPECT_EQ(world.ci.gFolderRST->RecordCount(), 0);
    EXPECT_TRUE(world.Logged("CZIP::ZIPExtract: error 3 Zip file structure error"));
    EXPECT_TRUE(world.Logged("basCI::GetFolderRST: no existing folder adtg"));
}

TEST_F(GetFolderRSTTest, LoadsTheSetFromTheResultsMessage) {
    SaveARecord();

    EXPECT_TRUE(GetFolderRST(world.ci));

    EXPECT_EQ(world.ci.gFolderRST->RecordCount(), 1);
    EXPECT_TRUE(FindFolderRecord(*world.ci.gFolderRST, "F7", false));
    EXPECT_TRUE(world.Logged(" working with existing folders adtg"));
}

TEST_F(GetFolderRSTTest, ReturnsAtOnceWhenTheSetIsOpen) {
    GetFolderRST(world.ci);

    EXPECT_TRUE(GetFolderRST(world.ci));

    EXPECT_TRUE(world.Logged(" folder recordset already open"));
}

TEST_F(GetFolderRSTTest, DropsTheRecordsOnceWhenResetIsAskedForAndTakesTheRequestBack) {
    SaveARecord();
    world.registry.Put(kCurrentUser, kAddinKey, "ResetFolderRST", kRegDword,
                       std::string("\1\0\0\0", 4));

    EXPECT_TRUE(GetFolderRST(world.ci));
    EXPECT_EQ(world.ci.gFolderRST->RecordCount(), 0);
    EXPECT_TRUE(world.Logged(" resetting folder recordset"));
    EXPECT_EQ(world.registry.Stored(kCurrentUser, kAddinKey, "ResetFolderRST")->data,
              std::string(4, '\0'));

    world.ci.gFolderRST.reset();
    EXPECT_TRUE(GetFolderRST(world.ci));
    EXPECT_EQ(world.ci.gFolderRST->RecordCount(), 1);
}

TEST_F(GetFolderRSTTest, UpgradesASetOfSixFieldsToSevenAndCarriesItsRecordsOver) {
    world.files.Put(kAdtgPath,
                    "RST|FolderKey:3|FolderID:8|LastCount:3|LastUpdate:7|LastCompress:7|"
                    "LastHTML:7\n4|F7|12|100.5|200.5|0|");

    EXPECT_TRUE(GetFolderRST(world.ci));

    EXPECT_EQ(world.ci.gFolderRST->FieldCount(), 7);
    EXPECT_TRUE(world.Logged(" adding fields to folder recordset"));
    ASSERT_TRUE(FindFolderRecord(*world.ci.gFolderRST, "F7", false));
    EXPECT_EQ(std::get<Date>(world.ci.gFolderRST->Get("LastCompress").value()).days, 200.5);
    EXPECT_EQ(std::get<std::int32_t>(world.ci.gFolderRST->Get("LastZipBytes").value()), 0);
}

TEST_F(GetFolderRSTTest, IsFalseForADamagedFileAndLeavesNoOpenSet) {
    world.files.Put(kAdtgPath, "garbage");

    EXPECT_FALSE(GetFolderRST(world.ci));
    EXPECT_FALSE(IsOpen(world.ci.gFolderRST));
}

TEST_F(GetFolderRSTTest, WorksWithoutAResultsMessage) {
    world.plan.FailCalls("utils.HiddenItems", MessagingError(kCallFailed));

    EXPECT_TRUE(GetFolderRST(world.ci));
    EXPECT_TRUE(world.Logged("basCI::GetFolderRST: hidden message not available"));
}

TEST_F(GetFolderRSTTest, TouchesNoFileWithoutAnIndexDirectory) {
    world.ci.gIndexDir.clear();

    EXPECT_FALSE(GetFolderRST(world.ci));
}

TEST(FindFolderRecordTest, GivesNewRecordsTheNextKey) {
    World world;
    world.Logon();
    ResetFolderRST(world.ci);
    RecordSet& records = *world.ci.gFolderRST;

    EXPECT_FALSE(FindFolderRecord(records, "F1", false));
    for (const char* id : {"F1", "F2", "F3"}) {
        ASSERT_TRUE(FindFolderRecord(records, id, true));
        ASSERT_TRUE(records.Update().ok());
    }

    ASSERT_TRUE(FindFolderRecord(records, "F3", true));
    EXPECT_EQ(std::get<std::int32_t>(records.Get("FolderKey").value()), 3);
    EXPECT_EQ(records.RecordCount(), 3);
}

TEST(ZipRSTTest, ReplacesAnExistingZipAndReturnsItsPath) {
    World world;
    world.Logon();
    world.files.Put(kAdtgPath, "RST");
    world.files.Put("/tmp/trevix-1000/ZipIndex/home/txfolders.zip", "old");

    EXPECT_EQ(ZipRST(world.ci, kAdtgPath), "/tmp/trevix-1000/ZipIndex/home/txfolders.zip");

    EXPECT_NE(world.files.files["/tmp/trevix-1000/ZipIndex/home/txfolders.zip"], "old");
    EXPECT_TRUE(world.Logged(std::string("basCI::ZipRST: successfully zipped ") + kAdtgPath));
}

TEST(ZipRSTTest, ReportsAZipThatDoesNotAppear) {
    World world;
    world.Logon();

    ZipRST(world.ci, kAdtgPath);

    EXPECT_TRUE(world.Logged(std::string("basCI::ZipRST: error zipping ") + kAdtgPath));
}

}  // namespace
}  // namespace trevix
