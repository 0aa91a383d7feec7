// EventEcho: an event log that also shows the user the errors of a run as they happen.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "platform/event_log.h"

namespace trevix {

class EventEcho final : public EventLog {
 public:
    // Called for each error (type 1) and warning (type 2); `procedure` is "Class::Procedure", empty
    // when it is not named.
    using Show =
        std::function<void(int type, const std::string& procedure, const std::string& text)>;

    // `behind` may be null: then the entries go nowhere else.
    EventEcho(EventLog* behind, Show show) : behind_(behind), show_(std::move(show)) {}

    // Entries are to be shown also where the system keeps no log.
    bool Available() override { return true; }

    Status Report(const StringArray& strings, const std::string& source,
                  const std::string& second_text, int type) override;

 private:
    EventLog* behind_;
    Show show_;
};

}  // namespace trevix
