// Log: where every procedure of the core writes its diagnostic lines.
//
// Levels: 1 error, 2 warning, 4 milestone, 8 detail, 12 trace. Writing never fails visibly; the
// writer itself decides which levels are kept and where they go.
#pragma once

#include <cstdint>
#include <string>

namespace trevix {

class Log {
 public:
    virtual ~Log() = default;

    // Writes one line for `class_name` and `procedure`. `level` comes back lowered to at most 4
    // when the line was also written to the event log, which knows no finer levels; a caller that
    // keeps its level in a variable goes on with the lowered one.
    virtual void Write(const char* class_name, const char* procedure, const std::string& message,
                       std::int16_t& level) = 0;

    // The same for a caller that has only a constant and no use for the answer.
    void Write(const char* class_name, const char* procedure, const std::string& message,
               std::int16_t&& level) {
        std::int16_t local = level;
        Write(class_name, procedure, message, local);
    }
};

}  // namespace trevix
