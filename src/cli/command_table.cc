#include "cli/command_table.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "cli/exit_codes.h"
#include "shell/log_writer.h"

namespace trevix::cli {
namespace {

constexpr const char* kProgramExample =
    "Example:\n"
    "  trevixctl compress --maildir ~/Maildir --dry-run\n"
    "  trevixctl compress --maildir ~/Maildir\n\n";

class UsageFormatter final : public CLI::Formatter {
 public:
    explicit UsageFormatter(std::string usage) : usage_(std::move(usage)) { column_width(28); }

    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override {
        return "Usage: trevixctl " + usage_ + "\n";
    }

 private:
    std::string usage_;
};

void SetExample(CLI::App& app, std::string example) {
    for (std::size_t at = 0; (at = example.find('\n', at)) != std::string::npos; at += 3) {
        example.replace(at, 1, "\n  ");
    }
    app.footer("Example:\n  " + example);
}

// "Exit status: 0 done, 1 failed, ...", in lines that fit a terminal.
std::string ExitStatusHelp() {
    constexpr std::size_t kColumns = 79;
    std::string help = "Exit status:";
    std::size_t line_start = 0;
    for (const ExitMeaning& exit : kExitMeanings) {
        const std::string entry = std::to_string(exit.code) + " " + exit.meaning;
        if (&exit != kExitMeanings) help += ',';
        if (help.size() - line_start + entry.size() + 2 > kColumns) {
            help += '\n';
            line_start = help.size();
        } else {
            help += ' ';
        }
        help += entry;
    }
    return help + ".";
}

int UsageError(const std::string& why, const CLI::App& app, Console& console) {
    std::string help = "trevixctl --help";
    for (const CLI::App* sub : app.get_subcommands()) {
        help = "trevixctl " + sub->get_name() + " --help";
    }
    console.Complain({"command line", why, "see \"" + help + "\""});
    return console.EndWith(kExitUsage);
}

// Help of the innermost command that was named.
int ShowHelp(const CLI::App& app, Console& console) {
    const CLI::App* innermost = &app;
    while (!innermost->get_subcommands().empty()) {
        innermost = innermost->get_subcommands().front();
    }
    console.out() << innermost->help();
    return kExitDone;
}

bool AsksForJson(int argc, const char* const* argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) return true;
        if (std::strcmp(argv[i], "--") == 0) return false;
    }
    return false;
}

}  // namespace

std::vector<Command> CommandTable() {
    return {
        {"compress", "Zip the attachments of a mail store, in place", "compress [STORE] [OPTIONS]",
         "trevixctl compress --maildir ~/Maildir --dry-run\n"
         "trevixctl compress --maildir ~/Maildir --folder Inbox --folder Archive/2019 --level ex\n"
         "trevixctl compress --server imap.example.org --alias ann --max-time 2h\n"
         "trevixctl compress --server imap.example.org --users-from users.txt --jobs 4",
         AttachCompress},
        {"index", "Bring the attachment index of a mail store up to date",
         "index [STORE] [--rebuild]",
         "trevixctl index --maildir ~/Maildir\n"
         "trevixctl index --maildir ~/Maildir --rebuild",
         AttachIndex},
        {"find", "Find attachments, and files inside zip attachments, in the index",
         "find [STORE] [WORDS] [OPTIONS]",
         "trevixctl find --maildir ~/Maildir offer --from ann --larger 100k --since 2007-10\n"
         "trevixctl find --maildir ~/Maildir --name '*.pdf' --in-zip --csv",
         AttachFind},
        {"extract", "Save attachments, and files inside zip attachments, as files",
         "extract [STORE] [WORDS] [OPTIONS] [--into DIR]",
         "trevixctl extract --maildir ~/Maildir --row 12\n"
         "trevixctl extract --maildir ~/Maildir --name '*.pdf' --from ann --into ~/offers",
         AttachExtract},
        {"report", "Show what the last compression run did",
         "report [STORE] [--html FILE] [--open]",
         "trevixctl report --maildir ~/Maildir\n"
         "trevixctl report --maildir ~/Maildir --html last-run.html",
         AttachReport},
        {"status", "Show the stores, the run lock, the totals and the marks of the folders",
         "status [STORE] [--json]", "trevixctl status --maildir ~/Maildir", AttachStatus},
        {"folders", "Show the folder tree with message counts", "folders [STORE] [--ids] [--json]",
         "trevixctl folders --maildir ~/Maildir", AttachFolders},
        {"config", "Read and change the settings", "config COMMAND",
         "trevixctl config list\n"
         "trevixctl config set min-size 20000",
         AttachConfig},
        {"profile", "Name the mail stores that you use", "profile COMMAND",
         "trevixctl profile add home --maildir ~/Maildir\n"
         "trevixctl compress --profile home",
         AttachProfile},
        {"log", "Show the diagnostic log", "log [-n LINES] [--follow]", "trevixctl log -n 20",
         AttachLog},
        {"watch", "Start a run in the automation service and show its events",
         "watch [STORE] [OPTIONS]", "trevixctl watch --maildir ~/Maildir --json", AttachWatch},
    };
}

void SetUsage(CLI::App& app, const std::string& usage) {
    app.formatter(std::make_shared<UsageFormatter>(usage));
}

CLI::App* AddSubCommand(CLI::App& app, const char* name, const char* summary, const char* usage,
                        const std::string& example) {
    CLI::App* command = app.add_subcommand(name, summary);
    SetUsage(*command, usage);
    SetExample(*command, example);
    return command;
}

Runners Declare(CLI::App& app) {
    app.name("trevixctl");
    app.description(
        "Zips the attachments of stored mail, in place and without loss, and finds them again.");
    SetUsage(app, "COMMAND [OPTIONS]");
    app.footer(std::string(kProgramExample) + ExitStatusHelp());
    app.set_version_flag("--version", std::string("trevixctl ") + kVersionText);
    app.require_subcommand(1);

    Runners runners;
    for (const Command& command : CommandTable()) {
        CLI::App* sub =
            AddSubCommand(app, command.name, command.summary, command.usage, command.example);
        runners.emplace_back(sub, command.attach(*sub));
    }
    return runners;
}

int RunProgram(int argc, const char* const* argv, Console& console) {
    console.json = AsksForJson(argc, argv);
    CLI::App app;
    const Runners runners = Declare(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForVersion& version) {
        console.out() << version.what() << '\n';
        return kExitDone;
    } catch (const CLI::CallForHelp&) {
        return ShowHelp(app, console);
    } catch (const CLI::CallForAllHelp&) {
        return ShowHelp(app, console);
    } catch (const CLI::ParseError& error) {
        return UsageError(error.what(), app, console);
    }
    for (const auto& [sub, run] : runners) {
        if (sub->parsed()) return run(console);
    }
    return UsageError("no command", app, console);
}

}  // namespace trevix::cli
