#include "platform/posix/poll_loop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <string>

namespace trevix::posix {
namespace {

constexpr std::int64_t kMillisecond = 1000000;

// A loop whose time stands still until the test moves it.
struct World {
    std::int64_t now = 1000 * kMillisecond;
    PollLoop loop{[this] { return now; }};

    void Advance(int milliseconds) { now += milliseconds * kMillisecond; }
};

TEST(PollLoopPump, TicksAfterEachInterval) {
    World world;
    int ticks = 0;
    world.loop.ArmTimer(100, [&] { ++ticks; });

    world.loop.Pump();
    EXPECT_EQ(ticks, 0);
    world.Advance(100);
    world.loop.Pump();
    world.loop.Pump();
    EXPECT_EQ(ticks, 1);
    world.Advance(100);
    world.loop.Pump();

    EXPECT_EQ(ticks, 2);
}

TEST(PollLoopPump, TicksAtOnceWhereNobodyWaitsForTheInterval) {
    std::int64_t now = 1000 * kMillisecond;
    PollLoop loop([&now] { return now; }, FirstTick::kAtOnce);
    int ticks = 0;
    loop.ArmTimer(100, [&] { ++ticks; });

    EXPECT_EQ(ticks, 0);
    loop.Pump();
    loop.Pump();
    EXPECT_EQ(ticks, 1);
    now += 100 * kMillisecond;
    loop.Pump();

    EXPECT_EQ(ticks, 2);
}

TEST(PollLoopPump, ServesALateTimerOnce) {
    World world;
    int ticks = 0;
    world.loop.ArmTimer(10, [&] { ++ticks; });

    world.Advance(1000);
    world.loop.Pump();
    world.loop.Pump();

    EXPECT_EQ(ticks, 1);
}

TEST(PollLoopPump, ServesTimersInTheOrderInWhichTheyFellDue) {
    World world;
    std::string order;
    world.loop.ArmTimer(20, [&] { order += 'b'; });
    world.loop.ArmTimer(10, [&] { order += 'a'; });

    world.Advance(50);
    world.loop.Pump();

    EXPECT_EQ(order, "ab");
}

TEST(PollLoopPump, DoesNotCallATimerWhoseTickIsOnTheStack) {
    World world;
    int ticks = 0;
    int others = 0;
    world.loop.ArmTimer(10, [&] {
        ++ticks;
        world.Advance(100);
        world.loop.Pump();
    });
    world.loop.ArmTimer(30, [&] { ++others; });

    world.Advance(10);
    world.loop.Pump();

    EXPECT_EQ(ticks, 1);
    EXPECT_EQ(others, 1);
}

TEST(PollLoopDisarm, WorksFromWithinTheTick) {
    World world;
    int ticks = 0;
    MessageLoop::TimerId timer = 0;
    timer = world.loop.ArmTimer(10, [&] {
        world.loop.DisarmTimer(timer);
        ++ticks;  // the captures are still there
    });

    for (int turn = 0; turn < 3; ++turn) {
        world.Advance(10);
        world.loop.Pump();
    }

    EXPECT_EQ(ticks, 1);
}

TEST(PollLoopDisarm, KeepsADueTimerFromTicking) {
    World world;
    int ticks = 0;
    MessageLoop::TimerId second = 0;
    world.loop.ArmTimer(10, [&] { world.loop.DisarmTimer(second); });
    second = world.loop.ArmTimer(10, [&] { ++ticks; });

    world.Advance(10);
    world.loop.Pump();

    EXPECT_EQ(ticks, 0);
    world.loop.DisarmTimer(second);
    world.loop.DisarmTimer(4711);
}

TEST(PollLoopDefer, WaitsForRunAndRunsOnce) {
    World world;
    int calls = 0;
    world.loop.Defer([&] { ++calls; });

    world.loop.Pump();
    EXPECT_EQ(calls, 0);
    world.loop.Defer([&] { world.loop.Quit(); });
    world.loop.Run();

    EXPECT_EQ(calls, 1);
}

TEST(PollLoopDefer, IsNotServedByARunInsideAPump) {
    World world;
    int calls = 0;
    world.loop.ArmTimer(10, [&] {
        world.loop.Defer([&] { ++calls; });
        world.loop.ArmTimer(1, [&] { world.loop.Quit(); });
        world.Advance(1);
        world.loop.Run();
        EXPECT_EQ(calls, 0);
    });

    world.Advance(10);
    world.loop.Pump();

    EXPECT_EQ(calls, 0);
}

TEST(PollLoopRun, ReturnsAtOnceAfterAnEarlierQuitAndThenRunsAgain) {
    World world;
    int calls = 0;
    world.loop.Defer([&] {
        ++calls;
        world.loop.Quit();
    });

    world.loop.Quit();
    world.loop.Run();
    EXPECT_EQ(calls, 0);
    world.loop.Run();

    EXPECT_EQ(calls, 1);
}

TEST(PollLoopRun, WaitsForItsTimersWithTheRealClock) {
    PollLoop loop;
    int ticks = 0;
    loop.ArmTimer(1, [&] {
        if (++ticks == 3) loop.Quit();
    });

    loop.Run();

    EXPECT_EQ(ticks, 3);
}

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        if (::pipe(ends.data()) == 0) {
            out = ends[0];
            in = ends[1];
        }
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        ::close(out);
        ::close(in);
    }
    void Write() const { ASSERT_EQ(::write(in, "x", 1), 1); }
    void Read() const {
        char byte = 0;
        ASSERT_EQ(::read(out, &byte, 1), 1);
    }
    int out = -1;
    int in = -1;
};

TEST(PollLoopWatch, CallsBackFromRun) {
    World world;
    const Pipe pipe;
    world.loop.WatchDescriptor(pipe.out, [&] {
        pipe.Read();
        world.loop.Quit();
    });
    pipe.Write();

    world.loop.Run();

    world.loop.Unwatch(pipe.out);
}

TEST(PollLoopWatch, IsLookedAtByPumpsAtMostEveryFiveMilliseconds) {
    World world;
    const Pipe pipe;
    int calls = 0;
    world.loop.WatchDescriptor(pipe.out, [&] { ++calls; });
    pipe.Write();

    world.loop.Pump();
    world.Advance(4);
    world.loop.Pump();
    EXPECT_EQ(calls, 1);
    world.Advance(1);
    world.loop.Pump();

    EXPECT_EQ(calls, 2);
}

TEST(PollLoopWatch, UnwatchFromACallbackSilencesTheOther) {
    World world;
    const Pipe one;
    const Pipe two;
    int calls = 0;
    const auto silence = [&] {
        ++calls;
        world.loop.Unwatch(one.out);
        world.loop.Unwatch(two.out);
    };
    world.loop.WatchDescriptor(one.out, silence);
    world.loop.WatchDescriptor(two.out, silence);
    one.Write();
    two.Write();

    world.loop.Pump();

    EXPECT_EQ(calls, 1);
}

// A source with a number of things to do, over a pipe that stands for its socket.
class FakeSource final : public EventSource {
 public:
    Wait WaitsFor() override { return {pipe.out, true, false, until_ns}; }
    bool ServeOne() override {
        ++calls;
        if (left == 0) return false;
        --left;
        if (on_serve) on_serve();
        return true;
    }

    Pipe pipe;
    int left = 0;
    int calls = 0;
    std::int64_t until_ns = -1;
    std::function<void()> on_serve;
};

TEST(PollLoopSource, IsServedByEveryPumpAtOnce) {
    World world;
    FakeSource source;
    world.loop.Attach(source);
    source.left = 3;

    world.loop.Pump();
    EXPECT_EQ(source.left, 0);
    source.left = 1;
    world.loop.Pump();

    EXPECT_EQ(source.left, 0);
    world.loop.Detach(source);
    source.left = 1;
    world.loop.Pump();
    EXPECT_EQ(source.left, 1);
}

TEST(PollLoopSource, ThatNeverEndsDoesNotHoldUpAPump) {
    World world;
    FakeSource source;
    world.loop.Attach(source);
    source.left = 1000000;

    world.loop.Pump();

    EXPECT_GT(source.left, 0);
}

TEST(PollLoopSource, IsNotEnteredTwiceAndNoTimerBeginsOnTopOfIt) {
    World world;
    FakeSource source;
    int ticks = 0;
    world.loop.ArmTimer(10, [&] { ++ticks; });
    source.on_serve = [&] {
        world.Advance(100);
        const int calls = source.calls;
        world.loop.Pump();
        EXPECT_EQ(source.calls, calls);
        EXPECT_EQ(ticks, 0);
    };
    world.loop.Attach(source);
    source.left = 1;

    world.loop.Pump();
    EXPECT_EQ(ticks, 0);
    world.loop.Pump();

    EXPECT_EQ(ticks, 1);
}

TEST(PollLoopSource, IsServedInRunBeforeAnythingIsWaitedFor) {
    World world;
    FakeSource source;
    world.loop.Attach(source);
    source.left = 2;
    source.on_serve = [&] {
        if (source.left == 0) world.loop.Quit();
    };

    world.loop.Run();

    EXPECT_EQ(source.left, 0);
}

TEST(PollLoopSource, WhatItDefersComesBeforeATimerThatIsDue) {
    World world;
    FakeSource source;
    std::string order;
    world.loop.ArmTimer(10, [&] {
        order += "tick";
        world.loop.Quit();
    });
    world.Advance(10);
    source.on_serve = [&] { world.loop.Defer([&] { order += "deferred "; }); };
    world.loop.Attach(source);
    source.left = 1;

    world.loop.Run();

    EXPECT_EQ(order, "deferred tick");
}

TEST(PollLoopSource, IsWaitedForByItsDescriptor) {
    PollLoop loop;
    FakeSource source;
    loop.Attach(source);
    loop.ArmTimer(1, [&] { source.pipe.Write(); });
    int turns = 0;
    source.on_serve = [&] { loop.Quit(); };
    // Becomes due only when its descriptor does: the loop must then come back to it.
    loop.WatchDescriptor(source.pipe.out, [&] {
        source.pipe.Read();
        source.left = 1;
        ++turns;
    });

    loop.Run();

    EXPECT_EQ(turns, 1);
    loop.Unwatch(source.pipe.out);
}

TEST(PollLoopSource, IsWaitedForNoLongerThanItSays) {
    // Becomes due by time alone, as an answer that does not come.
    class Waiting final : public EventSource {
     public:
        explicit Waiting(PollLoop& loop) : loop_(loop) {}
        Wait WaitsFor() override {
            ++waits;
            return {-1, false, false, 1};  // long ago
        }
        bool ServeOne() override {
            if (waits > 0) loop_.Quit();
            return false;
        }
        int waits = 0;

     private:
        PollLoop& loop_;
    };
    PollLoop loop;
    Waiting source(loop);
    loop.Attach(source);

    loop.Run();

    EXPECT_GT(source.waits, 0);
}

}  // namespace
}  // namespace trevix::posix
