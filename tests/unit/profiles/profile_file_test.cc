#include "platform/profiles/profile_file.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "unit/posix/scratch.h"

namespace trevix::profiles {
namespace {

using test::Exists;
using test::Get;
using test::ModeOf;
using test::Put;
using test::Scratch;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kHome =
    "# mail at home\n"
    "[home]\n"
    "user = Ann Example\n"
    "store = maildir:/home/ann/Maildir\n"
    "  store=maildir:/home/ann/My Archive  \n"
    "inbox = maildir:/home/ann/My Archive\n";

struct Malformed {
    const char* name;
    const char* text;
    const char* complaint;
};

void PrintTo(const Malformed& row, std::ostream* out) {
    *out << row.name;
}

std::string CaseName(const testing::TestParamInfo<Malformed>& row) {
    return row.param.name;
}

class ProfileFileMalformed : public testing::TestWithParam<Malformed> {};

TEST_P(ProfileFileMalformed, IsReportedWithItsLineAndNeverOverwritten) {
    const Scratch scratch;
    const std::string path = scratch / "profiles.conf";
    Put(path, GetParam().text);
    ProfileFile file(path);

    const auto list = file.List();
    const Status added = file.Add({"new", "", {"maildir:/x"}, ""});
    const Status removed = file.Remove("home");

    ASSERT_FALSE(list.ok());
    EXPECT_EQ(list.error().kind, ErrorKind::kMalformed);
    EXPECT_EQ(list.error().description, path + GetParam().complaint);
    EXPECT_FALSE(added.ok());
    EXPECT_FALSE(removed.ok());
    EXPECT_EQ(Get(path), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ProfileFileMalformed,
    testing::Values(Malformed{"EntryBeforeName", "\nstore = maildir:/x\n",
                              ":2: an entry in front of the first \"[name]\""},
                    Malformed{"NoEquals", "[a]\nstore maildir:/x\n",
                              ":2: expected \"[name]\" or \"entry = value\""},
                    Malformed{"OpenBracket", "[a\nstore = maildir:/x\n",
                              ":1: expected a profile's name as \"[name]\""},
                    Malformed{"EmptyName", "[ ]\nstore = maildir:/x\n",
                              ":1: expected a profile's name as \"[name]\""},
                    Malformed{"UnknownEntry", "[a]\nstroe = maildir:/x\n",
                              ":2: unknown entry \"stroe\" (user, store, inbox)"},
                    Malformed{"NoValue", "[a]\nstore =\n", ":2: \"store\" has no value"},
                    Malformed{"NoStore", "[a]\nuser = x\n[b]\nstore = maildir:/x\n",
                              ":1: profile \"a\" has no store"},
                    Malformed{"SecondUser", "[a]\nuser = x\nuser = y\nstore = maildir:/x\n",
                              ":3: a second \"user\" in one profile"},
                    Malformed{"SecondName", "[a]\nstore = maildir:/x\n[a]\nstore = maildir:/y\n",
                              ":3: a second profile named \"a\""},
                    Malformed{"StrangeInbox", "[a]\nstore = maildir:/x\ninbox = maildir:/y\n",
                              ":1: the inbox of profile \"a\" is none of its stores"}),
    CaseName);

TEST(ProfileFileList, ReadsNamesUsersStoresAndInbox) {
    const Scratch scratch;
    Put(scratch / "p", std::string(kHome) + "\n; work\n[work mail]\nstore = maildir:/w\n");

    const auto list = ProfileFile(scratch / "p").List();

    ASSERT_TRUE(list.ok());
    ASSERT_EQ(list.value().size(), 2U);
    EXPECT_EQ(list.value()[0].name, "home");
    EXPECT_EQ(list.value()[0].user, "Ann Example");
    EXPECT_THAT(list.value()[0].stores,
                ElementsAre("maildir:/home/ann/Maildir", "maildir:/home/ann/My Archive"));
    EXPECT_EQ(list.value()[0].inbox, "maildir:/home/ann/My Archive");
    EXPECT_EQ(list.value()[1].name, "work mail");
}

TEST(ProfileFileList, TakesAMissingFileForAnEmptyOne) {
    const Scratch scratch;

    const auto list = ProfileFile(scratch / "none/profiles.conf").List();

    ASSERT_TRUE(list.ok());
    EXPECT_TRUE(list.value().empty());
}

TEST(ProfileFileList, ReadsLinesThatEndInCarriageReturns) {
    const Scratch scratch;
    Put(scratch / "p", "[a]\r\nstore = maildir:/x\r\n");

    const auto list = ProfileFile(scratch / "p").List();

    ASSERT_TRUE(list.ok());
    EXPECT_THAT(list.value()[0].stores, ElementsAre("maildir:/x"));
}

TEST(ProfileFileAdd, MakesTheDirectoriesAndAPrivateFile) {
    const Scratch scratch;
    const std::string path = scratch / "config/trevix/profiles.conf";

    const Status added = ProfileFile(path).Add({"home", "Ann", {"maildir:/m"}, "maildir:/m"});

    ASSERT_TRUE(added.ok()) << added.error().description;
    EXPECT_EQ(Get(path), "[home]\nuser = Ann\nstore = maildir:/m\ninbox = maildir:/m\n");
    EXPECT_EQ(ModeOf(path), 0600U);
    EXPECT_FALSE(Exists(path + ".new"));
}

TEST(ProfileFileAdd, LeavesAllOtherLinesAndTheModeAsTheyAre) {
    const Scratch scratch;
    const std::string path = scratch / "p";
    Put(path, std::string(kHome) + "; last words");
    ::chmod(path.c_str(), 0644);

    const Status added = ProfileFile(path).Add({"work", "", {"maildir:/w"}, ""});

    ASSERT_TRUE(added.ok()) << added.error().description;
    EXPECT_EQ(Get(path), std::string(kHome) + "; last words\n\n[work]\nstore = maildir:/w\n");
    EXPECT_EQ(ModeOf(path), 0644U);
}

TEST(ProfileFileAdd, RefusesANameThatIsTaken) {
    const Scratch scratch;
    Put(scratch / "p", kHome);

    const Status added = ProfileFile(scratch / "p").Add({"home", "", {"maildir:/w"}, ""});

    ASSERT_FALSE(added.ok());
    EXPECT_EQ(added.error().kind, ErrorKind::kExists);
    EXPECT_EQ(Get(scratch / "p"), kHome);
}

TEST(ProfileFileAdd, RefusesWhatWouldNotReadBackTheSame) {
    const Scratch scratch;
    ProfileFile file(scratch / "p");

    for (const Profile& profile :
         {Profile{"a]\n[b", "", {"maildir:/x"}, ""}, Profile{"a", "x\ny = z", {"maildir:/x"}, ""},
          Profile{"a", "", {"maildir:/x\nuser = y"}, ""}, Profile{"a", "", {"maildir:/x "}, ""},
          Profile{"a", "", {}, ""}, Profile{"", "", {"maildir:/x"}, ""}}) {
        const Status added = file.Add(profile);
        ASSERT_FALSE(added.ok()) << profile.name;
        EXPECT_EQ(added.error().kind, ErrorKind::kMalformed);
    }
    EXPECT_FALSE(Exists(scratch / "p"));
}

TEST(ProfileFileAdd, FollowsALinkToTheRealFile) {
    const Scratch scratch;
    Put(scratch / "real", kHome);
    ASSERT_EQ(::symlink("real", (scratch / "link").c_str()), 0);

    const Status added = ProfileFile(scratch / "link").Add({"work", "", {"maildir:/w"}, ""});

    ASSERT_TRUE(added.ok());
    struct stat about {};
    ASSERT_EQ(::lstat((scratch / "link").c_str(), &about), 0);
    EXPECT_TRUE(S_ISLNK(about.st_mode));
    EXPECT_THAT(Get(scratch / "real"), HasSubstr("[work]"));
}

TEST(ProfileFileRemove, TakesOutTheProfileAlone) {
    const Scratch scratch;
    Put(scratch / "p",
        std::string("[a]\nstore = maildir:/a\n") + kHome + "[b]\nstore = maildir:/b\n");

    const Status removed = ProfileFile(scratch / "p").Remove("home");

    ASSERT_TRUE(removed.ok());
    EXPECT_EQ(Get(scratch / "p"),
              "[a]\nstore = maildir:/a\n# mail at home\n[b]\nstore = maildir:/b\n");
}

TEST(ProfileFileRemove, SaysThatThereIsNone) {
    const Scratch scratch;
    Put(scratch / "p", kHome);

    const Status removed = ProfileFile(scratch / "p").Remove("work");

    ASSERT_FALSE(removed.ok());
    EXPECT_EQ(removed.error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(removed.error().description, "no profile \"work\" in " + scratch / "p");
    EXPECT_EQ(Get(scratch / "p"), kHome);
}

TEST(ProfileFilePath, FollowsTheConfigurationDirectory) {
    const char* before = std::getenv("XDG_CONFIG_HOME");
    const std::string kept = before != nullptr ? before : "";
    ::setenv("XDG_CONFIG_HOME", "/etc/here", 1);
    const std::string absolute = ProfileFilePath();
    ::setenv("XDG_CONFIG_HOME", "relative", 1);
    const std::string relative = ProfileFilePath();
    if (before != nullptr) {
        ::setenv("XDG_CONFIG_HOME", kept.c_str(), 1);
    } else {
        ::unsetenv("XDG_CONFIG_HOME");
    }

    EXPECT_EQ(absolute, "/etc/here/trevix/profiles.conf");
    EXPECT_THAT(relative, testing::EndsWith("/.config/trevix/profiles.conf"));
}

}  // namespace
}  // namespace trevix::profiles
