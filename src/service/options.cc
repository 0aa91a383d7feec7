#include "service/options.h"

#include <string_view>

namespace trevix::service {

const char* const kHelp =
    "Usage: trevixci [--bus session|system] [--no-idle-exit]\n"
    "\n"
    "The automation service of TrevixCI. The message bus starts it when it is needed.\n"
    "\n"
    "  --bus session|system  the bus to serve, instead of the one that started it\n"
    "  --no-idle-exit        stay when no session is left\n"
    "  --version             show the version\n"
    "  --help                show this\n";

std::optional<Options> ParseOptions(int argc, const char* const* argv, std::string& complaint) {
    Options options;
    const auto value_of = [&](int& at) -> std::string {
        return at + 1 < argc ? argv[++at] : std::string();
    };
    for (int i = 1; i < argc; ++i) {
        const std::string_view option = argv[i];
        if (option == "--no-idle-exit") {
            options.leaves_when_idle = false;
        } else if (option == "--bus") {
            options.bus_text = value_of(i);
            options.bus = options.bus_text == "system" ? dbus::Connection::Bus::kSystem
                                                       : dbus::Connection::Bus::kSession;
            if (options.bus_text != "session" && options.bus_text != "system") {
                complaint = "--bus: session or system";
                return std::nullopt;
            }
        } else if (option == "--owner" || option == "--holder") {
            options.owner = value_of(i);
            options.is_shared = option == "--holder";
            if (!options.owner.starts_with(':')) {
                complaint = std::string(option) + ": not a unique name";
                return std::nullopt;
            }
        } else if (option == "--help") {
            options.shows_help = true;
        } else if (option == "--version") {
            options.shows_version = true;
        } else {
            complaint = std::string(option) + ": unknown option";
            return std::nullopt;
        }
    }
    return options;
}

}  // namespace trevix::service
