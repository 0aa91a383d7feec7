// trevixctl watch: a run in the automation service, and its events as they come.
#include <CLI/App.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/interrupt.h"
#include "cli/run_errors.h"
#include "cli/service_choice.h"
#include "cli/service_runs.h"
#include "cli/store_choice.h"
#include "cli/text_format.h"
#include "store/run_lock.h"

namespace trevix::cli {
namespace {

struct Options {
    StoreChoice store;
    bool of_system = false;
    bool index_only = false;
    bool no_index = false;
    bool json = false;

    ServiceChoice service() const { return {!of_system, of_system}; }
};

// Both runs' events, one a line.
class EventPrinter {
 public:
    explicit EventPrinter(Console& console) : console_(console) {}

    void Print(const char* run, const char* event, nlohmann::json fields) {
        if (console_.json) {
            fields["event"] = event;
            fields["run"] = run;
            console_.Event(fields);
            return;
        }
        console_.out() << run << ' ' << event;
        if (fields.contains("text")) {
            console_.out() << " \"" << Printable(fields["text"].get<std::string>()) << '"';
        }
        for (const char* number : {"count", "elapsed_ms"}) {
            if (fields.contains(number)) {
                console_.out() << ' ' << fields[number].get<std::int32_t>();
            }
        }
        console_.out() << '\n' << std::flush;
    }

 private:
    Console& console_;
};

// The events of either class, of which the last one decides the exit status.
template <typename Events>
class Printed final : public Events {
 public:
    Printed(const char* run, EventPrinter& printer, posix::PollLoop& loop)
        : run_(run), printer_(printer), loop_(loop) {}

    void FolderChange(const std::string& folder_name, std::int32_t count) override {
        printer_.Print(run_, "FolderChange", {{"text", folder_name}, {"count", count}});
    }
    void Progress(const std::string& text, std::int32_t count) override {
        printer_.Print(run_, "Progress", {{"text", text}, {"count", count}});
    }
    void Complete(std::int32_t elapsed_ms) override {
        printer_.Print(run_, "Complete", {{"elapsed_ms", elapsed_ms}});
        exit_code_ = kExitDone;
        loop_.Quit();
    }
    void Abort(const std::string& message) override {
        printer_.Print(run_, "Abort", {{"text", message}});
        const bool is_held = message == kManageLockTexts.conflict_message ||
                             message == kIndexLockTexts.conflict_message;
        exit_code_ = is_held ? kExitHeld : kExitFailed;
        loop_.Quit();
    }

    int exit_code() const { return exit_code_; }

 private:
    const char* run_;
    EventPrinter& printer_;
    posix::PollLoop& loop_;
    int exit_code_ = kExitFailed;
};

int Watch(ServiceRuns& runs, const Options& options, Console& console) {
    EventPrinter printer(console);
    Printed<CManageEvents> manage("Manage", printer, runs.loop());
    Printed<CIndexEvents> index("Index", printer, runs.loop());
    runs.CompressionEvents(&manage);
    runs.IndexingEvents(&index);
    bool is_cancelled = false;
    const Interrupt interrupt(runs.loop(), InterruptTextOf(options.service()), [&] {
        is_cancelled = true;
        runs.CancelCompression();
        runs.CancelIndexing();
    });
    int exit_code = kExitDone;
    bool indexes = options.index_only;
    if (options.index_only) {
        runs.StartIndexing({}, false);
    } else {
        runs.StartCompression({true, false, {}, !options.no_index});
        runs.loop().Run();
        exit_code = manage.exit_code();
        indexes = runs.IndexingFollows();
    }
    if (indexes && runs.IsIndexing()) runs.loop().Run();
    if (indexes && exit_code == kExitDone) exit_code = index.exit_code();
    runs.CompressionEvents(nullptr);
    runs.IndexingEvents(nullptr);
    if (!runs.Loss().empty()) {
        console.Complain(LossComplaint(runs.Loss()));
        return kExitFailed;
    }
    return is_cancelled && exit_code == kExitFailed ? kExitCancelled : exit_code;
}

int Show(const Options& options, Console& console) {
    int exit_code = kExitDone;
    const auto name = LogonName(options.store, console, exit_code);
    if (!name) return exit_code;
    if (options.store.server_mode) {
        CheckServiceOptions(options.service(), {"--server-mode"}, console);
        return kExitUsage;
    }
    // Problems are told at any time, not only while a folder is gone through.
    RunErrors errors(name->Text(), console);
    const std::string no_folder;
    errors.In(&no_folder);
    const auto runs = ServiceRuns::Open(options.service().bus(), *name, errors.Shower(), console);
    return runs == nullptr ? kExitFailed : Watch(*runs, options, console);
}

int Run(const Options& options, Console& console) {
    console.json = options.json;
    return console.EndWith(Show(options, console));
}

}  // namespace

Runner AttachWatch(CLI::App& app) {
    auto options = std::make_shared<Options>();
    AddStoreOptions(app, options->store);
    app.add_flag("--system-service", options->of_system,
                 "The machine's service on the system bus, not yours on the session bus");
    auto* index_only = app.add_flag("--index-only", options->index_only, "Only an index run");
    app.add_flag("--no-index", options->no_index, "Only a compression run")->excludes(index_only);
    app.add_flag("--json", options->json, "One JSON object a line");
    return [options](Console& console) { return Run(*options, console); };
}

}  // namespace trevix::cli
