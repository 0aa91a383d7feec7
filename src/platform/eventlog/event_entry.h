// EventEntry: one event-log entry and the forms in which the log daemons take it.
#pragma once

#include <string>

#include "platform/variant.h"

namespace trevix::eventlog {

struct EventEntry {
    std::string source;
    std::string message;
    std::string class_name;  // of "Class::Procedure:message"; empty when the text has another form
    std::string procedure;
    int type = 4;  // 1 error, 2 warning, 4 information
};

// `strings` are joined by line feeds; `second_text`, when not empty, follows on a line of its own.
EventEntry MakeEntry(const StringArray& strings, const std::string& source,
                     const std::string& second_text, int type);

// The severity of the system log: 3 error, 4 warning, 6 information.
int PriorityOf(int type);

// The datagram of the journal's own protocol.
std::string JournalDatagram(const EventEntry& entry);

// The datagram that syslog daemons read from /dev/log. One line: line ends become blanks, and a
// long text is cut, for such a daemon would cut it anywhere.
std::string SyslogDatagram(const EventEntry& entry, int process);

}  // namespace trevix::eventlog
