// The operating system's application event log.
#pragma once

#include <string>

#include "platform/result.h"
#include "platform/variant.h"

namespace trevix {

class EventLog {
 public:
    virtual ~EventLog() = default;

    // Whether the system keeps such a log; without one the log writer skips it.
    virtual bool Available() = 0;

    // Reports one entry. `type`: 1 error, 2 warning, 4 information. `source` is "Trevix" or
    // "TXServer". Never blocks. Any failure (no log daemon, a full socket) is kIo.
    virtual Status Report(const StringArray& strings, const std::string& source,
                          const std::string& second_text, int type) = 0;
};

}  // namespace trevix
