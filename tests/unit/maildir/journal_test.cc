#include "platform/maildir/journal.h"

#include <sys/file.h>

#include "unit/maildir/maildir_world.h"

namespace trevix::maildir {
namespace {

JournalRecord Record() {
    return {7, ".Work", Identity{Place::kNew, "1.h", 11, 12, 13, 14},
            Identity{Place::kCur, "2.h:2,S", 21, 22, 23, 24}};
}

struct OpenRoot {
    MaildirWorld world;
    UniqueDescriptor root{::open(world.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
};

std::vector<JournalRecord> Stored(const OpenRoot& open) {
    const UniqueDescriptor file(
        ::open((open.world / open.world.Journals().at(0)).c_str(), O_RDONLY | O_CLOEXEC));
    return ReadJournal(file.get());
}

TEST(JournalRecord, ComesBackAsItWentIn) {
    const auto back = DecodeRecord(EncodeRecord(Record()));

    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->sequence, 7U);
    EXPECT_EQ(back->directory, ".Work");
    EXPECT_EQ(back->old_mail.name, "1.h");
    EXPECT_EQ(back->old_mail.place, Place::kNew);
    EXPECT_EQ(back->old_mail.mtime_ns, 13);
    EXPECT_EQ(back->new_mail.name, "2.h:2,S");
    EXPECT_EQ(back->new_mail.inode, 21U);
}

TEST(JournalRecord, IsRefusedWhenAnyByteIsDamaged) {
    const std::string good = EncodeRecord(Record());

    for (std::size_t at = 0; at < good.size(); at += at < 200 ? 1 : 97) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 1);
        EXPECT_FALSE(DecodeRecord(bad).has_value()) << at;
    }
    EXPECT_FALSE(DecodeRecord(good.substr(0, good.size() - 1)).has_value());
    EXPECT_FALSE(DecodeRecord(std::string(good.size(), '\0')).has_value());
}

TEST(JournalRecord, ThatDoesNotFitIsEmpty) {
    JournalRecord record = Record();
    record.directory = std::string(9000, 'd');

    EXPECT_EQ(EncodeRecord(record), "");
}

TEST(JournalCreate, MakesAPrivateLockedFile) {
    const OpenRoot open;
    const auto journal = Journal::Create(open.root.get()).value();

    ASSERT_EQ(open.world.Journals(), Strings{"trevix-journal." + journal->id()});
    EXPECT_EQ(open.world.About(open.world.Journals()[0]).st_mode & 07777U, 0600U);
    const UniqueDescriptor other(
        ::open((open.world / open.world.Journals()[0]).c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_NE(::flock(other.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_TRUE(Stored(open).empty());
}

TEST(JournalBegin, KeepsTheLastTwoRecordsInOrder) {
    const OpenRoot open;
    const auto journal = Journal::Create(open.root.get()).value();

    for (const char* name : {"1.h", "2.h", "3.h"}) {
        JournalRecord record = Record();
        record.old_mail.name = name;
        ASSERT_TRUE(journal->Begin(record).ok());
    }

    const auto stored = Stored(open);
    ASSERT_EQ(stored.size(), 2U);
    EXPECT_EQ(stored[0].old_mail.name, "2.h");
    EXPECT_EQ(stored[1].old_mail.name, "3.h");
    EXPECT_EQ(stored[1].sequence, 3U);
}

TEST(JournalEnd, RemovesTheFile) {
    const OpenRoot open;
    auto journal = Journal::Create(open.root.get()).value();
    ASSERT_TRUE(journal->Begin(Record()).ok());
    journal->Pending(open.root.get());

    journal.reset();

    EXPECT_TRUE(open.world.Journals().empty());
}

TEST(JournalEnd, LeavesABrokenJournalForTheNextOpening) {
    const OpenRoot open;
    auto journal = Journal::Create(open.root.get()).value();
    ASSERT_TRUE(journal->Begin(Record()).ok());

    journal->Break();
    EXPECT_FALSE(journal->Begin(Record()).ok());
    journal.reset();

    EXPECT_EQ(Stored(open).size(), 1U);
}

}  // namespace
}  // namespace trevix::maildir
