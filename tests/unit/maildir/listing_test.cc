#include "platform/maildir/listing.h"

#include "unit/maildir/maildir_world.h"

namespace trevix::maildir {
namespace {

Strings Keys(const MailListing& listing) {
    Strings keys;
    for (const MailEntry& entry : listing.entries) {
        keys.push_back(entry.key);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

TEST(MaildirStoreList, TakesTimesAndSizeFromTheFile) {
    MaildirWorld world;
    world.Put("cur/1.h,S=5,W=6:2,FS", "hello", 5 * kSecondNs + 7);
    world.Open();

    const MailEntry entry = world.Entry("1.h");

    EXPECT_EQ(entry.size_bytes, 5U);
    EXPECT_EQ(entry.received_ns, 5 * kSecondNs + 7);
    const struct stat about = world.About("cur/1.h,S=5,W=6:2,FS");
    EXPECT_EQ(entry.changed_ns, about.st_ctim.tv_sec * kSecondNs + about.st_ctim.tv_nsec);
}

TEST(MaildirStoreList, ListsNewAndCur) {
    MaildirWorld world;
    world.Put("new/1.h", "a");
    world.Put("cur/2.h:2,", "b");
    world.Put("tmp/3.h", "c");
    world.Open();

    EXPECT_EQ(Keys(world.List()), (Strings{"1.h", "2.h"}));
}

TEST(MaildirStoreList, LeavesOutWhatIsNoMessageFile) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "a");
    world.Put("cur/.hidden", "b");
    std::filesystem::create_directory(world / "cur/directory");
    std::filesystem::create_symlink("1.h:2,S", world / "cur/link:2,S");
    std::filesystem::create_symlink("none", world / "cur/dangling");
    ASSERT_EQ(::mkfifo((world / "cur/fifo").c_str(), 0600), 0);
    world.Open();

    EXPECT_EQ(Keys(world.List()), Strings{"1.h"});
}

TEST(MaildirStoreList, ListsTheLongestNames) {
    MaildirWorld world;
    const std::string base(250, 'b');
    world.Put("cur/" + base + ":2,FS", "long");
    world.Open();

    EXPECT_EQ(Keys(world.List()), Strings{base});
}

TEST(MaildirStoreList, ListsTwoFilesOfOneBaseUnderTwoKeys) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    world.Put("cur/1.h:2,FS", "two");
    world.Put("new/1.h", "three");
    world.Open();

    const MailListing listing = world.List();

    ASSERT_EQ(listing.entries.size(), 3U);
    std::map<std::string, std::string> contents;
    for (const MailEntry& entry : listing.entries) {
        contents[entry.key] = world.store->Read("", entry).value().ToString().value();
    }
    ASSERT_EQ(contents.size(), 3U);
    Strings all;
    for (const auto& [key, content] : contents) {
        all.push_back(content);
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all, (Strings{"one", "three", "two"}));
    EXPECT_EQ(Keys(world.List()), Keys(listing));
}

TEST(MaildirStoreList, ReplacesTheRightOneOfTwoFilesOfOneBase) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    world.Put("cur/1.h:2,FS", "two");
    world.Open();
    const MailListing listing = world.List();

    for (const MailEntry& entry : listing.entries) {
        const std::string content = world.store->Read("", entry).value().ToString().value();
        auto staged = world.store->Stage("", entry, Blob::FromString("new " + content)).value();
        ASSERT_TRUE(staged->Commit().ok());
    }

    EXPECT_EQ(world.Mail(), (Strings{"new one", "new two"}));
}

TEST(MaildirStoreList, KeepsBothNamesOfOneFile) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    std::filesystem::create_hard_link(world / "cur/1.h:2,S", world / "new/1.h");
    world.Open();

    EXPECT_EQ(world.List().entries.size(), 2U);
}

TEST(MaildirStoreList, TakesOverWhatHasNotChanged) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    world.Put("cur/2.h:2,S", "two");
    MaildirStore& store = world.Open();
    MailListing known = world.List();
    for (MailEntry& entry : known.entries) {
        entry.changed_ns = 77;  // a mark that no file has
    }
    world.Rename("cur/2.h:2,S", "cur/2.h:2,FS");

    const MailChange change = store.List("", &known).value();

    ASSERT_TRUE(change.changed);
    ASSERT_EQ(change.listing.entries.size(), 2U);
    for (const MailEntry& entry : change.listing.entries) {
        EXPECT_EQ(entry.changed_ns == 77, entry.key == "1.h") << entry.key;
    }
}

TEST(MaildirStoreList, LooksAgainAtAFileOfAKnownNameWithAnotherInode) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    MaildirStore& store = world.Open();
    const MailListing known = world.List();
    world.Put("tmp/x", "another");
    world.Rename("tmp/x", "cur/1.h:2,S");

    const MailChange change = store.List("", &known).value();

    ASSERT_EQ(change.listing.entries.size(), 1U);
    EXPECT_EQ(change.listing.entries[0].size_bytes, 7U);
}

TEST(MaildirStoreList, LooksAtEverythingAfterAListingProvedWrong) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    MaildirStore& store = world.Open();
    const MailListing known = world.List();
    world.SetTime("cur/1.h:2,S", 99 * kSecondNs);  // does not show in the directory
    ASSERT_FALSE(store.List("", &known).value().changed);
    ASSERT_EQ(store.Stage("", known.entries[0], Blob()).error().kind, ErrorKind::kChanged);

    const MailChange change = store.List("", &known).value();

    ASSERT_TRUE(change.changed);
    EXPECT_EQ(change.listing.entries[0].received_ns, 99 * kSecondNs);
    EXPECT_FALSE(store.List("", &change.listing).value().changed);
}

TEST(MaildirStoreList, DoesNotTrustAListingOfARecentChange) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    MaildirStore& store = world.Open();
    const struct stat about = world.About("cur");
    const std::int64_t changed = std::max(about.st_mtim.tv_sec * kSecondNs + about.st_mtim.tv_nsec,
                                          StampOf(AT_FDCWD, world.root()).latest_ns);

    world.clock.now_ns = changed + kSecondNs / 10;
    EXPECT_TRUE(store.List("", nullptr).value().listing.stamp.empty());
    world.clock.now_ns = changed + kSecondNs / 10 + 1;
    const bool fine = changed % kSecondNs != 0;
    EXPECT_EQ(store.List("", nullptr).value().listing.stamp.empty(), !fine);
}

TEST(MaildirStoreList, TrustsWholeSecondsOnlyAfterALongerTime) {
    MaildirWorld world;
    world.SetTime("cur", 1000 * kSecondNs);
    world.SetTime("new", 1000 * kSecondNs);
    MaildirStore& store = world.Open();

    world.clock.now_ns = 1000 * kSecondNs + kSecondNs / 10 * 25;
    EXPECT_TRUE(store.List("", nullptr).value().listing.stamp.empty());
    world.clock.now_ns += 1;
    EXPECT_FALSE(store.List("", nullptr).value().listing.stamp.empty());
}

TEST(MaildirStoreList, DoesNotTrustATimeInTheFuture) {
    MaildirWorld world;
    world.SetTime("cur", 5000000000 * kSecondNs + 1);

    EXPECT_TRUE(world.Open().List("", nullptr).value().listing.stamp.empty());
}

TEST(MaildirStoreList, SeesAChangeInEitherDirectory) {
    MaildirWorld world;
    MaildirStore& store = world.Open();
    world.SetTime("cur", 1000 * kSecondNs);
    world.SetTime("new", 1000 * kSecondNs);
    const MailListing known = world.List();
    ASSERT_FALSE(known.stamp.empty());
    ASSERT_FALSE(store.List("", &known).value().changed);

    world.SetTime("new", 1001 * kSecondNs);
    EXPECT_TRUE(store.List("", &known).value().changed);
    world.SetTime("new", 1000 * kSecondNs);
    world.SetTime("cur", 1001 * kSecondNs);
    EXPECT_TRUE(store.List("", &known).value().changed);
}

TEST(MaildirStoreList, WorksWithoutNew) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    std::filesystem::remove(world / "new");
    world.Open();

    EXPECT_EQ(Keys(world.List()), Strings{"1.h"});
    EXPECT_TRUE(world.Replace("1.h", "changed").ok());
    EXPECT_EQ(world.Get("cur/" + world.Names("cur")[0]), "changed");
}

TEST(MaildirStoreRead, FindsAMessageThatWasFlaggedAndMoved) {
    MaildirWorld world;
    world.Put("new/1.h", "one");
    MaildirStore& store = world.Open();
    const MailEntry entry = world.Entry("1.h");
    world.Rename("new/1.h", "cur/1.h:2,FS");

    EXPECT_EQ(store.Read("", entry).value().ToString().value(), "one");
}

TEST(MaildirStoreRead, DoesNotFollowALinkInTheMessagesPlace) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    world.Put("secret", "one");
    MaildirStore& store = world.Open();
    const MailEntry entry = world.Entry("1.h");
    world.Remove("cur/1.h:2,S");
    std::filesystem::create_symlink("../secret", world / "cur/1.h:2,S");

    EXPECT_FALSE(store.Read("", entry).ok());
}

TEST(MaildirStoreRead, SeesAnotherFolderInTheOpenOnesPlace) {
    MaildirWorld world;
    world.MakeMaildir(".A");
    world.Put(".A/cur/1.h:2,S", "first");
    MaildirStore& store = world.Open();
    const MailEntry first = world.Entry("1.h", "A");
    ASSERT_TRUE(store.Read("A", first).ok());
    world.Rename(".A", ".B");
    world.MakeMaildir(".A");
    world.Put(".A/cur/2.h:2,S", "second");

    EXPECT_EQ(store.Read("A", first).error().kind, ErrorKind::kGone);
    EXPECT_EQ(store.Read("A", world.Entry("2.h", "A")).value().ToString().value(), "second");
}

TEST(MaildirStoreRead, RefusesAnotherFileOfThatName) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "one");
    MaildirStore& store = world.Open();
    const MailEntry entry = world.Entry("1.h");
    world.Put("tmp/x", "two");
    world.Rename("tmp/x", "cur/1.h:2,S");

    EXPECT_EQ(store.Read("", entry).error().kind, ErrorKind::kChanged);
}

TEST(MaildirStoreRead, RefusesALocatorThatIsNotOurs) {
    MaildirWorld world;
    MaildirStore& store = world.Open();
    MailEntry entry;
    entry.locator = "c 1 2 3 4 ../secret";

    EXPECT_EQ(store.Read("", entry).error().kind, ErrorKind::kMalformed);
    EXPECT_EQ(store.Stage("", entry, Blob()).error().kind, ErrorKind::kMalformed);
}

}  // namespace
}  // namespace trevix::maildir
