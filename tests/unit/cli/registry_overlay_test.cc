#include "cli/registry_overlay.h"

#include <gmock/gmock.h>

#include "fakes/fake_registry.h"
#include "platform/errors.h"
#include "shell/settings.h"
#include "util/reg_op.h"

namespace trevix::cli {
namespace {

using testing::ElementsAre;

struct OverlayWorld {
    fakes::FaultPlan plan;
    fakes::FakeRegistry behind{plan};

    std::unique_ptr<RegistryKey> Open(Registry& registry, const std::string& path = kAddinKey) {
        auto key = registry.CreateKey(kCurrentUser, path, kKeyReadWrite);
        return key.ok() ? std::move(key).value() : nullptr;
    }
};

std::vector<std::string> NamesOf(RegistryKey& key) {
    std::vector<std::string> names;
    for (std::int32_t i = 0;; ++i) {
        const auto value = key.EnumValue(i);
        if (!value.ok()) return names;
        names.push_back(value.value().name);
    }
}

TEST(RegistryOverlayCreateKey, HidesStoredValuesAndAddsItsOwn) {
    OverlayWorld world;
    world.behind.PutText(kCurrentUser, kAddinKey, "level", "-es");
    world.behind.PutText(kCurrentUser, kAddinKey, "ExcludeCompress", ".zip");
    RegistryOverlay overlay(world.behind, {TextOverlay("Level", "-ex"), TextOverlay("Tray", "1")});

    const auto key = world.Open(overlay);

    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->QueryValue("LEVEL").value().data, std::string("-ex\0", 4));
    EXPECT_EQ(key->QueryValue("ExcludeCompress").value().data, std::string(".zip\0", 5));
    EXPECT_THAT(NamesOf(*key), ElementsAre("ExcludeCompress", "Level", "Tray"));
    EXPECT_EQ(key->QueryInfo().value().values, 3);
    EXPECT_EQ(key->QueryInfo().value().longest_value_name, 15);
    EXPECT_EQ(key->QueryInfo().value().longest_value_data, 5);
}

TEST(RegistryOverlayCreateKey, IsSeenByTheComponentsOwnReader) {
    OverlayWorld world;
    world.behind.PutText(kCurrentUser, kAddinKey, "ZipBytesCompress", "7");
    fakes::FakeEnvironment environment;
    RegistryOverlay overlay(world.behind, {NumberOverlay("ZipBytesCompress", -2)});

    RegOp reader(overlay, environment);
    reader.Root(static_cast<std::int32_t>(kCurrentUser));
    reader.Key(kAddinKey);

    EXPECT_EQ(std::get<std::int32_t>(reader.Value("ZipBytesCompress")), -2);
}

TEST(RegistryOverlayCreateKey, StoresNothingOfItself) {
    OverlayWorld world;
    RegistryOverlay overlay(world.behind, {TextOverlay("Level", "-ex")});
    const auto key = world.Open(overlay);

    ASSERT_TRUE(key->SetValue("ErrorLogLevel", kRegSz, std::string("8\0", 2)).ok());

    EXPECT_NE(world.behind.Stored(kCurrentUser, kAddinKey, "ErrorLogLevel"), nullptr);
    EXPECT_EQ(world.behind.Stored(kCurrentUser, kAddinKey, "Level"), nullptr);
}

TEST(RegistryOverlayCreateKey, LeavesOtherKeysAlone) {
    OverlayWorld world;
    RegistryOverlay overlay(world.behind, {TextOverlay("Level", "-ex")});

    const auto other = world.Open(overlay, "Software\\Other");
    auto machine = overlay.CreateKey(kLocalMachine, kAddinKey, kKeyRead);

    EXPECT_FALSE(other->QueryValue("Level").ok());
    EXPECT_FALSE(machine.value()->QueryValue("Level").ok());
}

TEST(RegistryOverlayCreateKey, ServesItsValuesWhereTheSettingsMayNotBeOpened) {
    OverlayWorld world;
    world.plan.FailCalls("registry.CreateKey", RuntimeError(kPermissionDenied, "user.reg"));
    RegistryOverlay overlay(world.behind, {TextOverlay("Tray", "1")});

    const auto key = world.Open(overlay);

    ASSERT_NE(key, nullptr);
    EXPECT_TRUE(key->QueryValue("Tray").ok());
    EXPECT_EQ(key->QueryValue("Level").error().kind, ErrorKind::kDenied);
    EXPECT_EQ(key->QueryInfo().value().values, 1);
    EXPECT_EQ(key->SetValue("x", kRegSz, "").error().kind, ErrorKind::kDenied);
}

TEST(RegistryOverlayCreateKey, StillReportsADamagedFile) {
    OverlayWorld world;
    world.plan.FailCalls("registry.CreateKey",
                         Error{ErrorKind::kMalformed, 75, "user.reg:3: no value"});
    RegistryOverlay overlay(world.behind, {TextOverlay("Tray", "1")});

    const auto key = overlay.CreateKey(kCurrentUser, kAddinKey, kKeyRead);

    ASSERT_FALSE(key.ok());
    EXPECT_EQ(key.error().description, "user.reg:3: no value");
}

}  // namespace
}  // namespace trevix::cli
