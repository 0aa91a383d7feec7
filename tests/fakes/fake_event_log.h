// FakeEventLog: keeps every entry in the order of reporting.
#pragma once

#include <string>
#include <vector>

#include "fakes/fault_plan.h"
#include "platform/event_log.h"

namespace trevix::fakes {

struct FakeEvent {
    StringArray strings;
    std::string source;
    std::string second_text;
    int type = 0;

    friend bool operator==(const FakeEvent&, const FakeEvent&) = default;
};

class FakeEventLog final : public EventLog {
 public:
    explicit FakeEventLog(FaultPlan& plan) : plan_(plan) {}

    std::vector<FakeEvent> events;
    bool available = true;

    bool Available() override { return available; }

    Status Report(const StringArray& strings, const std::string& source,
                  const std::string& second_text, int type) override {
        TREVIX_RETURN_IF_ERROR(plan_.Enter("eventlog.Report"));
        events.push_back({strings, source, second_text, type});
        return {};
    }

 private:
    FaultPlan& plan_;
};

}  // namespace trevix::fakes
