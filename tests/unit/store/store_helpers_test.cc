#include "store/store_helpers.h"

#include <gtest/gtest.h>

#include "support/world.h"

namespace trevix {
namespace {

using test::World;

struct StoreHelpers : testing::Test {
    StoreHelpers() {
        world.Logon();
        data = &world.AddMessage(*world.inbox, "note", {});
    }
    std::unique_ptr<Message> Open() { return world.ci.gUtils->OpenMessage(data->id, "51").value(); }
    std::string Stationery(const std::string& body) {
        data->formatted_body = body;
        return GetStationeryID(world.ci, *Open());
    }
    World world;
    fakes::MessageData* data = nullptr;
};

TEST_F(StoreHelpers, FindTheStationeryOfABodyTag) {
    EXPECT_EQ(Stationery("{\\rtf1\\fromhtml1 {\\*\\htmltag50 <body background=\"cid:paper@host\" "
                         "bgcolor=\"#ffffff\">}}"),
              "paper@host");
    EXPECT_TRUE(world.Logged("basCI::GetStationeryID: found paper@host"));
}

TEST_F(StoreHelpers, FindStationeryInSingleQuotesAndAnyLetterCase) {
    EXPECT_EQ(Stationery("\\fromhtml1 <BODY BackGround='CID:p1'>"), "p1");
}

TEST_F(StoreHelpers, FindNoStationeryInABodyTagWithoutBackground) {
    EXPECT_EQ(Stationery("\\fromhtml1 <body bgcolor=\"#fff\"> background=\"cid:x\""), "");
}

TEST_F(StoreHelpers, FindNoStationeryWithoutWrappedHtmlOrBodyTag) {
    EXPECT_EQ(Stationery("<body background=\"cid:x\">"), "");
    EXPECT_EQ(Stationery("\\fromhtml1 no tag"), "");
    EXPECT_EQ(Stationery("\\fromhtml1 <body background=\"http://x\">"), "");
}

TEST_F(StoreHelpers, GiveTheSendersAddressByItsType) {
    data->sender_address = "ann@example";
    data->sender_name = "Ann";
    data->sender_type = "SMTP";
    EXPECT_EQ(SenderAddress(*Open()), "ann@example");
    EXPECT_EQ(SenderDisplayAddress(*Open()), "ann@example");
    data->sender_type = "EX";
    EXPECT_EQ(SenderAddress(*Open()), "smtp-of-ann@example");
    EXPECT_EQ(SenderDisplayAddress(*Open()), "smtp-of-ann@example");
    data->sender_type = "FAX";
    EXPECT_EQ(SenderAddress(*Open()), "");
    EXPECT_EQ(SenderDisplayAddress(*Open()), "Ann");
}

TEST_F(StoreHelpers, GiveTheSendersNameForAMissingSender) {
    data->sender_name = "Ann";
    EXPECT_EQ(SenderAddress(*Open()), "");
    EXPECT_EQ(SenderDisplayAddress(*Open()), "Ann");
}

TEST_F(StoreHelpers, JoinToAndCcRecipientsAndResolveDirectoryNames) {
    data->recipients = {{1, "a@x"}, {2, "/O=ORG/CN=B"}, {3, "hidden@x"}, {1, "c@x"}};

    EXPECT_EQ(RecipientAddressList(*Open()), "a@x; smtp-of-/O=ORG/CN=B; c@x");
}

TEST_F(StoreHelpers, GiveAnEmptyListWithoutRecipientsOrOnFailure) {
    EXPECT_EQ(RecipientAddressList(*Open()), "");
    data->recipients = {{1, "a@x"}};
    world.plan.FailCalls("message.Recipients", MessagingError(kCallFailed));
    EXPECT_EQ(RecipientAddressList(*Open()), "");
}

}  // namespace
}  // namespace trevix
