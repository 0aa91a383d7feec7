#include "platform/maildir/folder_tree.h"

#include "unit/maildir/maildir_world.h"

namespace trevix::maildir {
namespace {

// "path" or, for a container, "(path)".
Strings Shown(MaildirStore& store) {
    Strings shown;
    const auto folders = store.Folders();
    for (const MailFolder& folder : folders.value()) {
        shown.push_back(folder.holds_messages ? folder.path : "(" + folder.path + ")");
    }
    return shown;
}

TEST(FolderTree, TurnsTheDotsOfMaildirPlusPlusIntoLevels) {
    MaildirWorld world;
    for (const char* name : {".Work.Old", ".Work", ".Archive", ".Z.Deep.Er"}) {
        world.MakeMaildir(name);
    }

    EXPECT_EQ(Shown(world.Open()),
              (Strings{"Archive", "Work", "Work/Old", "(Z)", "(Z/Deep)", "Z/Deep/Er"}));
    EXPECT_EQ(world.store->inbox_path(), "");
}

TEST(FolderTree, WalksPlainTrees) {
    MaildirWorld world;
    world.MakeMaildir("inbox");
    world.MakeMaildir("lists/a");
    world.MakeMaildir("lists/a/b");
    std::filesystem::create_directories(world / "empty/nothing");
    for (const char* name : {"cur", "new", "tmp"}) {
        std::filesystem::remove(world / name);
    }

    EXPECT_EQ(Shown(world.Open()), (Strings{"inbox", "(lists)", "lists/a", "lists/a/b"}));
    EXPECT_EQ(world.store->inbox_path(), "inbox");
}

TEST(FolderTree, LeavesOutHiddenDirectoriesFilesAndLinks) {
    MaildirWorld world;
    std::filesystem::create_directories(world / ".notmuch/xapian");
    std::filesystem::create_directories(world / "cur/sub/cur");
    std::ofstream(world / "dovecot-uidlist") << "x";
    world.MakeMaildir("real");
    std::filesystem::create_directory_symlink("real", world / "link");
    std::filesystem::create_directory_symlink(".", world / ".loop");
    world.MakeMaildir("..odd");

    EXPECT_EQ(Shown(world.Open()), Strings{"real"});
}

TEST(FolderTree, DecodesNamesForDisplayOnly) {
    MaildirWorld world;
    world.MakeMaildir(".Entw&APw-rfe.A");

    const auto folders = world.Open().Folders();

    ASSERT_EQ(folders.value().size(), 2U);
    EXPECT_EQ(folders.value()[0].path, "Entw&APw-rfe");
    EXPECT_EQ(folders.value()[0].name, "Entw\xC3\xBCrfe");
    EXPECT_EQ(folders.value()[1].path, "Entw&APw-rfe/A");
    EXPECT_EQ(folders.value()[1].name, "A");
}

TEST(FolderTree, GivesTwoFoldersOfOnePathTwoPaths) {
    MaildirWorld world;
    world.MakeMaildir(".A.B");
    world.MakeMaildir("A/B");
    world.Put(".A.B/cur/1.h", "dotted");
    world.Put("A/B/cur/2.h", "plain");

    const Strings shown = Shown(world.Open());

    ASSERT_EQ(shown.size(), 3U);
    Strings mail;
    for (const std::string& path : shown) {
        if (path.front() == '(') continue;
        const MailListing listing = world.List(path);
        ASSERT_EQ(listing.entries.size(), 1U) << path;
        mail.push_back(listing.entries[0].key);
    }
    std::sort(mail.begin(), mail.end());
    EXPECT_EQ(mail, (Strings{"1.h", "2.h"}));
}

TEST(FolderTree, FindsAFolderThatWasMadeLater) {
    MaildirWorld world;
    world.Open();
    world.MakeMaildir(".Later");
    world.Put(".Later/new/1.h", "x");

    EXPECT_EQ(world.List("Later").entries.size(), 1U);
}

TEST(FolderTree, AContainerListsNothing) {
    MaildirWorld world;
    world.MakeMaildir("lists/a");
    world.Open();

    EXPECT_TRUE(world.List("lists").entries.empty());
}

}  // namespace
}  // namespace trevix::maildir
