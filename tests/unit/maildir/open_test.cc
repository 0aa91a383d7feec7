#include <sys/wait.h>

#include "unit/maildir/maildir_world.h"

namespace trevix::maildir {
namespace {

using testing::TempDir;

Error Refusal(const std::string& path) {
    TestClock clock;
    const auto opened = OpenMaildir(path, nullptr, clock);
    EXPECT_FALSE(opened.ok());
    return opened.ok() ? Error{} : opened.error();
}

TEST(OpenMaildir, NamesADirectoryThatIsNotThere) {
    const Error error = Refusal("/nonexistent/Mail dir");

    EXPECT_EQ(error.kind, ErrorKind::kIo);
    EXPECT_EQ(error.number, static_cast<int>(kFailOneProvider));
    EXPECT_EQ(error.description,
              "There is no directory /nonexistent/Mail dir; give the directory that holds the "
              "folders cur, new and tmp. [Collaboration Data Objects - "
              "[MAPI_E_FAILONEPROVIDER(8004011D)]]");
}

TEST(OpenMaildir, RefusesAFile) {
    MaildirWorld world;
    world.Put("file", "x");

    const Error error = Refusal(world / "file");

    EXPECT_EQ(error.number, static_cast<int>(kFailOneProvider));
    EXPECT_NE(error.description.find("is no directory; give"), std::string::npos);
}

TEST(OpenMaildir, RefusesADirectoryWithoutMail) {
    MaildirWorld world;
    std::filesystem::create_directories(world / "plain/deeper");

    const Error error = Refusal(world / "plain");

    EXPECT_EQ(error.kind, ErrorKind::kIo);
    EXPECT_EQ(error.number, static_cast<int>(kFailOneProvider));
    EXPECT_NE(error.description.find("plain holds no mail"), std::string::npos);
}

TEST(OpenMaildir, GivesOneAddressForAllSpellings) {
    MaildirWorld world;
    std::filesystem::create_directory_symlink(world.root(), world / "link");
    TestClock clock;

    const auto opened = OpenMaildir(world / "link/./cur/..//", nullptr, clock).value();

    EXPECT_EQ(opened->address(), "maildir:" + std::filesystem::canonical(world.root()).string());
    EXPECT_EQ(opened->display_name(), std::filesystem::path(world.root()).filename().string());
}

// Runs `work` in a child process that is not the administrator; its result is the exit status.
template <typename Work>
int AsNobody(Work&& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        constexpr uid_t kNobody = 65534;
        if (::geteuid() == 0 && (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)) ::_exit(99);
        ::_exit(work());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 98;
}

TEST(OpenMaildir, SaysThatAFolderCannotBeRead) {
    MaildirWorld world;
    world.MakeMaildir(".Locked");
    ASSERT_EQ(::chmod(world.root().c_str(), 0755), 0);
    ASSERT_EQ(::chmod((world / ".Locked").c_str(), 0), 0);

    const int outcome = AsNobody([&] {
        TestClock clock;
        auto opened = OpenMaildir(world.root(), nullptr, clock);
        if (!opened.ok()) return 1;
        const auto folders = opened.value()->Folders();
        if (!folders.ok() || folders.value().size() != 1) return 2;
        const auto listed = opened.value()->List("Locked", nullptr);
        if (listed.ok() || listed.error().number != static_cast<int>(kFailOneProvider)) return 3;
        return listed.error().description.find("permission") != std::string::npos ? 0 : 4;
    });

    ::chmod((world / ".Locked").c_str(), 0755);
    EXPECT_EQ(outcome, 0);
}

TEST(OpenMaildir, SaysThatTheTopCannotBeRead) {
    MaildirWorld world;
    ASSERT_EQ(::chmod(world.root().c_str(), 0711), 0);

    const int outcome = AsNobody([&] {
        TestClock clock;
        const auto opened = OpenMaildir(world.root(), nullptr, clock);
        if (opened.ok() || opened.error().number != static_cast<int>(kFailOneProvider)) return 1;
        return opened.error().description.find(world.root()) != std::string::npos ? 0 : 2;
    });

    EXPECT_EQ(outcome, 0);
}

TEST(MaildirStoreStage, IsDeniedInAReadOnlyStoreAndWritesNothing) {
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    ASSERT_EQ(::chmod(world.root().c_str(), 0755), 0);

    const int outcome = AsNobody([&] {
        TestClock clock;
        auto opened = OpenMaildir(world.root(), nullptr, clock);
        if (!opened.ok()) return 1;
        const auto listed = opened.value()->List("", nullptr);
        if (!listed.ok() || listed.value().listing.entries.size() != 1) return 2;
        const auto staged =
            opened.value()->Stage("", listed.value().listing.entries[0], Blob::FromString("new"));
        if (staged.ok()) return 3;
        return staged.error().kind == ErrorKind::kDenied ? 0 : 4;
    });

    EXPECT_EQ(outcome, 0);
    EXPECT_EQ(world.Names(""), (Strings{"cur", "new", "tmp"}));
    EXPECT_TRUE(world.Names("tmp").empty());
    EXPECT_EQ(world.Mail(), Strings{"old"});
}

TEST(MaildirStoreStage, IsDeniedWhereTheOwnerCannotBeKept) {
    if (::geteuid() != 0) GTEST_SKIP() << "only the administrator can make another's file";
    MaildirWorld world;
    world.Put("cur/1.h:2,S", "old");
    for (const char* name : {"", "cur", "new", "tmp"}) {
        ASSERT_EQ(::chmod((world / name).c_str(), 0777), 0);
    }

    const int outcome = AsNobody([&] {
        TestClock clock;
        auto opened = OpenMaildir(world.root(), nullptr, clock);
        if (!opened.ok()) return 1;
        const auto listed = opened.value()->List("", nullptr);
        const auto staged =
            opened.value()->Stage("", listed.value().listing.entries[0], Blob::FromString("new"));
        return !staged.ok() && staged.error().kind == ErrorKind::kDenied ? 0 : 2;
    });

    EXPECT_EQ(outcome, 0);
    EXPECT_TRUE(world.Names("tmp").empty());
    EXPECT_EQ(world.Mail(), Strings{"old"});
}

}  // namespace
}  // namespace trevix::maildir
