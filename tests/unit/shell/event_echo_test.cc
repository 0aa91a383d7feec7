#include "shell/event_echo.h"

#include <gmock/gmock.h>

#include "fakes/fake_event_log.h"

namespace trevix {
namespace {

using testing::ElementsAre;

struct EchoWorld {
    fakes::FaultPlan plan;
    fakes::FakeEventLog log{plan};
    std::vector<std::string> shown;
    EventEcho::Show show = [this](int type, const std::string& procedure, const std::string& text) {
        shown.push_back(std::to_string(type) + "|" + procedure + "|" + text);
    };
};

TEST(EventEchoReport, ShowsErrorsAndWarningsAndPassesEverythingOn) {
    EchoWorld world;
    EventEcho echo(&world.log, world.show);

    EXPECT_TRUE(echo.Report({"CManage::Trevix: err at save for a:b.txt"}, "Trevix", "", 1).ok());
    EXPECT_TRUE(echo.Report({"CManage::Trevix: a warning"}, "Trevix", "", 2).ok());
    EXPECT_TRUE(echo.Report({"CManage::Trevix: a milestone"}, "Trevix", "", 4).ok());
    EXPECT_TRUE(echo.Report({"plain text"}, "Trevix", "", 1).ok());

    EXPECT_THAT(world.shown, ElementsAre("1|CManage::Trevix|err at save for a:b.txt",
                                         "2|CManage::Trevix|a warning", "1||plain text"));
    EXPECT_EQ(world.log.events.size(), 4U);
}

TEST(EventEchoReport, WorksWithoutALogBehind) {
    EchoWorld world;
    EventEcho echo(nullptr, world.show);

    EXPECT_TRUE(echo.Available());
    EXPECT_TRUE(echo.Report({"A::B:text"}, "Trevix", "", 1).ok());
    EXPECT_THAT(world.shown, ElementsAre("1|A::B|text"));
}

TEST(EventEchoReport, LeavesALogAloneThatIsNotThere) {
    EchoWorld world;
    world.log.available = false;
    EventEcho echo(&world.log, {});

    EXPECT_TRUE(echo.Report({"A::B:text"}, "Trevix", "", 1).ok());
    EXPECT_TRUE(world.log.events.empty());
}

}  // namespace
}  // namespace trevix
