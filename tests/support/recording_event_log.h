// RecordingEventLog: keeps every entry of the event log.
#pragma once

#include <string>
#include <vector>

#include "fakes/fault_plan.h"
#include "platform/event_log.h"

namespace trevix::test {

class RecordingEventLog final : public EventLog {
 public:
    struct Entry {
        std::string source;
        std::string second_text;
        int type = 0;
    };

    explicit RecordingEventLog(fakes::FaultPlan& plan) : plan_(plan) {}

    bool Available() override { return available; }
    Status Report(const StringArray& strings, const std::string& source,
                  const std::string& second_text, int type) override {
        texts.push_back(strings.at(0));
        entries.push_back({source, second_text, type});
        return plan_.Enter("eventlog.Report");
    }

    bool available = true;
    std::vector<std::string> texts;  // the first string of each entry
    std::vector<Entry> entries;

 private:
    fakes::FaultPlan& plan_;
};

}  // namespace trevix::test
