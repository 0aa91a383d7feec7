// trevixctl report: what the last compression run did, from the log that it left in the store.
#include <spawn.h>
#include <sys/wait.h>

#include <CLI/App.hpp>
#include <cerrno>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/looking_world.h"
#include "cli/report_text.h"
#include "platform/posix/posix_file_system.h"
#include "util/convert.h"

extern char** environ;

namespace trevix::cli {
namespace {

struct Options {
    StoreChoice store;
    std::string html;
    bool open = false;
    bool json = false;
};

int Save(const std::string& path, const std::string& html, Console& console) {
    posix::PosixFileSystem files;
    const Status written = files.WriteText(AbsolutePath(path), html);
    if (written.ok()) return kExitDone;
    console.Complain({"--html", written.error().description, "choose another place"});
    return kExitFailed;
}

// The page stays in the temporary directory: the browser may read it later than we end.
int Open(const std::string& html, Console& console) {
    posix::PosixFileSystem files;
    const std::string directory = files.TemporaryPath();
    const std::string path = directory + "compression-log.html";
    const Status written = files.WriteText(path, html);
    if (directory.empty() || !written.ok()) {
        console.Complain({"--open", "no private temporary directory for the page",
                          "set TMPDIR, or use --html FILE"});
        return kExitFailed;
    }
    std::string program = "xdg-open";
    std::string argument = path;
    char* arguments[] = {program.data(), argument.data(), nullptr};
    pid_t child = 0;
    const int failure =
        ::posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ);
    int outcome = 0;
    if (failure == 0) {
        while (::waitpid(child, &outcome, 0) < 0 && errno == EINTR) {
        }
    }
    if (failure == 0 && WIFEXITED(outcome) && WEXITSTATUS(outcome) == 0) return kExitDone;
    const std::string why = failure != 0 ? std::strerror(failure) : "it could not show the page";
    console.Complain({program, why, "open " + path + " in a browser"});
    return kExitFailed;
}

int ShowRows(const LogReport& report, Console& console) {
    if (!console.json) {
        console.out() << FormatLogReport(report);
        return kExitDone;
    }
    for (const LogRow& row : report.rows) {
        console.Event({{"event", "folder"},
                       {"path", row.folder},
                       {"attachments", row.attachments},
                       {"bytes_before", row.original_bytes},
                       {"bytes_after", row.compressed_bytes},
                       {"percent", row.percent}});
    }
    return kExitDone;
}

int Show(const Options& options, Console& console) {
    int exit_code = kExitDone;
    const auto world = OpenToLook(options.store, console, exit_code);
    if (world == nullptr) return exit_code;
    const auto html = ToText(ResultsProperty(world->state(), "LastCompressLog", kTypeString8));
    if (!html.ok() || html.value().empty()) {
        console.Complain({"report", "no compression run was finished on this store yet",
                          "start one with \"trevixctl compress\""});
        return kExitFailed;
    }
    if (options.open) return Open(html.value(), console);
    if (options.html == "-") {
        console.out() << html.value();
        return kExitDone;
    }
    if (!options.html.empty()) return Save(options.html, html.value(), console);
    return ShowRows(ParseCompressionLog(html.value()), console);
}

int Run(const Options& options, Console& console) {
    console.json = options.json;
    return console.EndWith(Show(options, console));
}

}  // namespace

Runner AttachReport(CLI::App& app) {
    auto options = std::make_shared<Options>();
    AddStoreOptions(app, options->store);
    auto* html = app.add_option("--html", options->html,
                                "Write the log as it is, an HTML page, to FILE (\"-\": here)")
                     ->type_name("FILE");
    auto* open = app.add_flag("--open", options->open, "Show the page in a browser (xdg-open)")
                     ->excludes(html);
    app.add_flag("--json", options->json, "One JSON object a line")->excludes(html)->excludes(open);
    return [options](Console& console) { return Run(*options, console); };
}

}  // namespace trevix::cli
