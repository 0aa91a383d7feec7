// SystemEventLog: the event log port over the system's journal, or over syslog where there is no
// journal.
//
// An entry is one datagram; when the daemon does not take it at once it is given up. The journal
// entry carries the fields TREVIX_EVENT_TYPE, TREVIX_CLASS and TREVIX_PROCEDURE for searching.
#pragma once

#include <string>

#include "platform/event_log.h"

namespace trevix::eventlog {

struct EventLogSockets {
    std::string journal = "/run/systemd/journal/socket";
    std::string syslog = "/dev/log";
};

class SystemEventLog final : public EventLog {
 public:
    explicit SystemEventLog(EventLogSockets sockets = {}) : sockets_(std::move(sockets)) {}

    // Every system that this runs on has a log; whether its daemon listens shows when reporting.
    bool Available() override { return true; }

    Status Report(const StringArray& strings, const std::string& source,
                  const std::string& second_text, int type) override;

 private:
    EventLogSockets sockets_;
};

}  // namespace trevix::eventlog
