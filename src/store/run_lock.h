// The run lock: two time stamps on the results message that keep the runs of different processes
// apart.
//
// The lock is not atomic and a run of more than five minutes can be joined by one of another
// process; no mail depends on it, because each save compares the stored message with the one that
// was read. A second run of the same process, which the first would pump, is always kept out.
#pragma once

#include <functional>
#include <string>

#include "shell/bas_ci.h"

namespace trevix {

// What the two kinds of run say differently, deliberately.
struct RunLockTexts {
    const char* class_name;
    bool traces;                   // logs its start and the two stamps
    const char* conflict_message;  // for the client
    bool raises_before_logging;    // order of event and log line on a conflict
    const char* conflict_line;     // these two are followed by the start of the other run
    const char* after_timeout_line;
    const char* start_line;
};

extern const RunLockTexts kManageLockTexts;
extern const RunLockTexts kIndexLockTexts;

// True when the caller must not run: another run holds the lock or there is no results message.
// `abort` was then called with the message for the client; the caller clears its in-process flag.
// False when the caller now holds the lock.
bool CheckInProcess(BasCI& state, const RunLockTexts& texts,
                    const std::function<void(const std::string&)>& abort);

// Releases the lock: "EndCI" is now.
void ClearEndCI(BasCI& state);

}  // namespace trevix
