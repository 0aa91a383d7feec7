#include "store/results_message.h"

#include <gtest/gtest.h>

#include "support/world.h"

namespace trevix {
namespace {

using fakes::MessageData;
using test::World;

MessageData Item(const std::string& id, double modified,
                 const char* message_class = kResultsClass) {
    MessageData item;
    item.id = id;
    item.message_class = message_class;
    item.modified = {modified};
    item.revision = 1;
    return item;
}

struct GetResultsHMTest : testing::Test {
    GetResultsHMTest() { world.Logon(); }
    World world;
};

TEST_F(GetResultsHMTest, MakesAMessageThatIsStoredWithItsFirstSave) {
    const auto message = GetResultsHM(world.ci);

    ASSERT_NE(message, nullptr);
    EXPECT_TRUE(world.messaging.state.hidden.empty());
    EXPECT_TRUE(world.Logged("basCI::GetResultsHM: creating new Trevix Results hidden message"));

    ASSERT_TRUE(message->Update().ok());
    ASSERT_EQ(world.messaging.state.hidden.size(), 1U);
    EXPECT_EQ(world.Results()->message_class, "IPM.Post.Trevix Compression Results");
    EXPECT_EQ(world.Results()->subject, "Trevix Compression Results");
}

TEST_F(GetResultsHMTest, KeepsTheOneOfThreeThatWasModifiedLast) {
    world.messaging.state.hidden = {Item("C1", 10), Item("C2", 30), Item("C3", 20),
                                    Item("C4", 99, "IPM.Other")};

    const auto message = GetResultsHM(world.ci);

    ASSERT_NE(message, nullptr);
    ASSERT_EQ(world.messaging.state.hidden.size(), 2U);
    EXPECT_EQ(world.messaging.state.hidden[0].id, "C2");
    EXPECT_EQ(world.messaging.state.hidden[1].id, "C4");
    EXPECT_TRUE(world.Logged(
        " Trevix Results hidden message count=3; deleting all but the latest message"));
}

TEST_F(GetResultsHMTest, TakesTheFirstRowOfATie) {
    world.messaging.state.hidden = {Item("C1", 10), Item("C2", 10)};

    ASSERT_NE(GetResultsHM(world.ci), nullptr);

    ASSERT_EQ(world.messaging.state.hidden.size(), 1U);
    EXPECT_EQ(world.messaging.state.hidden[0].id, "C1");
}

TEST_F(GetResultsHMTest, SaysThatItRetrievesTheOnlyOne) {
    world.messaging.state.hidden = {Item("C1", 10)};

    ASSERT_NE(GetResultsHM(world.ci), nullptr);

    EXPECT_TRUE(world.Logged(" Trevix Results hidden message count=1; retrieving message"));
}

TEST_F(GetResultsHMTest, UsesThePlainIdentifierWhereThereIsNoLongTermOne) {
    world.messaging.state.hidden = {Item("C1", 10)};
    world.messaging.state.hidden[0].long_term_id = false;

    EXPECT_NE(GetResultsHM(world.ci), nullptr);
}

TEST_F(GetResultsHMTest, NeverMakesASecondMessageWhenTheTableCannotBeRead) {
    world.messaging.state.hidden = {Item("C1", 10)};
    world.plan.FailCalls("table.GetRows", MessagingError(kDiskError));

    EXPECT_EQ(GetResultsHM(world.ci), nullptr);
    EXPECT_EQ(world.messaging.state.hidden.size(), 1U);
}

struct FailureRow {
    const char* name;
    const char* call;
    const char* text;
};

class GetResultsHMFailure : public testing::TestWithParam<FailureRow> {};

TEST_P(GetResultsHMFailure, IsLoggedAndGivesNothing) {
    World world;
    world.Logon();
    world.messaging.state.hidden = {Item("C1", 10)};
    world.plan.FailCalls(GetParam().call, MessagingError(kCallFailed));

    EXPECT_EQ(GetResultsHM(world.ci), nullptr);
    EXPECT_TRUE(world.Logged(GetParam().text)) << GetParam().text;
    EXPECT_EQ(world.messaging.state.hidden.size(), 1U);
}

constexpr FailureRow kFailures[] = {
    {"Inbox", "session.GetDefaultFolder", "GetResultsHM: unable to retrieve Inbox [Collab"},
    {"FolderId", "folder.Id", "GetResultsHM: unable to create QMFolder object [Collab"},
    {"HiddenItems", "utils.HiddenItems",
     "GetResultsHM: unable to get safe collection of hidden items [Collab"},
    {"Table", "utils.CreateTable", "GetResultsHM: error instantiating QMMAPITable object [Collab"},
    {"Filter", "table.Restrict", "GetResultsHM: error instantiating TableFilter object [Collab"},
    {"Open", "utils.OpenMessage", "GetResultsHM: error on GetItemFromID with Len(ID)=2 [Collab"},
};

INSTANTIATE_TEST_SUITE_P(Calls, GetResultsHMFailure, testing::ValuesIn(kFailures),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(GetResultsHMTest, SaysWhyTheMessageThatIsThereCannotBeOpened) {
    world.messaging.state.hidden = {Item("C1", 10)};
    world.plan.FailCalls("utils.OpenMessage", MessagingError(kCallFailed));

    EXPECT_EQ(GetResultsHM(world.ci), nullptr);

    EXPECT_TRUE(world.Logged("GetResultsHM: unable to retrieve or create Trevix Results message " +
                             std::to_string(MessagingError(kCallFailed).number) + " [Collab"));
}

TEST_F(GetResultsHMTest, ReportsAMessageThatCanNeitherBeFoundNorMade) {
    world.plan.FailCalls("messages.Add", MessagingError(kNotEnoughDisk));

    EXPECT_EQ(GetResultsHM(world.ci), nullptr);
    EXPECT_TRUE(world.Logged(
        "GetResultsHM: unable to retrieve or create Trevix Results message -2147221235 [Collab"));
}

struct GetResultsMsgTest : testing::Test {
    GetResultsMsgTest() {
        world.Logon();
        MessageData item = Item("C1", 10);
        item.named = {{"Incoming Deleted Stationery", std::int32_t{3}},
                      {"Incoming Compressed Attachments", std::int32_t{400}},
                      {"Incoming Original Attachments", std::int32_t{900}},
                      {"LastIndex", std::string("yesterday")},
                      {"StoreIDs", std::string("51;52")},
                      {"Level", std::int16_t{9}},
                      {"ExcludeCompress", std::string(".doc")},
                      {"CombineCompress", true},
                      {"ZipBytesCompress", std::int32_t{2048}},
                      {"Custom Items", true}};
        world.messaging.state.hidden = {item};
    }
    World world;
};

TEST_F(GetResultsMsgTest, LoadsTotalsAndLists) {
    EXPECT_TRUE(GetResultsMsg(world.ci));

    EXPECT_EQ(world.ci.gDeletedStationery, 3);
    EXPECT_EQ(world.ci.gCompressedBytes, 400);
    EXPECT_EQ(world.ci.gOriginalBytes, 900);
    EXPECT_EQ(world.ci.gLastIndex, "yesterday");
    EXPECT_EQ(world.ci.gStoreIDs, "51;52");
}

TEST_F(GetResultsMsgTest, IgnoresLevelInAddinMode) {
    world.ci.Level = 3;

    GetResultsMsg(world.ci);

    EXPECT_EQ(world.ci.Level, 3);
}

TEST_F(GetResultsMsgTest, ReadsTheSettingsInServerMode) {
    world.ci.gAddinMode = false;

    GetResultsMsg(world.ci);

    EXPECT_EQ(world.ci.Level, 9);
    EXPECT_EQ(world.ci.ExcludeCompress, ".doc");
    EXPECT_TRUE(world.ci.CombineCompress);
    EXPECT_EQ(world.ci.ZipBytesCompress, 2048);
    EXPECT_TRUE(world.ci.CustomItems);
}

TEST_F(GetResultsMsgTest, UsesTheDefaultListForAnEmptyExcludeCompressInServerMode) {
    world.ci.gAddinMode = false;
    world.Results()->named.clear();
    world.ci.CombineCompress = true;

    GetResultsMsg(world.ci);

    EXPECT_EQ(world.ci.ExcludeCompress,
              ".zip:.exe:.cab:.vcf:.vcs:.ics:.xnk:.url:.lnk:.jpeg:.jpg:.gif:.efx:.wav");
    EXPECT_EQ(world.ci.Level, 0);
    EXPECT_FALSE(world.ci.CombineCompress);
}

TEST_F(GetResultsMsgTest, AnswersFalseWithoutTheMessage) {
    world.plan.FailCalls("utils.HiddenItems", MessagingError(kCallFailed));

    EXPECT_FALSE(GetResultsMsg(world.ci));
    EXPECT_TRUE(world.Logged("basCI::GetResultsMsg:hidden message not available"));
}

}  // namespace
}  // namespace trevix
