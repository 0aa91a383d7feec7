// trevixctl index: one index run.
#include <CLI/App.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/index_phase.h"
#include "cli/index_report.h"
#include "cli/interrupt.h"
#include "cli/local_runs.h"
#include "cli/service_choice.h"
#include "cli/service_runs.h"
#include "cli/store_choice.h"
#include "cli/text_format.h"
#include "cli/world.h"

namespace trevix::cli {
namespace {

struct Options {
    StoreChoice store;
    ServiceChoice service;
    bool rebuild = false;
    bool json = false;
    bool quiet = false;
};

int EndWith(nlohmann::json fields, int exit_code, Console& console) {
    fields["event"] = "summary";
    fields["exit"] = exit_code;
    console.Event(fields);
    return exit_code;
}

int NotRun(int exit_code, Console& console) {
    return EndWith(IndexSummaryFields({}, 0), exit_code, console);
}

// All stores of the profile, as a compression run treats them. Nothing after a complaint.
std::optional<std::string> StoreIds(MessagingSession& session, Console& console) {
    const auto stores = session.InfoStores();
    Status failure;
    if (!stores.ok()) failure = stores.error();
    std::string ids;
    for (std::size_t i = 0; failure.ok() && i < stores.value().size(); ++i) {
        const auto id = stores.value()[i]->Id();
        if (!id.ok()) failure = id.error();
        if (id.ok()) ids += (ids.empty() ? "" : ";") + id.value();
    }
    if (failure.ok()) return ids;
    console.Complain({"stores", PlainText(failure.error().description), ""});
    return std::nullopt;
}

WorldPlan PlanOf(const Options& options) {
    WorldPlan plan;
    plan.server_mode = options.store.server_mode;
    plan.folder_use = FolderUse::kRead;
    return plan;
}

int RunOn(Runs& runs, const Options& options, const std::string& store_ids, const std::string& name,
          RunErrors& errors, Console& console) {
    IndexPhase phase(runs, errors, name, console);
    const Interrupt interrupt(runs.loop(), InterruptTextOf(options.service),
                              [&phase] { phase.Cancel(); });
    runs.StartIndexing(store_ids, options.rebuild);
    const int exit_code = phase.Follow();
    return EndWith(phase.SummaryFields(), exit_code, console);
}

int RunHere(const Options& options, const StoreName& name, Console& console) {
    RunErrors errors(name.Text(), console);
    WorldPlan plan = PlanOf(options);
    plan.show_error = errors.Shower();
    const auto world = World::Open(plan, name, console);
    if (world == nullptr) return NotRun(kExitFailed, console);
    const auto store_ids = StoreIds(*world->state().gMAPISession, console);
    if (!store_ids) return NotRun(kExitFailed, console);
    LocalRuns runs(*world);
    return RunOn(runs, options, *store_ids, name.Text(), errors, console);
}

// See the compression run: the service of the system is asked for its default store.
std::optional<std::string> StoreIdsForService(const Options& options, const StoreName& name,
                                              Console& console) {
    if (options.service.bus() == ServiceBus::kSystem) return std::string();
    WorldPlan plan = PlanOf(options);
    plan.writes = WorldPlan::Writes::kNothing;
    plan.keeps_summaries = true;
    const auto world = World::Open(plan, name, console);
    if (world == nullptr) return std::nullopt;
    return StoreIds(*world->state().gMAPISession, console);
}

int RunInService(const Options& options, const StoreName& name, Console& console) {
    const auto store_ids = StoreIdsForService(options, name, console);
    if (!store_ids) return NotRun(kExitFailed, console);
    RunErrors errors(name.Text(), console);
    const auto runs = ServiceRuns::Open(options.service.bus(), name, errors.Shower(), console);
    if (runs == nullptr) return NotRun(kExitFailed, console);
    return RunOn(*runs, options, *store_ids, name.Text(), errors, console);
}

int Run(const Options& options, Console& console) {
    console.json = options.json;
    console.quiet = options.quiet;
    std::vector<const char*> not_for_service;
    if (options.store.server_mode) not_for_service.push_back("--server-mode");
    if (!CheckServiceOptions(options.service, not_for_service, console)) {
        return NotRun(kExitUsage, console);
    }
    int exit_code = kExitDone;
    const auto name = LogonName(options.store, console, exit_code);
    if (!name) return NotRun(exit_code, console);
    return options.service.IsChosen() ? RunInService(options, *name, console)
                                      : RunHere(options, *name, console);
}

}  // namespace

Runner AttachIndex(CLI::App& app) {
    auto options = std::make_shared<Options>();
    AddStoreOptions(app, options->store);
    AddServiceOptions(app, options->service);
    app.add_flag("--rebuild", options->rebuild, "From nothing, instead of what is new");
    app.add_flag("--json", options->json, "One JSON object a line on the standard output");
    app.add_flag("-q,--quiet", options->quiet, "Errors only");
    return [options](Console& console) { return Run(*options, console); };
}

}  // namespace trevix::cli
