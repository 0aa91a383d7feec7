// What a replacement keeps of the old message, and what it refuses.
#include "platform/maildir/replacement.h"

#include "platform/maildir/file_names.h"
#include "unit/maildir/maildir_world.h"

namespace trevix::maildir {
namespace {

std::string OnlyName(const MaildirWorld& world, const std::string& directory) {
    const Strings names = world.Names(directory);
    EXPECT_EQ(names.size(), 1U);
    return names.empty() ? std::string() : names[0];
}

TEST(MaildirReplace, KeepsFlagsTimeModeAndPlace) {
    MaildirWorld world;
    world.Put("cur/1.h:2,FRSa", "old");
    ASSERT_EQ(::chmod((world / "cur/1.h:2,FRSa").c_str(), 0640), 0);
    world.Open();

    ASSERT_TRUE(world.Replace("1.h", "new").ok());

    const std::string name = OnlyName(world, "cur");
    EXPECT_EQ(world.Get("cur/" + name), "new");
    EXPECT_EQ(SuffixOf(name), ":2,FRSa");
    EXPECT_EQ(name.find(','), name.find(":2,") + 2) << "no field that the old name had not";
    const struct stat about = world.About("cur/" + name);
    EXPECT_EQ(about.st_mode & 07777U, 0640U);
    EXPECT_EQ(about.st_mtim.tv_sec * kSecondNs + about.st_mtim.tv_nsec, kReceived);
    EXPECT_EQ(about.st_nlink, 1U);
    EXPECT_TRUE(world.Names("tmp").empty());
    EXPECT_TRUE(world.Names("new").empty());
}

TEST(MaildirReplace, KeepsANewMessageNew) {
    MaildirWorld world;
    world.Put("new/1.h", "old");
    world.Open();

    ASSERT_TRUE(world.Replace("1.h", "new").ok());

    EXPECT_EQ(SuffixOf(OnlyName(world, "new")), "");
    EXPECT_TRUE(world.Names("cur").empty());
}

TEST(MaildirReplace, KeepsOwnerAndGroup) {
    if (::geteuid() != 0) GTEST_SKIP() << "only the administrator can give files away";
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    ASSERT_EQ(::chown((world / "cur/1.h:2,S").c_str(), 1234, 5678), 0);
    ASSERT_EQ(::chmod((world / "cur/1.h:2,S").c_str(), 0460), 0);
    world.Open();

    ASSERT_TRUE(world.Replace("1.h", "new").ok());

    const struct stat about = world.About("cur/" + OnlyName(world, "cur"));
    EXPECT_EQ(about.st_uid, 1234U);
    EXPECT_EQ(about.st_gid, 5678U);
    EXPECT_EQ(about.st_mode & 07777U, 0460U);
}

TEST(MaildirReplace, TellsTheTrueSizesWhereTheOldNameTold) {
    MaildirWorld world;
    world.Put("cur/1.h,S=3,W=4,U=9:2,S", "old");
    world.Open();

    ASSERT_TRUE(world.Replace("1.h", "a\nb\r\n\nc\r").ok());

    const std::string name = OnlyName(world, "cur");
    EXPECT_TRUE(name.ends_with(",S=8,W=10:2,S")) << name;
    EXPECT_EQ(name.find(",U="), std::string::npos);
}

TEST(MaildirReplace, CountsALineEndThatIsCutBetweenTwoPieces) {
    MaildirWorld world;
    world.Put("cur/1.h,W=4:2,S", "old");
    world.Open();
    const std::string content = std::string(256 * 1024 - 1, 'x') + "\r\n" + "\n";

    ASSERT_TRUE(world.Replace("1.h", content).ok());

    const std::string name = OnlyName(world, "cur");
    EXPECT_TRUE(name.ends_with(",W=" + std::to_string(content.size() + 1) + ":2,S")) << name;
    EXPECT_EQ(world.Get("cur/" + name), content);
}

TEST(MaildirReplace, KeepsALongNameWithinBounds) {
    MaildirWorld world;
    const std::string flags(200, 'a');
    world.Put("cur/1.h:2," + flags, "old");
    world.Open();

    ASSERT_TRUE(world.Replace("1.h", "new").ok());

    const std::string name = OnlyName(world, "cur");
    EXPECT_LE(name.size(), 255U);
    EXPECT_EQ(SuffixOf(name), ":2," + flags);
}

TEST(MaildirReplace, RefusesWhatCannotBeNamedAndLeavesTheOldMessage) {
    MaildirWorld world;
    const std::string flags(245, 'a');
    world.Put("cur/1.h:2," + flags, "old");
    world.Open();

    EXPECT_FALSE(world.Replace("1.h", "new").ok());

    EXPECT_EQ(world.Names("cur"), Strings{"1.h:2," + flags});
    EXPECT_TRUE(world.Names("tmp").empty());
    world.Put("cur/2.h:2,S", "old");
    EXPECT_TRUE(world.Replace("2.h", "new").ok()) << "a refusal is no lasting damage";
}

TEST(MaildirReplace, AddsALineToTheQuotaFileThatIsThere) {
    MaildirWorld world;
    world.Put("maildirsize", "1000S\n500 3\n");
    world.Put("cur/1.h:2,S", "a long old message");
    world.Open();

    ASSERT_TRUE(world.Replace("1.h", "short").ok());

    EXPECT_EQ(world.Get("maildirsize"), "1000S\n500 3\n-13 0\n");
}

TEST(MaildirReplace, MakesNoQuotaFile) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    world.Open();

    ASSERT_TRUE(world.Replace("1.h", "new").ok());

    EXPECT_FALSE(world.Has("maildirsize"));
}

TEST(MaildirReplace, WorksInASubfolder) {
    MaildirWorld world;
    world.MakeMaildir(".Work.Old");
    world.Put(".Work.Old/cur/1.h:2,S", "old");
    world.Open();

    ASSERT_TRUE(world.Replace("1.h", "new", "Work/Old").ok());

    EXPECT_EQ(world.Mail(".Work.Old"), Strings{"new"});
}

TEST(MaildirReplace, LeavesNoJournalAfterTheStoreIsClosed) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    world.Open();
    ASSERT_TRUE(world.Replace("1.h", "new").ok());
    EXPECT_EQ(world.Journals().size(), 1U);

    world.store.reset();

    EXPECT_EQ(world.Names(""), (Strings{"cur", "new", "tmp"}));
}

TEST(MaildirReplace, MakesNoJournalForReading) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    MaildirStore& store = world.Open();

    ASSERT_TRUE(store.Read("", world.Entry("1.h")).ok());

    EXPECT_TRUE(world.Journals().empty());
}

TEST(MaildirReplace, ManyInSeveralFoldersAllSucceed) {
    MaildirWorld world;
    world.MakeMaildir(".A");
    Strings expected;
    for (int at = 0; at < 12; ++at) {
        const std::string number = std::to_string(at);
        world.Put(
            std::string(at % 2 == 0 ? "" : ".A/") + (at % 3 == 0 ? "new/" : "cur/") + number + ".h",
            "old " + number);
        if (at % 2 == 0) expected.push_back("new " + number);
    }
    std::sort(expected.begin(), expected.end());
    world.Open();

    for (int at = 0; at < 12; ++at) {
        const std::string number = std::to_string(at);
        ASSERT_TRUE(world.Replace(number + ".h", "new " + number, at % 2 == 0 ? "" : "A").ok());
    }

    EXPECT_EQ(world.Mail(), expected);
    EXPECT_EQ(world.Mail(".A").size(), 6U);
}

TEST(MaildirReplace, AStagedFileOutlivesTheStore) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    MaildirStore& store = world.Open();
    auto staged = store.Stage("", world.Entry("1.h"), Blob::FromString("new")).value();
    world.store.reset();

    EXPECT_TRUE(staged->Commit().ok());
    staged.reset();

    EXPECT_EQ(world.Mail(), Strings{"new"});
    EXPECT_TRUE(world.Journals().empty());
}

TEST(MaildirReplace, RefusesAFolderReachedOverALink) {
    MaildirWorld world;
    world.MakeMaildir(".A");
    world.Put(".A/cur/1.h:2,S", "old");
    MaildirStore& store = world.Open();
    const MailEntry entry = world.Entry("1.h", "A");
    std::filesystem::create_directory(world / "aside");
    world.Rename(".A", "aside/A");
    std::filesystem::create_directory_symlink("aside/A", world / ".A");

    EXPECT_FALSE(store.Stage("A", entry, Blob::FromString("new")).ok());

    EXPECT_EQ(world.Mail("aside/A"), Strings{"old"});
}

TEST(MaildirReplace, RefusesAFileThatWasWrittenOver) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    MaildirStore& store = world.Open();
    const MailEntry entry = world.Entry("1.h");
    auto staged = store.Stage("", entry, Blob::FromString("new")).value();
    world.Put("cur/1.h:2,S", "OLD", kReceived + 1);

    EXPECT_EQ(staged->Commit().error().kind, ErrorKind::kChanged);

    staged.reset();
    EXPECT_EQ(world.Mail(), Strings{"OLD"});
    EXPECT_TRUE(world.Names("tmp").empty());
}

}  // namespace
}  // namespace trevix::maildir
