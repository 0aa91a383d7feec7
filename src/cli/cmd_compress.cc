// trevixctl compress: one compression run, for real or dry, and the index run behind it.
#include <CLI/App.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/fleet_command.h"
#include "cli/folder_list.h"
#include "cli/index_phase.h"
#include "cli/interrupt.h"
#include "cli/local_runs.h"
#include "cli/run_errors.h"
#include "cli/run_report.h"
#include "cli/run_view.h"
#include "cli/service_choice.h"
#include "cli/service_runs.h"
#include "cli/setting_table.h"
#include "cli/size_and_time.h"
#include "cli/store_choice.h"
#include "cli/text_format.h"
#include "cli/time_limit.h"
#include "cli/world.h"
#include "shell/settings.h"

namespace trevix::cli {
namespace {

struct Options {
    StoreChoice store;
    ServiceChoice service;
    FleetChoice fleet;
    std::optional<std::string> max_time;
    std::optional<TimeLimit::Moment> end;  // what the above means
    bool html = false;
    bool html_only = false;
    std::vector<std::string> folders;
    bool separate = false;
    bool rollup = false;
    std::optional<std::string> level;
    std::optional<std::string> min_size;
    std::optional<std::string> exclude;
    bool custom_items = false;
    bool dry_run = false;
    bool no_index = false;
    bool json = false;
    bool quiet = false;
};

// Each run ends in a summary, also one that never began.
int NotRun(const Options& options, int exit_code, Console& console) {
    console.Event(SummaryEvent({}, {}, 0, options.dry_run, exit_code));
    return exit_code;
}

// The settings that the options set for this run. Nothing after a complaint.
std::optional<std::vector<OverlayValue>> OptionValues(const Options& options, Console& console) {
    std::vector<std::pair<const char*, std::string>> given;
    if (options.separate) given.emplace_back("rollup", "off");
    if (options.rollup) given.emplace_back("rollup", "on");
    if (options.level) given.emplace_back("level", *options.level);
    if (options.min_size) given.emplace_back("min-size", *options.min_size);
    if (options.exclude) given.emplace_back("exclude", *options.exclude);
    if (options.custom_items) given.emplace_back("custom-items", "on");

    std::vector<OverlayValue> values;
    for (const auto& [name, text] : given) {
        const auto value = ParseSetting(*FindSetting(name), text);
        if (!value.ok()) {
            console.Complain({std::string("--") + name, value.error().description,
                              "see \"trevixctl compress --help\""});
            return std::nullopt;
        }
        values.push_back({kCurrentUser, kAddinKey, value.value()});
    }
    if (options.store.server_mode && !values.empty()) {
        console.Complain({"--server-mode", "the store's own settings rule there",
                          "leave out --server-mode, or the options that set something else"});
        return std::nullopt;
    }
    return values;
}

// "STORE,FOLDER" entries; a whole store is "all". Nothing after a complaint.
std::optional<std::string> FolderIds(World& world, const std::vector<std::string>& paths,
                                     Console& console) {
    const auto folders = ListFolders(*world.state().gMAPISession);
    if (!folders.ok()) {
        console.Complain({"folders", PlainText(folders.error().description), ""});
        return std::nullopt;
    }
    std::string ids;
    const auto append = [&ids](const std::string& store, const std::string& folder) {
        const std::string entry = store + "," + folder;
        if (ids.find(entry) == std::string::npos) ids += (ids.empty() ? "" : ";") + entry;
    };
    for (const std::string& path : paths) {
        const auto folder = FindFolder(folders.value(), path);
        if (folder.ok()) {
            append(folder.value().store_id, folder.value().id);
            continue;
        }
        const std::string& named = folder.error().description;
        const bool several = folder.error().kind == ErrorKind::kMalformed;
        std::string hint = "\"trevixctl folders\" lists them";
        if (!named.empty()) hint = (several ? "spell it as one of " : "did you mean ") + named;
        console.Complain(
            {path, several ? "several folders are called so" : "no such folder", hint});
        return std::nullopt;
    }
    if (!paths.empty()) return ids;
    for (const FolderEntry& folder : folders.value()) {
        append(folder.store_id, "all");
    }
    return ids;
}

int ExitCode(const Runs& runs, const RunView& view, const RunErrors& errors,
             const std::string& name, bool is_time_up, Console& console) {
    switch (view.end()) {
        case RunView::End::kComplete:
            if (errors.is_disk_full()) {
                console.Complain({name, "the disk is full",
                                  "make room and start again; what was not treated is as it was"});
                return kExitFailed;
            }
            if (errors.is_temporary_full()) {
                console.Complain({"temporary files", "archives could not be written",
                                  "make room in TMPDIR (default /tmp) and start again"});
                return kExitFailed;
            }
            if (runs.CompressionSummary().messages_failed > 0) return kExitSomeFailed;
            // An error that concerned no message concerned the run's own results.
            return errors.count() > 0 ? kExitFailed : kExitDone;
        case RunView::End::kCancelled:
            console.Complain({name, is_time_up ? "the time is up" : "cancelled",
                              "the next run goes on where this one ended"});
            return is_time_up ? kExitTimeUp : kExitCancelled;
        case RunView::End::kHeld:
            console.Complain({name, "another run holds the store",
                              "wait until it ends; \"trevixctl status\" tells since when it runs"});
            return kExitHeld;
        case RunView::End::kRefused:
        case RunView::End::kNone: break;
    }
    if (!runs.Loss().empty()) {
        console.Complain(LossComplaint(runs.Loss()));
        return kExitFailed;
    }
    const std::string& why = view.abort_message();
    console.Complain({name, why.empty() ? "the run ended without a result" : why,
                      "the errors above and \"trevixctl log\" say more"});
    return kExitFailed;
}

// Serves the loop until the compression run has ended.
void Follow(Runs& runs, RunView& view, RunErrors& errors) {
    posix::PollLoop& loop = runs.loop();
    runs.CompressionEvents(&view);
    errors.In(&view.folder());
    // A run whose end was not announced (its time did not fit the event) still ends the loop.
    constexpr int kLookMs = 250;
    const auto look = loop.ArmTimer(kLookMs, [&] {
        if (!runs.IsCompressing()) loop.Quit();
    });
    loop.Run();
    loop.DisarmTimer(look);
    view.Finish();
    runs.CompressionEvents(nullptr);
    errors.In(nullptr);
}

int RunOn(Runs& runs, const Options& options, const std::string& folder_ids,
          const std::string& name, RunErrors& errors, Console& console) {
    const RunSummary& summary = runs.CompressionSummary();
    RunView view(summary, runs.clock(), runs.loop(), console);
    IndexPhase index(runs, errors, name, console);
    const auto cancel = [&] {
        runs.CancelCompression();
        index.Cancel();
    };
    // A part of a fleet gets its signals from more than one side.
    const char* last_words = options.fleet.IsPart() ? nullptr : InterruptTextOf(options.service);
    const Interrupt interrupt(runs.loop(), last_words, cancel);
    const TimeLimit limit(runs.loop(), options.end, cancel);
    const auto start = runs.clock().UnixNanoseconds();
    runs.StartCompression({!options.html_only, options.html || options.html_only, folder_ids,
                           !options.no_index && !options.dry_run});
    Follow(runs, view, errors);

    const std::int64_t elapsed_ms = (runs.clock().UnixNanoseconds() - start) / 1000000;
    int exit_code = ExitCode(runs, view, errors, name, limit.IsOver(), console);
    const bool ran =
        view.end() == RunView::End::kComplete || view.end() == RunView::End::kCancelled;
    if (ran && !console.json && !console.quiet) {
        if (options.dry_run) console.out() << FolderTable(view.folders());
        console.out() << SummaryLine(summary, elapsed_ms, options.dry_run) << '\n';
    }
    const bool indexes = index.IsStarted();
    if (indexes) {
        const int index_code = index.Follow();
        const bool is_time_up = index_code == kExitCancelled && limit.IsOver();
        if (exit_code == kExitDone) exit_code = is_time_up ? kExitTimeUp : index_code;
    }
    nlohmann::json event =
        SummaryEvent(summary, view.folders(), elapsed_ms, options.dry_run, exit_code);
    if (indexes) event["index"] = index.SummaryFields();
    console.Event(event);
    return exit_code;
}

WorldPlan PlanOf(const Options& options, std::vector<OverlayValue> values) {
    WorldPlan plan;
    plan.options = std::move(values);
    plan.server_mode = options.store.server_mode;
    if (options.dry_run) {
        plan.writes = WorldPlan::Writes::kNothing;
        plan.held_lock = HeldLock::kConcealed;
    }
    if (options.folders.empty()) {
        plan.folder_use = options.dry_run ? FolderUse::kRead : FolderUse::kWrite;
    }
    return plan;
}

int RunHere(const Options& options, std::vector<OverlayValue> values, const StoreName& name,
            Console& console) {
    RunErrors errors(name.Text(), console);
    WorldPlan plan = PlanOf(options, std::move(values));
    plan.show_error = errors.Shower();
    const auto world = World::Open(plan, name, console);
    if (world == nullptr) return NotRun(options, kExitFailed, console);
    const auto folder_ids = FolderIds(*world, options.folders, console);
    if (!folder_ids) return NotRun(options, kExitFailed, console);
    LocalRuns runs(*world);
    return RunOn(runs, options, *folder_ids, name.Text(), errors, console);
}

// The service of this user works on mail that this program can look into; which folders are meant
// is found out here. That of the system gets no folders, which stands for the default store.
std::optional<std::string> FolderIdsForService(const Options& options, const StoreName& name,
                                               Console& console) {
    if (options.service.bus() == ServiceBus::kSystem) return std::string();
    WorldPlan plan = PlanOf(options, {});
    plan.writes = WorldPlan::Writes::kNothing;
    plan.keeps_summaries = true;
    const auto world = World::Open(plan, name, console);
    if (world == nullptr) return std::nullopt;
    return FolderIds(*world, options.folders, console);
}

int RunInService(const Options& options, const StoreName& name, Console& console) {
    const auto folder_ids = FolderIdsForService(options, name, console);
    if (!folder_ids) return NotRun(options, kExitFailed, console);
    RunErrors errors(name.Text(), console);
    const auto runs = ServiceRuns::Open(options.service.bus(), name, errors.Shower(), console);
    if (runs == nullptr) return NotRun(options, kExitFailed, console);
    return RunOn(*runs, options, *folder_ids, name.Text(), errors, console);
}

// What the service's own settings and places decide cannot be said here.
std::vector<const char*> OptionsNotForService(const Options& options) {
    std::vector<const char*> given;
    const auto note = [&given](bool is_given, const char* option) {
        if (is_given) given.push_back(option);
    };
    note(options.separate, "--separate");
    note(options.rollup, "--rollup");
    note(options.level.has_value(), "--level");
    note(options.min_size.has_value(), "--min-size");
    note(options.exclude.has_value(), "--exclude");
    note(options.custom_items, "--custom-items");
    note(options.dry_run, "--dry-run");
    note(options.store.server_mode, "--server-mode");
    note(options.service.of_system && !options.folders.empty(), "--folder");
    note(options.fleet.IsChosen(), "--users-from");
    return given;
}

// The moment when the time is up. False after a complaint.
bool TakeTime(Options& options, Console& console) {
    if (!options.max_time) return true;
    const auto length = ParseDuration(*options.max_time);
    if (length) {
        options.end = std::chrono::steady_clock::now() + std::chrono::milliseconds(*length);
        return true;
    }
    console.Complain({"--max-time", "\"" + *options.max_time + "\" is no length of time",
                      "write it as 90s, 15m, 2h or 1h30m"});
    return false;
}

// What each run of a fleet is told.
std::vector<std::string> OptionsOfParts(const Options& options) {
    std::vector<std::string> given;
    const auto flag = [&given](bool is_given, const char* option) {
        if (is_given) given.emplace_back(option);
    };
    const auto value = [&given](const std::optional<std::string>& text, const char* option) {
        if (text) given.push_back(option + ("=" + *text));
    };
    flag(options.html, "--html");
    flag(options.html_only, "--html-only");
    flag(options.separate, "--separate");
    flag(options.rollup, "--rollup");
    flag(options.custom_items, "--custom-items");
    flag(options.dry_run, "--dry-run");
    flag(options.no_index, "--no-index");
    flag(options.store.server_mode, "--server-mode");
    value(options.level, "--level");
    value(options.min_size, "--min-size");
    value(options.exclude, "--exclude");
    for (const std::string& folder : options.folders)
        given.push_back("--folder=" + folder);
    return given;
}

int Run(Options& options, Console& console) {
    console.json = options.json;
    console.quiet = options.quiet;
    // Whoever started this run has its events, and tells them to people.
    console.events_only = options.fleet.IsPart();
    if (options.fleet.IsPart() && !JoinFleet(options.fleet)) return kExitCancelled;
    if (!TakeTime(options, console)) return NotRun(options, kExitUsage, console);
    if (!CheckServiceOptions(options.service, OptionsNotForService(options), console)) {
        return NotRun(options, kExitUsage, console);
    }
    auto values = OptionValues(options, console);
    if (!values) return NotRun(options, kExitUsage, console);
    if (options.fleet.IsChosen()) {
        return RunFleet(options.fleet, options.store, OptionsOfParts(options), options.end,
                        console);
    }
    int exit_code = kExitDone;
    const auto name = LogonName(options.store, console, exit_code);
    if (!name) return NotRun(options, exit_code, console);
    return options.service.IsChosen() ? RunInService(options, *name, console)
                                      : RunHere(options, std::move(*values), *name, console);
}

}  // namespace

Runner AttachCompress(CLI::App& app) {
    auto options = std::make_shared<Options>();
    AddStoreOptions(app, options->store);
    AddServiceOptions(app, options->service);
    app.add_option("--folder", options->folders,
                   "Only this folder, without those below it; may be given several times")
        ->type_name("PATH")
        ->allow_extra_args(false);
    app.add_flag("--html", options->html, "Remove stationery images as well");
    app.add_flag("--html-only", options->html_only, "Remove stationery images, zip nothing")
        ->excludes("--html");
    app.add_flag("--separate", options->separate, "One archive an attachment");
    app.add_flag("--rollup", options->rollup, "One archive a message")->excludes("--separate");
    app.add_option("--level", options->level, "ex smallest, std, ef fast, es fastest")
        ->type_name("ex|std|ef|es");
    app.add_option("--min-size", options->min_size, "Leave smaller attachments alone")
        ->type_name("BYTES");
    app.add_option("--exclude", options->exclude,
                   "Extensions to leave alone, as \".zip:.jpg\" (replaces the setting)")
        ->type_name("LIST");
    app.add_flag("--custom-items", options->custom_items, "Messages of custom classes as well");
    app.add_flag("-n,--dry-run", options->dry_run,
                 "Do all the work, write nothing, show what would change");
    app.add_flag("--no-index", options->no_index, "Leave the attachment index as it is");
    app.add_option("--max-time", options->max_time,
                   "End at the next message after that time, as after Ctrl-C (90s, 15m, 1h30m)")
        ->type_name("TIME");
    AddFleetOptions(app, options->fleet);
    app.add_flag("--json", options->json, "One JSON object a line on the standard output");
    app.add_flag("-q,--quiet", options->quiet, "Errors only");
    return [options](Console& console) { return Run(*options, console); };
}

}  // namespace trevix::cli
