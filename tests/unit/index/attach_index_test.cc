#include "index/attach_index.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "index_world.h"
#include "platform/recordset/factory.h"

namespace trevix {
namespace {

using test::IndexWorld;
using test::World;
using test::Zips;

struct AttachIndexTest : testing::Test {
    AttachIndexTest() { world.AddMessage(*world.inbox, "first", {World::File("a.txt", "alpha")}); }
    void UpdateLater() {
        world.clock.AdvanceMinutes(10);
        world.index_recorder.events.clear();
        world.Update();
    }
    std::string Layout() {
        const auto entries = world.zip.EntriesOf(world.Saved("txattach.zip"));
        if (entries.empty()) return {};
        return entries.front().second.substr(0, entries.front().second.find('\n'));
    }

    IndexWorld world;
};

TEST_F(AttachIndexTest, CreatedTwiceInOneSessionItHasTheSameColumnsAndNoRowsOfTheFirst) {
    world.Rebuild();
    const std::string layout = Layout();
    world.inbox->messages.clear();
    world.AddMessage(*world.inbox, "second", {World::File("b.txt", "beta")});
    world.clock.AdvanceMinutes(10);

    world.Rebuild();

    EXPECT_EQ(layout,
              "RST|FileName:8|FileIndex:3|FileDate:7|FileSize:3|ZipIndex:2|ZipFile:8|Folder:8|"
              "EntryID:8|StoreID:8|Subject:8|From:8|Sender:8|To:8|DisplayTo:8|Received:7|"
              "FolderKey:2");
    EXPECT_EQ(Layout(), layout);
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"b.txt"}));
}

// Stored indexes and other programs rely on every word of it.
TEST(AttachColumns, AreTheseSixteenInThisOrder) {
    std::string layout;
    for (const AttachColumn& column : kAttachColumns) {
        const char* type = column.type == FieldType::kBstr       ? "text"
                           : column.type == FieldType::kInteger  ? "32-bit"
                           : column.type == FieldType::kSmallInt ? "16-bit"
                           : column.type == FieldType::kDate     ? "date"
                                                                 : "other";
        layout += std::string(column.name) + " " + type + " " +
                  std::to_string(column.defined_size) +
                  (column.attributes == kFieldMayBeNull     ? " may be null\n"
                   : column.attributes == kFieldUnspecified ? "\n"
                                                            : " other\n");
    }

    EXPECT_EQ(layout,
              "FileName text 255\n"
              "FileIndex 32-bit 0\n"
              "FileDate date 0 may be null\n"
              "FileSize 32-bit 0\n"
              "ZipIndex 16-bit 0 may be null\n"
              "ZipFile text 255\n"
              "Folder text 140\n"
              "EntryID text 255\n"
              "StoreID text 255\n"
              "Subject text 255\n"
              "From text 140\n"
              "Sender text 140\n"
              "To text 255\n"
              "DisplayTo text 255\n"
              "Received date 0 may be null\n"
              "FolderKey 16-bit 0\n");
}

class Adtg : public testing::Test {
 protected:
    Adtg() {
        std::string pattern = testing::TempDir() + "attach-index-XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
    }
    ~Adtg() override {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    std::unique_ptr<RecordSet> NewSet() {
        auto made = recordset::Factory().CreateRecordSet();
        EXPECT_TRUE(made.ok() && AppendAttachColumns(*made.value()).ok());
        return std::move(made).value();
    }
    static void ExpectLimits(RecordSet& set) {
        for (const char* column : {"Folder", "From", "Sender"}) {
            ASSERT_TRUE(set.AddNew().ok());
            EXPECT_EQ(set.Set(column, std::string(141, 'x')).error().number, kMultipleStep);
            EXPECT_FALSE(set.Update().ok());
            ASSERT_TRUE(set.AddNew().ok());
            EXPECT_TRUE(set.Set(column, std::string(140, 'x')).ok());
            EXPECT_TRUE(set.Update().ok());
        }
        ASSERT_TRUE(set.AddNew().ok());
        EXPECT_TRUE(set.Set("Subject", std::string(255, 'x')).ok());
        EXPECT_TRUE(set.Update().ok());
    }
    std::string folder_;
};

TEST_F(Adtg, AFolderFromOrSenderOf141CharactersIsRejectedWhileASubjectOf255IsAccepted) {
    auto set = NewSet();
    ASSERT_TRUE(set->Open().ok());

    ExpectLimits(*set);
}

TEST_F(Adtg, TheLimitsHoldForALoadedIndexAsWell) {
    auto set = NewSet();
    ASSERT_TRUE(set->Open().ok());
    ASSERT_TRUE(set->Save(folder_ + "/index.adtg", kPersistAdtg).ok());

    auto loaded = NewSet();
    ASSERT_TRUE(loaded->OpenFile(folder_ + "/index.adtg").ok());

    EXPECT_TRUE(HasAttachColumns(*loaded));
    ExpectLimits(*loaded);
}

TEST_F(AttachIndexTest, AfterLoadingReferencesHaveMinusThreeAndByReferenceOnlyMinusTwo) {
    fakes::AttachmentData reference = World::File("", "");
    reference.method = 2;
    reference.display_name = "//server/plan.doc";
    fakes::AttachmentData only = reference;
    only.method = 4;
    only.display_name = "//server/list.doc";
    world.AddMessage(*world.inbox, "links", {reference, only});
    world.Rebuild();

    UpdateLater();

    std::map<std::string, std::string> kinds;
    for (const auto& row : world.Rows())
        kinds[row.at("FileName")] = row.at("ZipIndex");
    EXPECT_EQ(kinds,
              (std::map<std::string, std::string>{
                  {"a.txt", "-1"}, {"//server/plan.doc", "-3"}, {"//server/list.doc", "-2"}}));
}

TEST_F(AttachIndexTest, TheDefaultStoresRowsHaveAnEmptyStoreIdAndOthersTheirStores) {
    world.AddMessage(world.AddStore("52").root.Add("F52", "Elsewhere"), "second",
                     {World::File("b.txt", "b")});
    world.index().TargetStoreIDs("51;52");

    world.Rebuild();

    EXPECT_EQ(world.Column("StoreID"), (std::vector<std::string>{"", "52"}));
}

TEST_F(AttachIndexTest, OfTwoSavedIndexesTheFirstIsLoaded) {
    world.Rebuild();
    world.Results()->attachments.push_back(World::File("txattach.zip", "damaged"));
    UpdateLater();
    EXPECT_FALSE(world.Logged("GetAttachIndex: error"));
    EXPECT_EQ(world.index().Summary().messages_indexed, 0);

    world.Results()->attachments.insert(world.Results()->attachments.begin(),
                                        World::File("txattach.zip", "damaged"));
    UpdateLater();
    EXPECT_TRUE(world.Logged("GetAttachIndex: error"));
    EXPECT_EQ(world.index().Summary().messages_indexed, 1);
    EXPECT_EQ(world.CountSaved("txattach.zip"), 1);
}

TEST_F(AttachIndexTest, ALocalCopyIsOpenedAsItStandsAndItsZipDeletedAtTheEnd) {
    world.Rebuild();
    const std::string saved = world.Saved("txattach.zip");
    std::string adtg = world.zip.EntriesOf(saved).front().second;
    const std::string zip_path = world.ci.gZipTemp + "txattach.zip";
    const std::string adtg_path = world.ci.gZipTemp + "txattach.adtg";
    world.files.Put(zip_path, "not even looked at");
    world.files.Put(adtg_path, adtg);

    UpdateLater();

    EXPECT_FALSE(world.Logged("GetAttachIndex: WriteToFile"));
    EXPECT_FALSE(world.Logged("GetAttachIndex: error"));
    EXPECT_FALSE(world.files.files.contains(zip_path));
    EXPECT_TRUE(world.files.files.contains(adtg_path));
    EXPECT_EQ(world.End(), "Complete 0");

    world.files.Put(zip_path, "not even looked at");
    world.files.files.erase(adtg_path);
    UpdateLater();
    EXPECT_TRUE(world.Logged("GetAttachIndex: error 3002"));
    EXPECT_FALSE(world.files.files.contains(zip_path));
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

TEST_F(AttachIndexTest, ALocalCopyIsNotTakenToBeWhatTheFolderMarksSpeakOf) {
    world.Rebuild();
    const std::string older = world.zip.EntriesOf(world.Saved("txattach.zip")).front().second;
    world.inbox->messages[0].attachments = {World::File("changed.txt", "c")};
    world.inbox->messages[0].modified = world.clock.utc;
    UpdateLater();
    UpdateLater();
    ASSERT_EQ(world.Column("FileName"), (std::vector<std::string>{"changed.txt"}));
    world.files.Put(world.ci.gZipTemp + "txattach.zip", "left by a dead process");
    world.files.Put(world.ci.gZipTemp + "txattach.adtg", older);

    UpdateLater();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"changed.txt"}));
}

TEST_F(AttachIndexTest, LoadingTellsItsStepsAndLeavesNoFiles) {
    world.Rebuild();

    UpdateLater();

    EXPECT_TRUE(world.Logged("CIndex::GetAttachIndex: WriteToFile"));
    EXPECT_TRUE(world.Logged("CIndex::GetAttachIndex: update file index date: "));
    for (const auto& [path, bytes] : world.files.files) {
        EXPECT_EQ(path.find("txattach"), std::string::npos) << path;
        EXPECT_EQ(path.find("txfolders"), std::string::npos) << path;
    }
}

TEST_F(AttachIndexTest, ASavedIndexThatCannotBeWrittenOutIsMadeAnew) {
    world.Rebuild();
    for (auto& attachment : world.Results()->attachments)
        attachment.refuses_reading = attachment.name == "txattach.zip";

    UpdateLater();

    EXPECT_TRUE(world.Logged("CIndex::GetAttachIndex: error on WriteToFile [Collaboration"));
    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

TEST_F(AttachIndexTest, ADamagedIndexIsQuietlyMadeAnew) {
    world.Rebuild();
    for (auto& attachment : world.Results()->attachments) {
        if (attachment.name == "txattach.zip") {
            attachment.data = Zips::Archive({{"txattach.adtg", "damaged"}});
        }
    }

    UpdateLater();

    EXPECT_EQ(world.End(), "Complete 0");
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
    EXPECT_EQ(world.index().Summary().messages_indexed, 1);
}

TEST_F(AttachIndexTest, WithoutAResultsMessageToLoadFromTheRunEndsAtOnce) {
    world.Rebuild();
    world.clock.AdvanceMinutes(10);
    const std::size_t before = world.plan.calls().size();
    world.Update();
    // The hidden items are listed for the lock, the folder records, the index, the results.
    int nth = 0;
    int seen = 0;
    for (std::size_t i = before; i < world.plan.calls().size() && seen < 3; ++i) {
        if (world.plan.calls()[i] != "utils.HiddenItems") continue;
        ++seen;
        nth = static_cast<int>(i - before);
    }
    world.clock.AdvanceMinutes(10);
    world.index_recorder.events.clear();
    world.plan.FailCall(static_cast<int>(world.plan.calls().size()) + nth + 1,
                        fakes::FaultPlan::Mode::kOnce, MessagingError(kDiskError));

    world.Update();

    EXPECT_TRUE(world.Logged("CIndex::GetAttachIndex: hidden message not available; aborting"));
    EXPECT_EQ(world.index_recorder.events,
              (std::vector<std::string>{"Abort Hidden message not available"}));
    EXPECT_FALSE(world.index().InProcess());
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"a.txt"}));
}

}  // namespace
}  // namespace trevix
