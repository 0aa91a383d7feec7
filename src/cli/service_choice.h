// Whether a run goes on in the automation service: the options that choose it.
#pragma once

#include <CLI/App.hpp>
#include <vector>

#include "cli/console.h"
#include "cli/service_runs.h"

namespace trevix::cli {

struct ServiceChoice {
    bool of_user = false;
    bool of_system = false;

    bool IsChosen() const { return of_user || of_system; }
    ServiceBus bus() const { return of_system ? ServiceBus::kSystem : ServiceBus::kSession; }
};

void AddServiceOptions(CLI::App& app, ServiceChoice& choice);

// False, after a complaint, when the service was chosen together with one of `given`, which only
// this process can heed.
bool CheckServiceOptions(const ServiceChoice& choice, const std::vector<const char*>& given,
                         Console& console);

// What a second Ctrl-C says.
const char* InterruptTextOf(const ServiceChoice& choice);

}  // namespace trevix::cli
