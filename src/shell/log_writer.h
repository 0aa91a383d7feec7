// The diagnostic log: every line to the application event log and, under the add-in, to trevix.log.
#pragma once

#include <string>

#include "util/log.h"

namespace trevix {

class BasCI;

inline constexpr const char* kVersionText = "4.0.4737";

class LogWriter final : public Log {
 public:
    // Borrows the state, whose settings decide what is written.
    explicit LogWriter(BasCI& state) : state_(state) {}

    using Log::Write;

    // Nothing happens above ErrorLogLevel. The file loses its oldest line with each entry that
    // finds it above ErrorLogSize. Failures are ignored, step by step.
    void Write(const char* class_name, const char* procedure, const std::string& message,
               std::int16_t& level) override;

 private:
    void WriteEvent(const std::string& entry, std::int16_t& level);
    void WriteFile(const std::string& body);
    void DropOldestLine(const std::string& path);

    BasCI& state_;
};

}  // namespace trevix
