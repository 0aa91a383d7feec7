#include "platform/profiles/profile_provider.h"

#include <gmock/gmock.h>

#include <vector>

#include "fakes/fake_mail_store.h"
#include "platform/errors.h"
#include "unit/posix/scratch.h"

namespace trevix::profiles {
namespace {

using test::Put;
using test::Scratch;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct World {
    Scratch scratch;
    fakes::FaultPlan plan;
    std::vector<std::string> opened;
    ProfileProvider provider{
        ProfileFile(scratch / "profiles.conf"),
        {{"maildir", [this](const std::string& path) -> Result<std::unique_ptr<MailStore>> {
              opened.push_back(path);
              if (path == "/gone") return MessagingError(kFailOneProvider, "There is no /gone.");
              auto store = std::make_unique<fakes::FakeMailStore>(plan);
              store->store_address = "maildir:" + path;
              return std::unique_ptr<MailStore>(std::move(store));
          }}}};
};

TEST(ProfileProviderOpen, OpensAnAddressUnderTheLoginName) {
    World world;

    const auto opened = world.provider.Open("maildir:/home/ann/Mail", "");

    ASSERT_TRUE(opened.ok());
    EXPECT_THAT(world.opened, ElementsAre("/home/ann/Mail"));
    EXPECT_EQ(opened.value().user_name, LoginName());
    EXPECT_FALSE(opened.value().user_name.empty());
    EXPECT_EQ(opened.value().stores.size(), 1U);
}

TEST(ProfileProviderOpen, OpensAllStoresOfAProfileAndFindsItsInbox) {
    World world;
    Put(world.scratch / "profiles.conf",
        "[home]\nuser = Ann\nstore = maildir:/a\nstore = maildir:/b\ninbox = maildir:/b\n");

    const auto opened = world.provider.Open("home", "");

    ASSERT_TRUE(opened.ok());
    EXPECT_THAT(world.opened, ElementsAre("/a", "/b"));
    EXPECT_EQ(opened.value().user_name, "Ann");
    EXPECT_EQ(opened.value().inbox_store, 1U);
}

TEST(ProfileProviderOpen, DeniesAnUnknownName) {
    World world;

    const auto opened = world.provider.Open("nobody", "");

    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(opened.error().kind, ErrorKind::kDenied);
    EXPECT_EQ(opened.error().number, static_cast<int>(kLogonFailed));
    EXPECT_THAT(opened.error().description, HasSubstr("no profile \"nobody\" in "));
}

TEST(ProfileProviderOpen, ReportsADamagedFileWithItsLine) {
    World world;
    Put(world.scratch / "profiles.conf", "[home\n");

    const auto opened = world.provider.Open("home", "");

    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(opened.error().kind, ErrorKind::kMalformed);
    EXPECT_THAT(opened.error().description, HasSubstr("profiles.conf:1: "));
}

TEST(ProfileProviderOpen, PassesOnThatAStoreCannotBeOpened) {
    World world;

    const auto opened = world.provider.Open("maildir:/gone", "");

    ASSERT_FALSE(opened.ok());
    EXPECT_EQ(opened.error().number, static_cast<int>(kFailOneProvider));
    EXPECT_THAT(opened.error().description, HasSubstr("There is no /gone."));
}

TEST(ProfileProviderOpen, SaysThatThereIsNoImapInThisVersion) {
    World world;

    for (const char* address : {"imap://ann@host", "imaps://ann@host:993"}) {
        const auto opened = world.provider.Open(address, "");
        ASSERT_FALSE(opened.ok());
        EXPECT_EQ(opened.error().kind, ErrorKind::kUnsupported);
        EXPECT_THAT(opened.error().description,
                    HasSubstr("IMAP stores are not part of this version"));
    }
    const auto server = world.provider.Open("", "host\nann");
    ASSERT_FALSE(server.ok());
    EXPECT_EQ(server.error().kind, ErrorKind::kUnsupported);
    EXPECT_THAT(server.error().description,
                HasSubstr("host ann: IMAP stores are not part of this version"));
    EXPECT_THAT(world.opened, IsEmpty());
}

TEST(ProfileProviderOpen, RefusesStrangeSchemesAndRelativePaths) {
    World world;

    const auto strange = world.provider.Open("mbox:/var/mail/ann", "");
    const auto relative = world.provider.Open("maildir:Mail", "");

    ASSERT_FALSE(strange.ok());
    EXPECT_THAT(strange.error().description, HasSubstr("no store of this kind"));
    ASSERT_FALSE(relative.ok());
    EXPECT_THAT(relative.error().description, HasSubstr("the path must be absolute"));
    EXPECT_THAT(world.opened, IsEmpty());
}

}  // namespace
}  // namespace trevix::profiles
