// The part of "trevixctl compress" that treats many mailboxes.
#pragma once

#include <CLI/App.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/store_choice.h"
#include "cli/time_limit.h"

namespace trevix::cli {

struct FleetChoice {
    std::optional<std::string> users_from;
    std::optional<int> jobs;
    int part_of = 0;  // the process of the fleet that this run is a part of

    bool IsChosen() const { return users_from.has_value(); }
    bool IsPart() const { return part_of != 0; }
};

void AddFleetOptions(CLI::App& app, FleetChoice& choice);

// Runs the fleet; `options` are those of each run. The program's exit status.
int RunFleet(const FleetChoice& choice, const StoreChoice& store, std::vector<std::string> options,
             std::optional<TimeLimit::Moment> end, Console& console);

// Makes this process end with the fleet that it is a part of. False when that is gone already.
bool JoinFleet(const FleetChoice& choice);

}  // namespace trevix::cli
