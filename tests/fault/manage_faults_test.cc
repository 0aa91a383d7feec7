// Every port call of a compression run fails once, and from then on. Whatever fails: no attachment
// is lost, the run ends with an event or a log line, and nothing temporary stays behind.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/world.h"

namespace trevix {
namespace {

using fakes::FaultPlan;
using test::World;

struct Shape {
    const char* name;
    const char* combine;
    bool html;
};

class ManageFaults : public testing::TestWithParam<Shape> {
 protected:
    static void Arrange(World& world) {
        world.Setting("CombineCompress", GetParam().combine);
        world.html = GetParam().html;
        world.AddMessage(*world.inbox, "first",
                         {World::File("a.txt", "alpha"), World::File("b.doc", "beta"),
                          World::File("trevix.log", "gamma")});
        fakes::AttachmentData paper = World::File("paper.gif", "image");
        paper.content_id = "paper@x";
        world.AddMessage(*world.inbox, "second", {World::File("c.csv", "delta"), paper})
            .formatted_body = "\\fromhtml1 <body background=\"cid:paper@x\">";
        world.AddMessage(world.inbox->Add("F2", "Sub"), "third", {World::File("d.xml", "eps")});
    }

    // The contents of a message's attachments, an archive counting as its members.
    static std::vector<std::string> Contents(World& world, const fakes::MessageData& message) {
        std::vector<std::string> contents;
        for (const auto& attachment : message.attachments) {
            const auto entries = world.zip.EntriesOf(attachment.data);
            if (entries.empty()) contents.push_back(attachment.data);
            for (const auto& [name, content] : entries)
                contents.push_back(content);
        }
        std::sort(contents.begin(), contents.end());
        return contents;
    }

    // Every attachment of a message but its stationery is in an archive.
    static void ExpectFinished(World& world, const fakes::MessageData& message) {
        for (const auto& attachment : message.attachments) {
            if (!attachment.content_id.empty()) continue;
            EXPECT_FALSE(world.zip.EntriesOf(attachment.data).empty())
                << attachment.name << " of " << message.subject;
        }
    }

    // Lost nothing, and grew nothing but by what the run counts as removed stationery.
    static void ExpectWhole(World& world) {
        EXPECT_EQ(Contents(world, world.inbox->messages[0]),
                  (std::vector<std::string>{"alpha", "beta", "gamma"}));
        std::vector<std::string> second = Contents(world, world.inbox->messages[1]);
        std::erase(second, "image");
        EXPECT_EQ(second, (std::vector<std::string>{"delta"}));
        EXPECT_EQ(Contents(world, world.inbox->folders[0]->messages[0]),
                  (std::vector<std::string>{"eps"}));
        for (const auto& [path, bytes] : world.files.files) {
            EXPECT_EQ(path.find("/stage-"), std::string::npos) << path;
        }
    }
};

TEST_P(ManageFaults, AnySingleFailureAndAnyLastingFailureLosesNothingAndIsReported) {
    World dry;
    Arrange(dry);
    dry.Run();
    ASSERT_EQ(dry.recorder.events.back(), "Complete 0");
    const int calls = static_cast<int>(dry.plan.calls().size());
    ASSERT_GT(calls, 300);

    for (const auto mode : {FaultPlan::Mode::kOnce, FaultPlan::Mode::kFromThenOn}) {
        for (int nth = 1; nth <= calls; ++nth) {
            SCOPED_TRACE(std::to_string(nth) + " " +
                         dry.plan.calls()[static_cast<std::size_t>(nth) - 1] +
                         (mode == FaultPlan::Mode::kOnce ? " once" : " from then on"));
            World world;
            Arrange(world);
            world.plan.FailCall(nth, mode, MessagingError(kDiskError));

            world.Run();
            const bool ended = !world.recorder.events.empty();
            const bool logged = !world.Log().empty();
            // A log-on without a user is deliberately silent: the client reads the state.
            const bool refused = !world.started || world.session->Manage() == nullptr;
            world.plan.Clear();
            world.session.reset();

            ExpectWhole(world);
            EXPECT_TRUE(ended || logged || refused);
            if (testing::Test::HasFailure()) return;
        }
    }
}

TEST_P(ManageFaults, ARunAfterAnySingleFailureFinishesTheWork) {
    World dry;
    Arrange(dry);
    dry.Run();
    const int calls = static_cast<int>(dry.plan.calls().size());

    for (int nth = 1; nth <= calls; ++nth) {
        const std::string call = dry.plan.calls()[static_cast<std::size_t>(nth) - 1];
        // A message whose ID is unusable ends its folder for good, deliberately.
        if (call == "utils.EntryIdText") continue;
        SCOPED_TRACE(std::to_string(nth) + " " + call);
        World world;
        Arrange(world);
        world.plan.FailCall(nth, FaultPlan::Mode::kOnce, MessagingError(kDiskError));
        world.Run();
        world.plan.Clear();
        world.session.reset();
        world.ci.gMAPISession.reset();
        // A new process asks for its directories anew.
        world.ci.gZipTemp.clear();
        world.ci.gIndexDir.clear();
        world.clock.AdvanceMinutes(10);

        world.Logon();
        world.Run();

        ExpectWhole(world);
        ExpectFinished(world, world.inbox->messages[0]);
        ExpectFinished(world, world.inbox->messages[1]);
        ExpectFinished(world, world.inbox->folders[0]->messages[0]);
        EXPECT_EQ(world.recorder.events.back(), "Complete 0");
        if (testing::Test::HasFailure()) return;
    }
}

constexpr Shape kShapes[] = {
    {"Separate", "False", false},
    {"Rollup", "True", false},
    {"RollupAndStationery", "True", true},
};

INSTANTIATE_TEST_SUITE_P(Shapes, ManageFaults, testing::ValuesIn(kShapes),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace trevix
