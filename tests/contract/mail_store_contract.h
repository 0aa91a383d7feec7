// What every MailStore must do, in executable form. Each implementation instantiates the suite with
// a factory of a fresh world: a store with an empty Inbox, and what another mail program does in
// it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/mail_store.h"

namespace trevix::contract {

class MailStoreWorld {
 public:
    virtual ~MailStoreWorld() = default;
    virtual MailStore& store() = 0;

    // What other programs do; messages by the key of their listing, in the Inbox.
    virtual void Deliver(const std::string& content, std::int64_t received_ns) = 0;
    virtual void Flag(const std::string& key) = 0;
    virtual void Delete(const std::string& key) = 0;
    virtual void MakeFolder(const std::string& path) = 0;  // of one or more parts

    // Lets so much time pass that a listing can be trusted.
    virtual void Settle() = 0;

    // The suite's short texts as messages, and back, for stores that take nothing but real mail.
    virtual std::string MailOf(const std::string& text) const { return text; }
    virtual std::string TextOf(const std::string& mail) const { return mail; }

    // Whether the store's server makes this folder by itself, some time after the first log-in.
    virtual bool IsServersOwn(const std::string& /*path*/) const { return false; }

    // A message of no bytes at all is none for an IMAP server.
    virtual bool TakesEmptyMessages() const { return true; }
};

struct MailStoreCase {
    const char* name;
    std::function<std::unique_ptr<MailStoreWorld>()> make;
};

inline std::string MailStoreCaseName(const testing::TestParamInfo<MailStoreCase>& row) {
    return row.param.name;
}

inline constexpr std::int64_t kReceived = 1600000000000000000;

class MailStoreContract : public testing::TestWithParam<MailStoreCase> {
 protected:
    void SetUp() override {
        world_ = GetParam().make();
        if (world_ != nullptr) return;
        const char* all = std::getenv("TREVIX_REQUIRE_ALL");
        ASSERT_FALSE(all != nullptr && std::string(all) == "1") << "there is no server to test";
        GTEST_SKIP() << "the server of this store is not installed";
    }

    MailStore& store() { return world_->store(); }
    std::string inbox() { return store().inbox_path(); }

    MailListing Listing() {
        auto change = store().List(inbox(), nullptr);
        EXPECT_TRUE(change.ok());
        return change.ok() ? std::move(change).value().listing : MailListing{};
    }

    Blob Mail(const std::string& text) { return Blob::FromString(world_->MailOf(text)); }

    void Deliver(const std::string& text, std::int64_t received_ns) {
        world_->Deliver(world_->MailOf(text), received_ns);
    }

    MailEntry DeliverOne(const std::string& content) {
        Deliver(content, kReceived);
        for (const MailEntry& entry : Listing().entries) {
            if (Content(entry) == content) return entry;
        }
        ADD_FAILURE() << "what was delivered is not listed";
        return {};
    }

    // Of a replacement, when it is staged or when it is committed.
    Error RefusalOf(const MailEntry& entry) {
        const auto staged = store().Stage(inbox(), entry, Mail("new"));
        if (!staged.ok()) return staged.error();
        const auto committed = staged.value()->Commit();
        EXPECT_FALSE(committed.ok());
        return committed.ok() ? Error() : committed.error();
    }

    std::string Content(const MailEntry& entry) {
        const auto blob = store().Read(inbox(), entry);
        return blob.ok() ? world_->TextOf(blob.value().ToString().value())
                         : blob.error().description;
    }

    std::vector<std::string> Contents() {
        std::vector<std::string> contents;
        for (const MailEntry& entry : Listing().entries) {
            contents.push_back(Content(entry));
        }
        std::sort(contents.begin(), contents.end());
        return contents;
    }

    std::unique_ptr<MailStoreWorld> world_;
};

using Strings = std::vector<std::string>;

TEST_P(MailStoreContract, AnEmptyInboxIsAnEmptyListing) {
    EXPECT_TRUE(Listing().entries.empty());
    EXPECT_FALSE(store().address().empty());
}

TEST_P(MailStoreContract, ListsAndReadsWhatWasDelivered) {
    Deliver("one", kReceived);
    Deliver("two and more", kReceived + 1000000000);

    const MailListing listing = Listing();

    ASSERT_EQ(listing.entries.size(), 2U);
    EXPECT_NE(listing.entries[0].key, listing.entries[1].key);
    EXPECT_EQ(Contents(), (Strings{"one", "two and more"}));
    for (const MailEntry& entry : listing.entries) {
        const bool first = Content(entry) == "one";
        EXPECT_EQ(entry.size_bytes, Mail(first ? "one" : "two and more").size_bytes());
        EXPECT_EQ(entry.received_ns, first ? kReceived : kReceived + 1000000000);
        EXPECT_GT(entry.changed_ns, 0);
    }
}

TEST_P(MailStoreContract, SaysThatNothingHasChanged) {
    Deliver("one", kReceived);
    world_->Settle();
    const MailListing known = Listing();

    const MailChange change = store().List(inbox(), &known).value();

    EXPECT_FALSE(known.stamp.empty());
    EXPECT_FALSE(change.changed);
}

TEST_P(MailStoreContract, SeesADeliveryAfterASettledListing) {
    Deliver("one", kReceived);
    world_->Settle();
    const MailListing known = Listing();
    Deliver("two", kReceived);

    const MailChange change = store().List(inbox(), &known).value();

    EXPECT_TRUE(change.changed);
    EXPECT_EQ(change.listing.entries.size(), 2U);
}

TEST_P(MailStoreContract, AFlagChangeKeepsTheKeyAndIsSeen) {
    const MailEntry before = DeliverOne("one");
    world_->Settle();
    const MailListing known = Listing();
    world_->Flag(before.key);

    const MailChange change = store().List(inbox(), &known).value();

    ASSERT_TRUE(change.changed);
    ASSERT_EQ(change.listing.entries.size(), 1U);
    EXPECT_EQ(change.listing.entries[0].key, before.key);
    EXPECT_NE(change.listing.entries[0].locator, before.locator);
    EXPECT_EQ(Content(before), "one") << "still readable as it was listed";
}

TEST_P(MailStoreContract, AMessageThatWasDeletedIsGone) {
    const MailEntry entry = DeliverOne("one");
    world_->Delete(entry.key);

    EXPECT_EQ(store().Read(inbox(), entry).error().kind, ErrorKind::kGone);
    const Error refused = RefusalOf(entry);
    EXPECT_EQ(refused.kind, ErrorKind::kGone);
    EXPECT_EQ(refused.number, static_cast<int>(kObjectDeleted));
}

TEST_P(MailStoreContract, AFolderThatIsNotThereIsNotFound) {
    EXPECT_EQ(store().List("No/Such", nullptr).error().kind, ErrorKind::kNotFound);
}

TEST_P(MailStoreContract, FoldersComeParentsFirstAndWithoutTheRoot) {
    world_->MakeFolder("Work/Old");
    world_->MakeFolder("Work");
    world_->MakeFolder("Archive");

    Strings paths;
    const auto folders = store().Folders();
    for (const MailFolder& folder : folders.value()) {
        EXPECT_FALSE(folder.path.empty());
        const bool others = folder.path == inbox() || world_->IsServersOwn(folder.path);
        if (!others) paths.push_back(folder.path);
    }

    EXPECT_LT(std::find(paths.begin(), paths.end(), "Work"),
              std::find(paths.begin(), paths.end(), "Work/Old"));
    std::sort(paths.begin(), paths.end());
    EXPECT_EQ(paths, (Strings{"Archive", "Work", "Work/Old"}));
}

TEST_P(MailStoreContract, AReplacementIsUnseenUntilItIsCommitted) {
    const MailEntry entry = DeliverOne("old");

    const auto staged = store().Stage(inbox(), entry, Mail("new one")).value();

    EXPECT_EQ(staged->content().ToString().value(), world_->MailOf("new one"));
    EXPECT_EQ(Contents(), Strings{"old"});
}

TEST_P(MailStoreContract, ACommittedReplacementTakesTheOldOnesPlace) {
    Deliver("other", kReceived);
    const MailEntry entry = DeliverOne("old");

    const MailEntry now = store().Stage(inbox(), entry, Mail("new one")).value()->Commit().value();

    EXPECT_EQ(Contents(), (Strings{"new one", "other"}));
    EXPECT_NE(now.key, entry.key) << "same key, same bytes";
    EXPECT_EQ(now.size_bytes, Mail("new one").size_bytes());
    EXPECT_EQ(now.received_ns, kReceived);
    EXPECT_EQ(Content(now), "new one");
    EXPECT_EQ(store().Read(inbox(), entry).error().kind, ErrorKind::kGone);
}

TEST_P(MailStoreContract, TheEntryOfAReplacementIsTheOneThatIsListed) {
    const MailEntry entry = DeliverOne("old");

    const MailEntry now = store().Stage(inbox(), entry, Mail("new")).value()->Commit().value();

    const MailListing listing = Listing();
    ASSERT_EQ(listing.entries.size(), 1U);
    EXPECT_EQ(listing.entries[0].key, now.key);
    EXPECT_EQ(listing.entries[0].locator, now.locator);
    EXPECT_EQ(listing.entries[0].changed_ns, now.changed_ns);
}

TEST_P(MailStoreContract, AReplacementCanBeReplacedByItsEntry) {
    const MailEntry entry = DeliverOne("old");
    const MailEntry first = store().Stage(inbox(), entry, Mail("first")).value()->Commit().value();

    const auto second = store().Stage(inbox(), first, Mail("second")).value();
    ASSERT_TRUE(second->Commit().ok());

    EXPECT_EQ(Contents(), Strings{"second"});
}

TEST_P(MailStoreContract, DroppingAStagedReplacementDiscardsIt) {
    const MailEntry entry = DeliverOne("old");

    store().Stage(inbox(), entry, Mail("new")).value().reset();

    EXPECT_EQ(Contents(), Strings{"old"});
    EXPECT_TRUE(store().Stage(inbox(), entry, Mail("new")).value()->Commit().ok());
}

TEST_P(MailStoreContract, AMessageThatWasFlaggedSinceIsNotReplaced) {
    const MailEntry entry = DeliverOne("old");
    world_->Flag(entry.key);

    const Error refused = RefusalOf(entry);

    EXPECT_EQ(refused.kind, ErrorKind::kChanged);
    EXPECT_EQ(refused.number, static_cast<int>(kObjectChanged));
    EXPECT_EQ(Contents(), Strings{"old"});
}

TEST_P(MailStoreContract, AMessageThatWasFlaggedAfterStagingIsNotReplaced) {
    const MailEntry entry = DeliverOne("old");
    auto staged = store().Stage(inbox(), entry, Mail("new")).value();
    world_->Flag(entry.key);

    EXPECT_EQ(staged->Commit().error().kind, ErrorKind::kChanged);

    staged.reset();
    EXPECT_EQ(Contents(), Strings{"old"});
}

TEST_P(MailStoreContract, AMessageThatWasDeletedAfterStagingStaysDeleted) {
    const MailEntry entry = DeliverOne("old");
    auto staged = store().Stage(inbox(), entry, Mail("new")).value();
    world_->Delete(entry.key);

    EXPECT_EQ(staged->Commit().error().kind, ErrorKind::kGone);

    staged.reset();
    EXPECT_TRUE(Contents().empty());
}

TEST_P(MailStoreContract, OfTwoReplacementsOfOneMessageOnlyTheFirstIsDone) {
    const MailEntry entry = DeliverOne("old");
    const auto first = store().Stage(inbox(), entry, Mail("first")).value();
    const auto second = store().Stage(inbox(), entry, Mail("second")).value();

    EXPECT_TRUE(first->Commit().ok());
    EXPECT_FALSE(second->Commit().ok());

    EXPECT_EQ(Contents(), Strings{"first"});
}

TEST_P(MailStoreContract, ACommitCannotBeRepeated) {
    const MailEntry entry = DeliverOne("old");
    const auto staged = store().Stage(inbox(), entry, Mail("new")).value();
    ASSERT_TRUE(staged->Commit().ok());

    EXPECT_FALSE(staged->Commit().ok());

    EXPECT_EQ(Contents(), Strings{"new"});
}

TEST_P(MailStoreContract, AnEmptyReplacementIsKept) {
    if (!world_->TakesEmptyMessages()) GTEST_SKIP() << "to IMAP no bytes are no message";
    const MailEntry entry = DeliverOne("old");

    ASSERT_TRUE(store().Stage(inbox(), entry, Blob()).value()->Commit().ok());

    EXPECT_EQ(Contents(), Strings{""});
}

TEST_P(MailStoreContract, ContentThatCannotBeReadIsNotStaged) {
    class Unreadable final : public Blob::Source {
     public:
        std::uint64_t size_bytes() const override { return 10; }
        Status ReadAt(std::uint64_t, char*, std::size_t) const override {
            return MessagingError(kDiskError);
        }
    };
    const MailEntry entry = DeliverOne("old");

    const auto staged = store().Stage(inbox(), entry, Blob(std::make_shared<Unreadable>()));

    EXPECT_EQ(staged.error().kind, ErrorKind::kIo);
    EXPECT_EQ(Contents(), Strings{"old"});
}

}  // namespace trevix::contract
