#include "cli/dry_run_store.h"

#include <gmock/gmock.h>

#include "fakes/fake_clock.h"
#include "fakes/fake_mail_store.h"
#include "unit/posix/scratch.h"

namespace trevix::cli {
namespace {

struct StoreWorld {
    explicit StoreWorld(std::uint64_t kept_bytes = DryRunStore::kKeptBytes) {
        auto made = std::make_unique<fakes::FakeMailStore>(plan);
        behind = made.get();
        behind->AddFolder("Work", "Work");
        first = behind->AddMessage("Work", "first message", 1000);
        second = behind->AddMessage("Work", "second message", 2000);
        store = std::make_unique<DryRunStore>(std::move(made), clock, scratch.root(),
                                              HeldLock::kConcealed, kept_bytes);
    }

    MailEntry EntryOf(const std::string& key) {
        return fakes::FakeMailStore::EntryOf(*behind->Find("Work", key));
    }

    Result<MailEntry> Replace(const MailEntry& entry, const std::string& bytes) {
        auto staged = store->Stage("Work", entry, Blob::FromString(bytes));
        if (!staged.ok()) return staged.error();
        return staged.value()->Commit();
    }

    std::string Read(const MailEntry& entry) {
        const auto bytes = store->Read("Work", entry);
        return bytes.ok() ? bytes.value().ToString().value() : bytes.error().description;
    }

    test::Scratch scratch;
    fakes::FaultPlan plan;
    fakes::FakeClock clock;
    fakes::FakeMailStore* behind = nullptr;
    std::string first;
    std::string second;
    std::unique_ptr<DryRunStore> store;
};

TEST(DryRunStoreStage, AnswersWithTheNewBytesAndWritesNothingBehind) {
    StoreWorld world;

    const auto replaced = world.Replace(world.EntryOf(world.first), "shorter");

    ASSERT_TRUE(replaced.ok());
    EXPECT_EQ(world.Read(replaced.value()), "shorter");
    EXPECT_EQ(replaced.value().size_bytes, 7U);
    EXPECT_EQ(replaced.value().received_ns, 1000);
    EXPECT_EQ(replaced.value().changed_ns, world.clock.UnixNanoseconds());
    EXPECT_EQ(world.behind->Find("Work", world.first)->content, "first message");
    EXPECT_EQ(world.behind->commits, 0);
    for (const std::string& call : world.plan.calls()) {
        EXPECT_TRUE(call == "mail.List" || call == "mail.Read") << call;
    }
}

TEST(DryRunStoreStage, ReadsBackBeforeTheCommitAndShowsNothingYet) {
    StoreWorld world;
    const MailEntry entry = world.EntryOf(world.first);

    const auto staged = world.store->Stage("Work", entry, Blob::FromString("shorter"));

    ASSERT_TRUE(staged.ok());
    EXPECT_EQ(staged.value()->content().ToString().value(), "shorter");
    EXPECT_EQ(world.Read(entry), "first message");
}

TEST(DryRunStoreStage, CommitsOnce) {
    StoreWorld world;
    const auto staged =
        world.store->Stage("Work", world.EntryOf(world.first), Blob::FromString("shorter"));

    EXPECT_TRUE(staged.value()->Commit().ok());
    EXPECT_FALSE(staged.value()->Commit().ok());
}

TEST(DryRunStoreStage, RefusesWhatIsNotThereAnyMore) {
    StoreWorld world;
    const MailEntry entry = world.EntryOf(world.first);
    world.behind->RemoveMessage("Work", world.first);

    const auto staged = world.store->Stage("Work", entry, Blob::FromString("shorter"));

    ASSERT_FALSE(staged.ok());
    EXPECT_EQ(staged.error().kind, ErrorKind::kGone);
}

TEST(DryRunStoreStage, TakesTheOldMessageAwayWithItsReplacement) {
    StoreWorld world;
    const MailEntry entry = world.EntryOf(world.first);
    ASSERT_TRUE(world.Replace(entry, "shorter").ok());

    const auto read = world.store->Read("Work", entry);
    const auto again = world.store->Stage("Work", entry, Blob::FromString("x"));

    ASSERT_FALSE(read.ok());
    EXPECT_EQ(read.error().kind, ErrorKind::kGone);
    ASSERT_FALSE(again.ok());
    EXPECT_EQ(again.error().kind, ErrorKind::kGone);
}

TEST(DryRunStoreStage, ReplacesAReplacement) {
    StoreWorld world;
    const auto once = world.Replace(world.EntryOf(world.first), "shorter");

    const auto twice = world.Replace(once.value(), "short");

    ASSERT_TRUE(twice.ok());
    EXPECT_EQ(world.Read(twice.value()), "short");
    const auto listing = world.store->List("Work", nullptr);
    ASSERT_EQ(listing.value().listing.entries.size(), 2U);
    EXPECT_EQ(listing.value().listing.entries[0].key, twice.value().key);
}

TEST(DryRunStoreStage, ReplacesNothingWhenTheDiskIsFull) {
    StoreWorld world;
    auto made = std::make_unique<fakes::FakeMailStore>(world.plan);
    made->AddFolder("Work", "Work");
    const std::string key = made->AddMessage("Work", "message", 1);
    const MailEntry entry = fakes::FakeMailStore::EntryOf(*made->Find("Work", key));
    DryRunStore store(std::move(made), world.clock, "/nonexistent", HeldLock::kConcealed);

    const auto staged = store.Stage("Work", entry, Blob::FromString("shorter"));

    ASSERT_FALSE(staged.ok());
    EXPECT_EQ(store.Read("Work", entry).value().ToString().value(), "message");
}

TEST(DryRunStoreList, PassesThroughUntilSomethingWasReplaced) {
    StoreWorld world;
    const auto first = world.store->List("Work", nullptr);
    ASSERT_TRUE(first.ok());
    EXPECT_FALSE(first.value().listing.stamp.empty());

    const auto second = world.store->List("Work", &first.value().listing);

    EXPECT_FALSE(second.value().changed);
}

TEST(DryRunStoreList, ShowsTheReplacementInTheOldOnesPlaceAndIsNotTrustedLater) {
    StoreWorld world;
    const auto before = world.store->List("Work", nullptr);
    const auto replaced = world.Replace(world.EntryOf(world.first), "shorter");

    const auto after = world.store->List("Work", &before.value().listing);

    ASSERT_TRUE(after.ok());
    EXPECT_TRUE(after.value().changed);
    EXPECT_TRUE(after.value().listing.stamp.empty());
    ASSERT_EQ(after.value().listing.entries.size(), 2U);
    EXPECT_EQ(after.value().listing.entries[0].key, replaced.value().key);
    EXPECT_EQ(after.value().listing.entries[1].key, world.second);
}

TEST(DryRunStoreRead, GivesUpOldReplacementsBeyondTheBudgetButNeverTheLast) {
    StoreWorld world(10);
    const auto old = world.Replace(world.EntryOf(world.first), "12345678");

    const auto last = world.Replace(world.EntryOf(world.second), "123456789012");

    EXPECT_EQ(world.Read(last.value()), "123456789012");
    const auto given_up = world.store->Read("Work", old.value());
    ASSERT_FALSE(given_up.ok());
    EXPECT_EQ(given_up.error().kind, ErrorKind::kGone);
}

TEST(DryRunStoreHidden, KeepsHiddenMessagesToItself) {
    StoreWorld world;
    HiddenMail mail;
    mail.message_class = "IPM.Post.X";

    ASSERT_TRUE(world.store->Hidden().Write(mail).ok());

    EXPECT_TRUE(world.behind->hidden.mails.empty());
    EXPECT_EQ(world.store->Hidden().List().value().size(), 1U);
}

}  // namespace
}  // namespace trevix::cli
