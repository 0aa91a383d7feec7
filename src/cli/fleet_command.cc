#include "cli/fleet_command.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <utility>

#include "cli/exit_codes.h"
#include "cli/fleet.h"
#include "cli/fleet_list.h"
#include "cli/interrupt.h"
#include "platform/posix/child_process.h"
#include "platform/posix/poll_loop.h"

namespace trevix::cli {
namespace {

constexpr int kMostJobs = 256;

constexpr const char* kLeftFleetText =
    "\ntrevixctl: ended at once; the runs under way end behind the message at hand\n";

int NotRun(int exit_code, Console& console) {
    return console.EndWith(exit_code);
}

bool CheckStore(const StoreChoice& store, Console& console) {
    const char* given = nullptr;
    if (!store.profile.empty()) given = "--profile";
    if (!store.maildir.empty()) given = "--maildir";
    if (!store.alias.empty()) given = "--alias";
    if (given == nullptr) return true;
    console.Complain({given, "the list says which mailboxes are meant",
                      std::string("leave out ") + given + ", or --users-from"});
    return false;
}

int TellEnd(const Fleet& fleet, int exit_code, std::int64_t elapsed_ms, Console& console) {
    nlohmann::json event = fleet.tally().Fields();
    event.update(fleet.Sums());
    event["event"] = "summary";
    event["exit"] = exit_code;
    event["elapsed_ms"] = elapsed_ms;
    console.Event(event);
    return exit_code;
}

}  // namespace

void AddFleetOptions(CLI::App& app, FleetChoice& choice) {
    const std::string group = "Many mailboxes";
    auto* users = app.add_option("--users-from", choice.users_from,
                                 "The mailboxes of this list, \"-\" for the standard input: a line "
                                 "each, with --server a user, else a store's address")
                      ->type_name("FILE")
                      ->group(group);
    app.add_option("--jobs", choice.jobs, "So many of them side by side (default: 1)")
        ->type_name("N")
        ->check(CLI::Range(1, kMostJobs))
        ->needs(users)
        ->group(group);
    // How the program calls itself; no part of its help.
    app.add_option("--part-of", choice.part_of)->group("");
}

int RunFleet(const FleetChoice& choice, const StoreChoice& store, std::vector<std::string> options,
             std::optional<TimeLimit::Moment> end, Console& console) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    console.json = true;
    if (!CheckStore(store, console)) return NotRun(kExitUsage, console);
    const auto list = ReadFleetList(*choice.users_from);
    if (!list.ok()) {
        console.Complain({"--users-from", list.error().description, ""});
        return NotRun(kExitFailed, console);
    }
    FleetPlan plan;
    plan.members = ParseFleetList(list.value(), store.server);
    plan.options = std::move(options);
    plan.jobs = choice.jobs.value_or(1);

    posix::PollLoop loop;
    Fleet fleet(std::move(plan), loop, console);
    bool is_interrupted = false;
    const Interrupt interrupt(loop, kLeftFleetText, [&] {
        is_interrupted = true;
        fleet.Stop();
    });
    const TimeLimit limit(loop, end, [&fleet] { fleet.Stop(); });
    fleet.Run();
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    return TellEnd(fleet, fleet.tally().ExitCode(is_interrupted, limit.IsOver()), elapsed.count(),
                   console);
}

bool JoinFleet(const FleetChoice& choice) {
    return posix::EndWithParent(choice.part_of);
}

}  // namespace trevix::cli
