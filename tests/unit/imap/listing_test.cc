// Listings that build on earlier ones, against listings from nothing.
#include "platform/imap/listing.h"

#include <random>

#include "unit/imap/store_world.h"

namespace trevix::imap {
namespace {

class ListingOn : public testing::TestWithParam<const char*> {
 protected:
    void SetUp() override {
        world_ = std::make_unique<StoreWorld>(GetParam());
        TREVIX_NEEDS(*world_);
    }

    // Something that other programs do.
    void Disturb(std::mt19937& random) {
        const std::vector<SeenMail> mails = world_->Mail();
        const auto any = [&] { return mails[random() % mails.size()].uid; };
        switch (mails.empty() ? 0U : static_cast<unsigned>(random() % 4)) {
            case 0: return world_->Deliver(StoreWorld::MailOf(std::to_string(random())));
            case 1: return world_->Remove(any());
            case 2: return world_->Change(any(), FlagChange::kAdd, {"\\Flagged"});
            default: return world_->Change(any(), FlagChange::kRemove, {"\\Flagged"});
        }
    }

    std::unique_ptr<StoreWorld> world_;
};

INSTANTIATE_TEST_SUITE_P(Servers, ListingOn, testing::Values("dovecot", "cyrus"),
                         [](const auto& row) { return std::string(row.param); });

std::vector<std::string> Lines(const std::vector<MailEntry>& entries) {
    std::vector<std::string> lines;
    for (const MailEntry& entry : entries) {
        lines.push_back(entry.key + " | " + entry.locator + " | " +
                        std::to_string(entry.size_bytes) + " | " +
                        std::to_string(entry.received_ns));
    }
    return lines;
}

TEST_P(ListingOn, BuiltOnAnEarlierOneIsTheSameAsOneFromNothing) {
    std::mt19937 random(7);
    for (int count = 0; count < 10; ++count)
        world_->Deliver(StoreWorld::MailOf("first " + std::to_string(count)));
    const auto store = world_->Open();
    MailListing known = store->List("INBOX", nullptr).value().listing;
    ASSERT_FALSE(known.stamp.empty());
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        for (unsigned count = static_cast<unsigned>(random() % 4); count > 0; --count)
            Disturb(random);

        MailChange change = store->List("INBOX", &known).value();

        if (change.changed) known = std::move(change.listing);
        ASSERT_FALSE(known.stamp.empty());
        const auto fresh = world_->Open();
        ASSERT_EQ(Lines(known.entries), Lines(Listed(*fresh)));
    }
}

TEST_P(ListingOn, OfAnEarlierTimeOfTheMailboxIsForgotten) {
    world_->Deliver(StoreWorld::MailOf("one"));
    const auto store = world_->Open();
    MailListing known = store->List("INBOX", nullptr).value().listing;
    // As it was before the mailbox was made anew: another UIDVALIDITY.
    known.stamp = "1 5 3 9";
    known.entries.front().key = "1/1";
    known.entries.front().locator = "1 1 3";

    const MailChange change = store->List("INBOX", &known).value();

    ASSERT_TRUE(change.changed);
    ASSERT_EQ(change.listing.entries.size(), 1U);
    EXPECT_NE(change.listing.entries.front().key, "1/1");
    EXPECT_EQ(store->Read("INBOX", known.entries.front()).error().kind, ErrorKind::kGone);
    EXPECT_EQ(store->Stage("INBOX", known.entries.front(), Blob()).error().kind, ErrorKind::kGone);
    EXPECT_EQ(store->Outline("INBOX", known.entries.front()).error().kind, ErrorKind::kGone);
}

// What is asked ahead for other folders is used soon after or not at all.
TEST_P(ListingOn, AsksFoldersTogetherAndForgetsTheAnswersInTime) {
    ASSERT_TRUE(world_->other->Create("Box").ok());
    world_->Deliver(StoreWorld::MailOf("one"), {}, "Box");
    const auto store = world_->Open();
    ASSERT_TRUE(store->Folders().ok());
    const MailListing inbox = store->List("INBOX", nullptr).value().listing;
    const MailListing box = store->List("Box", nullptr).value().listing;
    ASSERT_FALSE(store->List("INBOX", &inbox).value().changed);
    world_->Deliver(StoreWorld::MailOf("two"), {}, "Box");
    world_->clock.tick += 10000;

    EXPECT_TRUE(store->List("Box", &box).value().changed);
}

TEST(QuotaOnAServer, ThatIsFullLeavesTheMessageAlone) {
    StoreWorld world("dovecot", {"--quota-kb", "30"});
    TREVIX_NEEDS(world);
    const std::string old_mail = StoreWorld::MailOf(std::string(10000, 'x'));
    world.Deliver(old_mail);
    auto store = world.Open();
    auto staged = store->Stage("INBOX", Listed(*store).front(),
                               Blob::FromString(StoreWorld::MailOf(std::string(40000, 'y'))));
    ASSERT_TRUE(staged.ok());

    const auto placed = staged.value()->Commit();

    ASSERT_FALSE(placed.ok());
    EXPECT_EQ(placed.error().kind, ErrorKind::kNoSpace) << placed.error().description;
    staged.value().reset();
    store.reset();
    ASSERT_EQ(world.Mail().size(), 1U);
    EXPECT_EQ(world.Mail().front().content, old_mail);
    EXPECT_TRUE(world.Journals().empty());
}

}  // namespace
}  // namespace trevix::imap
