#include "service/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace trevix::service {
namespace {

struct Parsed {
    std::optional<Options> options;
    std::string complaint;
};

Parsed Parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "trevixci");
    Parsed parsed;
    parsed.options =
        ParseOptions(static_cast<int>(arguments.size()), arguments.data(), parsed.complaint);
    return parsed;
}

TEST(ParseOptions, WithoutAnyIsABrokerOnTheBusThatStartedIt) {
    const auto options = Parse({}).options;
    ASSERT_TRUE(options.has_value());
    EXPECT_EQ(options->bus, dbus::Connection::Bus::kStarter);
    EXPECT_TRUE(options->leaves_when_idle);
    EXPECT_TRUE(options->owner.empty());
}

TEST(ParseOptions, TakesTheBusAndWhetherToStay) {
    const auto options = Parse({"--bus", "system", "--no-idle-exit"}).options;
    ASSERT_TRUE(options.has_value());
    EXPECT_EQ(options->bus, dbus::Connection::Bus::kSystem);
    EXPECT_EQ(options->bus_text, "system");
    EXPECT_FALSE(options->leaves_when_idle);
    EXPECT_EQ(Parse({"--bus", "session"}).options->bus, dbus::Connection::Bus::kSession);
}

TEST(ParseOptions, TellsASessionOfItsOwnFromASharedOne) {
    EXPECT_EQ(Parse({"--owner", ":1.7"}).options->owner, ":1.7");
    EXPECT_FALSE(Parse({"--owner", ":1.7"}).options->is_shared);
    EXPECT_TRUE(Parse({"--holder", ":1.7"}).options->is_shared);
}

TEST(ParseOptions, ComplainsOfWhatItDoesNotKnow) {
    EXPECT_EQ(Parse({"--nonsense"}).complaint, "--nonsense: unknown option");
    EXPECT_EQ(Parse({"--bus"}).complaint, "--bus: session or system");
    EXPECT_EQ(Parse({"--bus", "other"}).complaint, "--bus: session or system");
    EXPECT_EQ(Parse({"--owner"}).complaint, "--owner: not a unique name");
    EXPECT_EQ(Parse({"--holder", "com.example"}).complaint, "--holder: not a unique name");
    EXPECT_FALSE(Parse({"--nonsense"}).options.has_value());
}

}  // namespace
}  // namespace trevix::service
