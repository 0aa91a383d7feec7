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
    ProfileProvider provider{ProfileFile(scratch / "profiles.conf"), Factories()};

    Result<std::unique_ptr<MailStore>> Open(const std::string& address) {
        opened.push_back(address);
        if (address == "maildir:/gone") {
            return MessagingError(kFailOneProvider, "There is no /gone.");
        }
        auto store = std::make_unique<fakes::FakeMailStore>(plan);
        store->store_address = address;
        return std::unique_ptr<MailStore>(std::move(store));
    }

    StoreFactories Factories() {
        StoreFactories factories;
        for (const char* scheme : {"maildir", "imaps"}) {
            factories.by_scheme[scheme] = [this](const std::string& address) {
                return Open(address);
            };
        }
        factories.on_server = [this](const std::string& server, const std::string& alias) {
            return Open("imaps://" + alias + "@" + server);
        };
        return factories;
    }
};

TEST(ProfileProviderOpen, OpensAnAddressUnderTheLoginName) {
    World world;

    const auto opened = world.provider.Open("maildir:/home/ann/Mail", "");

    ASSERT_TRUE(opened.ok());
    EXPECT_THAT(world.opened, ElementsAre("maildir:/home/ann/Mail"));
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
    EXPECT_THAT(world.opened, ElementsAre("maildir:/a", "maildir:/b"));
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

TEST(ProfileProviderOpen, MixesDirectoriesAndServersInAProfile) {
    World world;
    Put(world.scratch / "profiles.conf",
        "[all]\nstore = maildir:/a\nstore = imaps://ann@host\ninbox = imaps://ann@host\n");

    const auto opened = world.provider.Open("all", "");

    ASSERT_TRUE(opened.ok());
    EXPECT_THAT(world.opened, ElementsAre("maildir:/a", "imaps://ann@host"));
    EXPECT_EQ(opened.value().inbox_store, 1U);
}

TEST(ProfileProviderOpen, OpensTheMailboxOfAnAliasOnAServer) {
    World world;

    const auto opened = world.provider.Open("", "host:1993\nann@example.org");

    ASSERT_TRUE(opened.ok());
    EXPECT_THAT(world.opened, ElementsAre("imaps://ann@example.org@host:1993"));
    EXPECT_EQ(opened.value().user_name, "ann@example.org");
    EXPECT_EQ(opened.value().stores.size(), 1U);
}

TEST(ProfileProviderOpen, NeedsBothServerAndAlias) {
    World world;

    for (const char* info : {"", "\n", "host", "host\n", "\nann"}) {
        const auto opened = world.provider.Open("", info);
        ASSERT_FALSE(opened.ok());
        EXPECT_EQ(opened.error().kind, ErrorKind::kDenied);
        EXPECT_THAT(opened.error().description, HasSubstr("belong together"));
    }
    EXPECT_THAT(world.opened, IsEmpty());
}

TEST(ProfileProviderOpen, RefusesKindsOfStoresThatItHasNoFactoryFor) {
    World world;
    ProfileProvider none{ProfileFile(world.scratch / "profiles.conf"), {}};

    const auto strange = world.provider.Open("mbox:/var/mail/ann", "");
    const auto server = none.Open("", "host\nann");

    ASSERT_FALSE(strange.ok());
    EXPECT_THAT(strange.error().description, HasSubstr("no store of this kind"));
    ASSERT_FALSE(server.ok());
    EXPECT_THAT(server.error().description, HasSubstr("ann on host: no store of this kind"));
    EXPECT_THAT(world.opened, IsEmpty());
}

}  // namespace
}  // namespace trevix::profiles
