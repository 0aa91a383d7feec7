#include "cli/folder_list.h"

#include <gmock/gmock.h>

#include "support/world.h"

namespace trevix::cli {
namespace {

using testing::HasSubstr;

struct Folders {
    Folders() {
        world.inbox->Add("F2", "Work");
        auto& root = world.messaging.state.stores.front()->root;
        auto& archive = root.Add("F3", "Archive");
        archive.Add("F4", "2019");
        archive.Add("F5", "2020");
        root.Add("F6", "ARCHIVE");
        world.Logon();
        auto listed = ListFolders(*world.ci.gMAPISession);
        if (listed.ok()) list = std::move(listed).value();
    }

    std::string IdOf(const std::string& path) const {
        const auto found = FindFolder(list, path);
        return found.ok() ? found.value().id : "none: " + found.error().description;
    }

    test::World world;
    std::vector<FolderEntry> list;
};

TEST(ListFolders, GivesParentsBeforeChildrenWithPathsAndDepths) {
    const Folders folders;

    std::vector<std::string> lines;
    for (const FolderEntry& folder : folders.list) {
        lines.push_back(folder.store_id + " " + folder.path + " " + std::to_string(folder.depth));
    }

    EXPECT_THAT(lines,
                testing::ElementsAre("51 Inbox 0", "51 Inbox/Work 1", "51 Archive 0",
                                     "51 Archive/2019 1", "51 Archive/2020 1", "51 ARCHIVE 0"));
}

TEST(FindFolder, TakesAnExactSpellingBeforeAnother) {
    const Folders folders;

    EXPECT_EQ(folders.IdOf("Archive"), "F3");
    EXPECT_EQ(folders.IdOf("ARCHIVE"), "F6");
    EXPECT_EQ(folders.IdOf("/Inbox/Work/"), "F2");
}

TEST(FindFolder, DoesWithoutCaseWhereOnlyOneMatches) {
    const Folders folders;

    EXPECT_EQ(folders.IdOf("inbox/WORK"), "F2");
    EXPECT_EQ(FindFolder(folders.list, "archive").error().kind, ErrorKind::kMalformed);
    EXPECT_THAT(FindFolder(folders.list, "archive").error().description,
                HasSubstr("\"Archive\" in Anna's mail, \"ARCHIVE\""));
}

TEST(FindFolder, NamesTheClosestForAnUnknownOne) {
    const Folders folders;

    EXPECT_EQ(FindFolder(folders.list, "Archive/2018").error().kind, ErrorKind::kNotFound);
    EXPECT_THAT(folders.IdOf("Archive/2018"), HasSubstr("\"Archive/2019\""));
    EXPECT_THAT(folders.IdOf("Wrok"), HasSubstr("\"Inbox/Work\""));
    EXPECT_EQ(FindFolder(folders.list, "").error().kind, ErrorKind::kNotFound);
}

}  // namespace
}  // namespace trevix::cli
