#include <gtest/gtest.h>

#include "index_world.h"

namespace trevix {
namespace {

using test::IndexWorld;
using test::World;
using test::Zips;

struct ValidateIndexTest : testing::Test {
    ValidateIndexTest() {
        world.AddMessage(*world.inbox, "first", {World::File("a.txt", "alpha")});
        world.AddMessage(*world.inbox, "second", {World::File("b.txt", "beta")});
    }
    void UpdateLater() {
        world.clock.AdvanceMinutes(10);
        world.index_recorder.events.clear();
        world.Update();
    }
    IndexWorld world;
};

TEST_F(ValidateIndexTest, DeletesTheRowsOfMessagesThatAreGone) {
    world.Rebuild();
    const std::string gone = world.inbox->messages[0].id;
    world.inbox->messages.erase(world.inbox->messages.begin());

    UpdateLater();

    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"b.txt"}));
    EXPECT_TRUE(world.Logged("CIndex::ValidateIndexMT:all rows added to collection"));
    EXPECT_TRUE(
        world.Logged("CIndex::ValidateIndexMT:Deleting row for ID not found in "
                     "collection:" +
                     gone));
}

TEST_F(ValidateIndexTest, AFolderThatGivesNoRowsDeletesNothing) {
    world.Rebuild();
    // The folder empties itself between the count and the listing.
    world.index_recorder.on_event = [&](const std::string& event) {
        if (event == "FolderChange Inbox 2") world.inbox->messages.clear();
    };

    UpdateLater();

    EXPECT_FALSE(world.Logged("all rows added to collection"));
    EXPECT_EQ(world.Rows().size(), 2U);
}

TEST_F(ValidateIndexTest, AMessageListedTwiceGivesOneLineAndNoOtherEffect) {
    world.Rebuild();
    const fakes::MessageData twin = world.inbox->messages[0];
    world.inbox->messages.push_back(twin);

    UpdateLater();

    EXPECT_EQ(world.TimesLogged("CIndex::ValidateIndexMT:error adding to collection: This key is "
                                "already associated with an element of this collection"),
              1);
    EXPECT_EQ(world.Rows().size(), 2U);
}

TEST_F(ValidateIndexTest, RowsOfOtherFoldersAreNeverTouched) {
    auto& other = world.inbox->Add("F2", "Sub");
    world.AddMessage(other, "third", {World::File("c.txt", "gamma")});
    world.Rebuild();
    world.inbox->messages.erase(world.inbox->messages.begin());

    UpdateLater();

    EXPECT_EQ(world.TimesLogged("Deleting row for ID"), 1);
    EXPECT_EQ(world.Column("FileName"), (std::vector<std::string>{"b.txt", "c.txt"}));
}

TEST_F(ValidateIndexTest, AllRowsOfAZipAttachmentGoWithTheirMessage) {
    world.AddMessage(*world.inbox, "third",
                     {World::File("z.zip", Zips::Archive({{"x", "1"}, {"y", "2"}}))});
    world.Rebuild();
    ASSERT_EQ(world.Rows().size(), 4U);
    world.inbox->messages.pop_back();

    UpdateLater();

    EXPECT_EQ(world.TimesLogged("Deleting row for ID"), 2);
    EXPECT_EQ(world.Rows().size(), 2U);
}

TEST_F(ValidateIndexTest, UsesTheEntryIdWhereThereIsNoLongTermOne) {
    for (auto& message : world.inbox->messages)
        message.long_term_id = false;
    world.Rebuild();

    UpdateLater();

    EXPECT_FALSE(world.Logged("Deleting row"));
    EXPECT_EQ(world.Rows().size(), 2U);
}

TEST_F(ValidateIndexTest, ARowWithoutAnyIdIsReportedByItsPlace) {
    world.inbox->messages[1].id.clear();

    UpdateLater();
    EXPECT_FALSE(world.Logged("no EntryID for item#0"));  // a new index has nothing to validate
    UpdateLater();

    EXPECT_TRUE(world.Logged("CIndex::ValidateIndexMT:no EntryID for item#0"));
}

TEST_F(ValidateIndexTest, AMessageThatMovedHasItsRowsInItsNewFolderOnly) {
    auto& other = world.inbox->Add("F2", "Sub");
    world.Rebuild();
    other.messages.push_back(world.inbox->messages[0]);
    world.inbox->messages.erase(world.inbox->messages.begin());

    UpdateLater();

    std::map<std::string, std::string> folders;
    for (const auto& row : world.Rows())
        folders[row.at("FileName")] = row.at("Folder");
    EXPECT_EQ(folders,
              (std::map<std::string, std::string>{{"a.txt", "Inbox\\Sub"}, {"b.txt", "Inbox"}}));
}

}  // namespace
}  // namespace trevix
