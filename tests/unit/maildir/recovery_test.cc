// Journals of dead processes, built by hand for each state that a death or a loss of power leaves.
#include "platform/maildir/recovery.h"

#include <sys/file.h>

#include "platform/maildir/file_names.h"
#include "platform/maildir/journal.h"
#include "unit/maildir/maildir_world.h"

namespace trevix::maildir {
namespace {

constexpr char kJournal[] = "trevix-journal.00112233445566ff";
constexpr char kNew[] = "5.M1P2Q3T00112233445566ff.h";

struct DeadProcess {
    MaildirWorld world;
    std::string folder;  // directory below the root, with "/" at its end, or empty

    explicit DeadProcess(std::string directory = {}) : folder(std::move(directory)) {
        if (!folder.empty()) world.MakeMaildir(folder);
    }

    Identity Identify(Place place, const std::string& name) const {
        return IdentityOf(place, name, world.About(folder + DirectoryName(place) + ("/" + name)));
    }

    void Write(const std::vector<JournalRecord>& records) const {
        std::string bytes;
        for (const JournalRecord& record : records) {
            bytes += EncodeRecord(record);
        }
        bytes.resize(2 * 8192);
        world.Put(kJournal, bytes);
    }

    JournalRecord Record(const Identity& old_mail, const Identity& new_mail) const {
        const std::string directory = folder.substr(0, folder.empty() ? 0 : folder.size() - 1);
        return {1, directory, old_mail, new_mail};
    }
};

TEST(MaildirRecovery, RemovesTheOldMessageWhenTheNewOneIsThere) {
    for (const char* folder : {"", ".Work/", "tree/deep/"}) {
        DeadProcess dead(folder);
        dead.world.Put(dead.folder + "cur/1.h:2,S", "old");
        dead.world.Put(dead.folder + "cur/" + kNew + ":2,S", "new");
        dead.Write({dead.Record(dead.Identify(Place::kCur, "1.h:2,S"),
                                dead.Identify(Place::kCur, std::string(kNew) + ":2,S"))});

        dead.world.Open();

        EXPECT_EQ(dead.world.Mail(folder), Strings{"new"});
        EXPECT_FALSE(dead.world.Has(kJournal));
    }
}

TEST(MaildirRecovery, KeepsTheOldMessageWhenTheNewOneIsNotThere) {
    DeadProcess dead;
    dead.world.Put("cur/1.h:2,S", "old");
    dead.world.Put(std::string("tmp/") + kNew, "new");
    Identity staged = IdentityOf(Place::kCur, std::string(kNew) + ":2,S",
                                 dead.world.About(std::string("tmp/") + kNew));
    dead.Write({dead.Record(dead.Identify(Place::kCur, "1.h:2,S"), staged)});

    dead.world.Open();

    EXPECT_EQ(dead.world.Mail(), Strings{"old"});
    EXPECT_TRUE(dead.world.Names("tmp").empty());
    EXPECT_FALSE(dead.world.Has(kJournal));
}

TEST(MaildirRecovery, KeepsTheOldMessageWhenTheNewOneIsNotWhole) {
    DeadProcess dead;
    dead.world.Put("cur/1.h:2,S", "old");
    dead.world.Put(std::string("cur/") + kNew, "new");
    Identity recorded = dead.Identify(Place::kCur, kNew);
    recorded.size_bytes += 1;
    dead.Write({dead.Record(dead.Identify(Place::kCur, "1.h:2,S"), recorded)});

    dead.world.Open();

    EXPECT_EQ(dead.world.Mail(), (Strings{"new", "old"}));
}

TEST(MaildirRecovery, KeepsTheOldMessageWhenTheNewOnesNameIsAnotherFile) {
    DeadProcess dead;
    dead.world.Put("cur/1.h:2,S", "old");
    dead.world.Put(std::string("cur/") + kNew, "new");
    Identity recorded = dead.Identify(Place::kCur, kNew);
    recorded.inode += 1;
    dead.Write({dead.Record(dead.Identify(Place::kCur, "1.h:2,S"), recorded)});

    dead.world.Open();

    EXPECT_EQ(dead.world.Mail(), (Strings{"new", "old"}));
}

TEST(MaildirRecovery, KeepsAnOldMessageThatIsNotTheRecordedOne) {
    for (const int field : {0, 1, 2}) {
        DeadProcess dead;
        dead.world.Put("cur/1.h:2,S", "old");
        dead.world.Put(std::string("cur/") + kNew, "new");
        Identity recorded = dead.Identify(Place::kCur, "1.h:2,S");
        if (field == 0) recorded.inode += 1;
        if (field == 1) recorded.size_bytes += 1;
        if (field == 2) recorded.mtime_ns += 1;
        dead.Write({dead.Record(recorded, dead.Identify(Place::kCur, kNew))});

        dead.world.Open();

        EXPECT_EQ(dead.world.Mail(), (Strings{"new", "old"})) << field;
        EXPECT_FALSE(dead.world.Has(kJournal));
    }
}

TEST(MaildirRecovery, HasNothingToDoForAFinishedReplacement) {
    DeadProcess dead;
    dead.world.Put("cur/1.h:2,S", "old");
    const Identity gone = dead.Identify(Place::kCur, "1.h:2,S");
    dead.world.Put(std::string("cur/") + kNew, "new");
    dead.world.Remove("cur/1.h:2,S");
    dead.Write({dead.Record(gone, dead.Identify(Place::kCur, kNew))});

    dead.world.Open();

    EXPECT_EQ(dead.world.Mail(), Strings{"new"});
    EXPECT_FALSE(dead.world.Has(kJournal));
}

TEST(MaildirRecovery, FinishesTwoRecordsOfOneChain) {
    DeadProcess dead;
    const std::string second = "6.M1P2Q4T00112233445566ff.h";
    dead.world.Put("cur/1.h:2,S", "old");
    dead.world.Put(std::string("cur/") + kNew, "new");
    dead.world.Put("cur/" + second, "newer");
    JournalRecord one =
        dead.Record(dead.Identify(Place::kCur, "1.h:2,S"), dead.Identify(Place::kCur, kNew));
    JournalRecord two = dead.Record(one.new_mail, dead.Identify(Place::kCur, second));
    two.sequence = 2;
    dead.Write({two, one});

    dead.world.Open();

    EXPECT_EQ(dead.world.Mail(), Strings{"newer"});
}

TEST(MaildirRecovery, IgnoresATornRecordAndKeepsTheOther) {
    DeadProcess dead;
    dead.world.Put("cur/1.h:2,S", "old");
    dead.world.Put(std::string("cur/") + kNew, "new");
    const JournalRecord whole =
        dead.Record(dead.Identify(Place::kCur, "1.h:2,S"), dead.Identify(Place::kCur, kNew));
    dead.world.Put("cur/2.h:2,S", "other");
    JournalRecord torn = dead.Record(dead.Identify(Place::kCur, "2.h:2,S"), whole.new_mail);
    std::string bytes = EncodeRecord(torn);
    bytes.replace(4096, 4096, 4096, '\x7F');
    dead.world.Put(kJournal, bytes + EncodeRecord(whole));

    dead.world.Open();

    EXPECT_EQ(dead.world.Mail(), (Strings{"new", "other"}));
    EXPECT_FALSE(dead.world.Has(kJournal));
}

TEST(MaildirRecovery, SweepsTheDeadProcessesFilesFromEveryFolder) {
    DeadProcess dead;
    dead.world.MakeMaildir(".Work");
    const std::string own = std::string("tmp/") + kNew;
    dead.world.Put(own, "x");
    dead.world.Put(".Work/" + own + ",S=1", "x");
    dead.world.Put("tmp/5.M1P2Q3T00112233445566fe.h", "of another process");
    dead.world.Put("tmp/77.delivering.h", "of a mail program");
    dead.Write({});

    dead.world.Open();

    EXPECT_EQ(dead.world.Names("tmp"), (Strings{"5.M1P2Q3T00112233445566fe.h", "77.delivering.h"}));
    EXPECT_TRUE(dead.world.Names(".Work/tmp").empty());
    EXPECT_FALSE(dead.world.Has(kJournal));
}

TEST(MaildirRecovery, LeavesAJournalWhoseProcessLives) {
    DeadProcess dead;
    dead.world.Put("cur/1.h:2,S", "old");
    dead.world.Put(std::string("cur/") + kNew, "new");
    dead.Write(
        {dead.Record(dead.Identify(Place::kCur, "1.h:2,S"), dead.Identify(Place::kCur, kNew))});
    const UniqueDescriptor lock(::open((dead.world / kJournal).c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX | LOCK_NB), 0);

    dead.world.Open();

    EXPECT_EQ(dead.world.Mail(), (Strings{"new", "old"}));
    EXPECT_TRUE(dead.world.Has(kJournal));
}

TEST(MaildirRecovery, IsNotLedOutOfTheStore) {
    for (const char* directory : {"../outside", "..", "/", "./.Link", ".Link", "a//b"}) {
        DeadProcess dead;
        dead.world.MakeMaildir("aside/outside");
        std::filesystem::create_directory_symlink("aside/outside", dead.world / ".Link");
        dead.folder = "aside/outside/";
        dead.world.Put("aside/outside/cur/1.h:2,S", "old");
        dead.world.Put(std::string("aside/outside/cur/") + kNew, "new");
        JournalRecord record =
            dead.Record(dead.Identify(Place::kCur, "1.h:2,S"), dead.Identify(Place::kCur, kNew));
        record.directory = directory;
        dead.Write({record});

        dead.world.Open();

        EXPECT_EQ(dead.world.Mail("aside/outside"), (Strings{"new", "old"})) << directory;
    }
}

TEST(MaildirRecovery, LeavesLinksAndOddFilesOfThatNameAlone) {
    MaildirWorld world;
    world.Put("target", "x");
    std::filesystem::create_symlink("target", world / kJournal);
    ASSERT_EQ(::mkfifo((world / "trevix-journal.00112233445566aa").c_str(), 0600), 0);
    world.Put("trevix-journal.txt", "notes");

    world.Open();

    EXPECT_EQ(world.Journals().size(), 3U);
    EXPECT_TRUE(world.Has("target"));
}

TEST(MaildirRecovery, ForgetsAFolderThatIsGone) {
    DeadProcess dead(".Work/");
    dead.world.Put(".Work/cur/1.h:2,S", "old");
    dead.world.Put(std::string(".Work/cur/") + kNew, "new");
    dead.Write(
        {dead.Record(dead.Identify(Place::kCur, "1.h:2,S"), dead.Identify(Place::kCur, kNew))});
    std::filesystem::rename(dead.world / ".Work", dead.world / ".Renamed");

    dead.world.Open();

    EXPECT_EQ(dead.world.Mail(".Renamed"), (Strings{"new", "old"}));
    EXPECT_FALSE(dead.world.Has(kJournal));
}

}  // namespace
}  // namespace trevix::maildir
