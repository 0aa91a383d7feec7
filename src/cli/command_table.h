// The commands of trevixctl, one row a command. Help and parsing read this table, and the tests
// check it.
#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "cli/console.h"

namespace trevix::cli {

// Runs a parsed command; the program's exit status.
using Runner = std::function<int(Console&)>;

struct Command {
    const char* name;
    const char* summary;
    const char* usage;    // what follows "trevixctl "
    const char* example;  // whole command lines, one a line

    // Declares the command's options on `app`. The runner owns what they are parsed into.
    Runner (*attach)(CLI::App& app);
};

std::vector<Command> CommandTable();

// A parsed command and what runs it.
using Runners = std::vector<std::pair<CLI::App*, Runner>>;

// Declares the program and all its commands on `app`.
Runners Declare(CLI::App& app);

// What help shows behind "Usage: trevixctl ".
void SetUsage(CLI::App& app, const std::string& usage);

// A command below a command, as "set" of "config". `example`: whole command lines, one a line.
CLI::App* AddSubCommand(CLI::App& app, const char* name, const char* summary, const char* usage,
                        const std::string& example);

Runner AttachCompress(CLI::App& app);
Runner AttachIndex(CLI::App& app);
Runner AttachFind(CLI::App& app);
Runner AttachExtract(CLI::App& app);
Runner AttachReport(CLI::App& app);
Runner AttachStatus(CLI::App& app);
Runner AttachFolders(CLI::App& app);
Runner AttachConfig(CLI::App& app);
Runner AttachProfile(CLI::App& app);
Runner AttachLog(CLI::App& app);
Runner AttachWatch(CLI::App& app);

// Parses the command line and runs the command that it names.
int RunProgram(int argc, const char* const* argv, Console& console);

}  // namespace trevix::cli
