#include "cli/service_choice.h"

#include "cli/interrupt.h"

namespace trevix::cli {

void AddServiceOptions(CLI::App& app, ServiceChoice& choice) {
    const std::string group = "Where the run goes on (default: in this program)";
    auto* of_user = app.add_flag("--service", choice.of_user,
                                 "In your automation service, over the session bus")
                        ->group(group);
    app.add_flag("--system-service", choice.of_system,
                 "In the machine's automation service, over the system bus")
        ->excludes(of_user)
        ->group(group);
}

bool CheckServiceOptions(const ServiceChoice& choice, const std::vector<const char*>& given,
                         Console& console) {
    if (!choice.IsChosen() || given.empty()) return true;
    const std::string service = choice.of_system ? "--system-service" : "--service";
    std::string options;
    for (const char* option : given) {
        options += (options.empty() ? "" : ", ") + std::string(option);
    }
    console.Complain({options,
                      "not together with " + service + ": the service has its own settings",
                      "leave out the one or the other"});
    return false;
}

const char* InterruptTextOf(const ServiceChoice& choice) {
    return choice.IsChosen() ? kLeftServiceText : kEndedAtOnceText;
}

}  // namespace trevix::cli
