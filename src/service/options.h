// The command line of trevixci.
#pragma once

#include <optional>
#include <string>

#include "platform/dbus/connection.h"

namespace trevix::service {

struct Options {
    dbus::Connection::Bus bus = dbus::Connection::Bus::kStarter;
    std::string bus_text;  // as it was given; empty when it was not
    bool leaves_when_idle = true;

    // Of a session's process, which a broker starts.
    std::string owner;
    bool is_shared = false;

    bool shows_help = false;
    bool shows_version = false;
};

// Nothing when the command line is not understood; `complaint` says why.
std::optional<Options> ParseOptions(int argc, const char* const* argv, std::string& complaint);

extern const char* const kHelp;

}  // namespace trevix::service
