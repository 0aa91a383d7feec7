// FakeMessageLoop: timers fire when a test says so; each pump may run something.
#pragma once

#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "platform/message_loop.h"

namespace trevix::fakes {

class FakeMessageLoop final : public MessageLoop {
 public:
    TimerId ArmTimer(int interval_ms, std::function<void()> tick) override {
        intervals_ms.push_back(interval_ms);
        timers[++last_id_] = std::move(tick);
        return last_id_;
    }
    void DisarmTimer(TimerId timer) override { timers.erase(timer); }
    void Defer(std::function<void()> work) override { deferred.push_back(std::move(work)); }
    void Pump() override {
        ++pumps;
        if (on_pump) on_pump(pumps);
    }
    void Run() override { FireTimers(); }
    void Quit() override {}

    // Fires every armed timer once.
    void FireTimers() {
        const auto due = timers;
        for (const auto& [id, tick] : due) {
            if (timers.contains(id)) tick();
        }
    }

    std::map<TimerId, std::function<void()>> timers;
    std::vector<int> intervals_ms;
    std::vector<std::function<void()>> deferred;
    std::function<void(int pump)> on_pump;
    int pumps = 0;

 private:
    TimerId last_id_ = 0;
};

}  // namespace trevix::fakes
