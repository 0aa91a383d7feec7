#include "cli/time_limit.h"

#include <gtest/gtest.h>

#include "platform/posix/poll_loop.h"

namespace trevix::cli {
namespace {

using namespace std::chrono_literals;
using Now = std::chrono::steady_clock;

// In a loop whose timers tick at once, as that of the program does.
struct World {
    posix::PollLoop loop{{}, posix::FirstTick::kAtOnce};
    int cancelled = 0;

    void Cancel() {
        ++cancelled;
        loop.Quit();
    }
};

TEST(TimeLimit, CallsOnceWhenTheTimeIsUp) {
    World world;
    const auto end = Now::now() + 20ms;
    const TimeLimit limit(world.loop, end, [&world] { world.Cancel(); });
    EXPECT_FALSE(limit.IsOver());

    world.loop.Run();

    EXPECT_GE(Now::now(), end);
    EXPECT_TRUE(limit.IsOver());
    EXPECT_EQ(world.cancelled, 1);
}

TEST(TimeLimit, CallsAtOnceWhenTheTimeIsUpAlready) {
    World world;
    const TimeLimit limit(world.loop, Now::now() - 1h, [&world] { world.Cancel(); });

    world.loop.Run();

    EXPECT_TRUE(limit.IsOver());
}

TEST(TimeLimit, LetsWhatIsDoneInTimeAlone) {
    World world;
    const TimeLimit none(world.loop, std::nullopt, [&world] { world.Cancel(); });
    const TimeLimit far(world.loop, Now::now() + 10000h, [&world] { world.Cancel(); });

    world.loop.Pump();

    EXPECT_FALSE(none.IsOver());
    EXPECT_FALSE(far.IsOver());
    EXPECT_EQ(world.cancelled, 0);
}

}  // namespace
}  // namespace trevix::cli
