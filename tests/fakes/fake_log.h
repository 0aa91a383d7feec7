// FakeLog: keeps every diagnostic line in the order of writing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "util/log.h"

namespace trevix::fakes {

struct LogLine {
    std::string class_name;
    std::string procedure;
    std::string message;
    std::int16_t level = 0;  // as it was asked for

    friend bool operator==(const LogLine&, const LogLine&) = default;
};

class FakeLog final : public Log {
 public:
    using Log::Write;

    void Write(const char* class_name, const char* procedure, const std::string& message,
               std::int16_t& level) override {
        lines.push_back({class_name, procedure, message, level});
        if (to_event_log && level > 4) level = 4;
    }

    // The messages of one level, in order.
    std::vector<std::string> MessagesOfLevel(std::int16_t level) const {
        std::vector<std::string> messages;
        for (const LogLine& line : lines) {
            if (line.level == level) messages.push_back(line.message);
        }
        return messages;
    }

    std::vector<LogLine> lines;

    // On: behaves as if every line also went to the event log, that is, lowers the level.
    bool to_event_log = false;
};

}  // namespace trevix::fakes
