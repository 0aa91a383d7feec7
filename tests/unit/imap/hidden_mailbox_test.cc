// Hidden messages on real servers, several stores at once.
#include "platform/imap/hidden_mailbox.h"

#include <thread>

#include "unit/imap/store_world.h"

namespace trevix::imap {
namespace {

class HiddenMailboxOn : public testing::TestWithParam<const char*> {
 protected:
    void SetUp() override {
        world_ = std::make_unique<StoreWorld>(GetParam());
        TREVIX_NEEDS(*world_);
    }
    std::unique_ptr<StoreWorld> world_;
};

INSTANTIATE_TEST_SUITE_P(Servers, HiddenMailboxOn, testing::Values("dovecot", "cyrus"),
                         [](const auto& row) { return std::string(row.param); });

HiddenMail Sample() {
    HiddenMail mail;
    mail.message_class = "IPM.Sample";
    mail.subject = "Überblick";
    mail.properties = {{"set", "Count", Variant(std::int32_t{-42})},
                       {"", "0E08000B", Variant(true)}};
    mail.attachments = {{"log.zip", 1, Blob::FromString(std::string(300000, 'z'))},
                        {"empty", 5, Blob()}};
    return mail;
}

TEST_P(HiddenMailboxOn, OfNothingIsEmptyAndMakesNothing) {
    const auto store = world_->Open();
    const std::size_t folders = world_->other->List().value().size();

    EXPECT_TRUE(store->Hidden().List().value().empty());
    EXPECT_EQ(store->Hidden().Read("0123456789abcdef").error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(store->Hidden().Remove("0123456789abcdef").error().kind, ErrorKind::kNotFound);

    EXPECT_EQ(world_->other->List().value().size(), folders);
}

TEST_P(HiddenMailboxOn, KeepsAllOfAMessageAndShowsNoFolder) {
    const auto store = world_->Open();
    const std::size_t folders = store->Folders().value().size();
    HiddenMail mail = Sample();

    const Status written = store->Hidden().Write(mail);

    ASSERT_TRUE(written.ok()) << written.error().description;
    EXPECT_EQ(mail.id.size(), 16U);
    EXPECT_EQ(mail.revision, 1);
    const auto other = world_->Open();
    EXPECT_EQ(other->Folders().value().size(), folders);
    EXPECT_EQ(other->Hidden().List().value().size(), 1U);
    const HiddenMail back = other->Hidden().Read(mail.id).value();
    EXPECT_EQ(back.id, mail.id);
    EXPECT_EQ(back.subject, "Überblick");
    EXPECT_EQ(back.message_class, "IPM.Sample");
    EXPECT_EQ(back.modified_ns, world_->clock.now_ns);
    EXPECT_EQ(back.revision, 1);
    ASSERT_EQ(back.properties.size(), 2U);
    EXPECT_EQ(std::get<std::int32_t>(back.properties[0].value), -42);
    ASSERT_EQ(back.attachments.size(), 2U);
    EXPECT_EQ(back.attachments[0].content.ToString().value(), std::string(300000, 'z'));
    EXPECT_EQ(back.attachments[1].name, "empty");
    EXPECT_EQ(back.attachments[1].method, 5);
    EXPECT_TRUE(back.attachments[1].content.empty());
}

TEST_P(HiddenMailboxOn, ReplacesARevisionAndRemovesTheOldOne) {
    const auto store = world_->Open();
    HiddenMail mail = Sample();
    ASSERT_TRUE(store->Hidden().Write(mail).ok());
    mail.subject = "changed";

    ASSERT_TRUE(store->Hidden().Write(mail).ok());

    EXPECT_EQ(mail.revision, 2);
    EXPECT_EQ(store->Hidden().Read(mail.id).value().subject, "changed");
    EXPECT_EQ(world_->Mail(kUsualHiddenMailbox).size(), 1U);
}

TEST_P(HiddenMailboxOn, RefusesToWriteOverAnothersRevision) {
    const auto one = world_->Open();
    const auto two = world_->Open();
    HiddenMail first = Sample();
    ASSERT_TRUE(one->Hidden().Write(first).ok());
    HiddenMail second = two->Hidden().Read(first.id).value();
    ASSERT_TRUE(one->Hidden().Write(first).ok());

    EXPECT_EQ(two->Hidden().Write(second).error().kind, ErrorKind::kChanged);

    ASSERT_TRUE(two->Hidden().Remove(first.id).ok());
    EXPECT_EQ(one->Hidden().Write(first).error().kind, ErrorKind::kGone);
    EXPECT_TRUE(one->Hidden().List().value().empty());
}

// Two machines that take the run lock at once: each time exactly one of them has it.
TEST_P(HiddenMailboxOn, LetsOneOfTwoWritersWin) {
    const auto one = world_->Open();
    const auto two = world_->Open();
    HiddenMail first = Sample();
    ASSERT_TRUE(one->Hidden().Write(first).ok());
    HiddenMail second = two->Hidden().Read(first.id).value();
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        bool first_won = false;
        bool second_won = false;
        std::thread other([&] { second_won = two->Hidden().Write(second).ok(); });
        first_won = one->Hidden().Write(first).ok();
        other.join();

        ASSERT_NE(first_won, second_won);
        ASSERT_EQ(one->Hidden().List().value().size(), 1U);
        HiddenMail& loser = first_won ? second : first;
        loser = one->Hidden().Read(first.id).value();
        ASSERT_EQ(first.revision, second.revision);
    }
}

TEST_P(HiddenMailboxOn, PassesOverMailOfOthers) {
    const auto store = world_->Open();
    HiddenMail mail = Sample();
    ASSERT_TRUE(store->Hidden().Write(mail).ok());
    world_->Deliver(StoreWorld::MailOf("strayed"), {}, kUsualHiddenMailbox);

    EXPECT_EQ(store->Hidden().List().value().size(), 1U);
    ASSERT_TRUE(store->Hidden().Write(mail).ok());

    EXPECT_EQ(world_->Mail(kUsualHiddenMailbox).size(), 2U) << "and leaves it";
}

}  // namespace
}  // namespace trevix::imap
