#include "cli/private_place.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "unit/posix/scratch.h"

namespace trevix::cli {
namespace {

std::string Parent(const test::Scratch& scratch) {
    return scratch / ("trevixctl-" + std::to_string(::geteuid()));
}

std::string Bare(const test::Scratch& scratch) {
    return scratch.root().substr(0, scratch.root().size() - 1);
}

TEST(PrivatePlaceMake, IsOursAloneAndLeavesNothingBehind) {
    const test::Scratch scratch;
    {
        const auto place = PrivatePlace::Make(Bare(scratch));
        ASSERT_TRUE(place.ok());
        EXPECT_EQ(test::ModeOf(place.value()->path()), 0700U);
        test::Put(place.value()->path() + "/file", "x");
    }

    EXPECT_TRUE(std::filesystem::is_empty(scratch.root()));
}

TEST(PrivatePlaceMake, LeavesThePlaceOfAnotherAlone) {
    const test::Scratch scratch;
    const auto first = PrivatePlace::Make(Bare(scratch));
    {
        const auto second = PrivatePlace::Make(Bare(scratch));
        ASSERT_TRUE(second.ok());
        EXPECT_NE(first.value()->path(), second.value()->path());
    }

    EXPECT_TRUE(test::Exists(first.value()->path()));
}

TEST(PrivatePlaceMake, RemovesWhatADeadProcessLeft) {
    const test::Scratch scratch;
    std::filesystem::create_directories(Parent(scratch) + "/stage-ABCDEF/1");
    ::chmod(Parent(scratch).c_str(), 0700);
    test::Put(Parent(scratch) + "/stage-ABCDEF/lock", "");
    test::Put(Parent(scratch) + "/stage-ABCDEF/1/mail", "x");

    const auto place = PrivatePlace::Make(Bare(scratch));

    ASSERT_TRUE(place.ok());
    EXPECT_FALSE(test::Exists(Parent(scratch) + "/stage-ABCDEF"));
}

TEST(PrivatePlaceMake, RefusesADirectoryThatOthersCouldRead) {
    const test::Scratch scratch;
    std::filesystem::create_directory(Parent(scratch));
    ::chmod(Parent(scratch).c_str(), 0755);

    const auto place = PrivatePlace::Make(Bare(scratch));

    ASSERT_FALSE(place.ok());
    EXPECT_EQ(place.error().kind, ErrorKind::kDenied);
    EXPECT_THAT(place.error().description, testing::HasSubstr(Parent(scratch)));
}

TEST(PrivatePlaceMake, RefusesALink) {
    const test::Scratch scratch;
    std::filesystem::create_directory(scratch / "elsewhere");
    ::chmod((scratch / "elsewhere").c_str(), 0700);
    ASSERT_EQ(::symlink("elsewhere", Parent(scratch).c_str()), 0);

    EXPECT_FALSE(PrivatePlace::Make(Bare(scratch)).ok());
}

TEST(PrivatePlaceCopyOf, CopiesWhatIsThere) {
    const test::Scratch scratch;
    test::Put(scratch / "user.reg", "text");
    const auto place = PrivatePlace::Make(Bare(scratch));

    const auto copy = place.value()->CopyOf(scratch / "user.reg");
    const auto none = place.value()->CopyOf(scratch / "machine.reg");

    EXPECT_EQ(test::Get(copy.value()), "text");
    EXPECT_NE(copy.value(), scratch / "user.reg");
    ASSERT_TRUE(none.ok());
    EXPECT_FALSE(test::Exists(none.value()));
}

}  // namespace
}  // namespace trevix::cli
