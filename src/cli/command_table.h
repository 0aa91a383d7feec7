// The commands of trevixctl, one row a command. Help and parsing read this table, and the tests
// check it.
#pragma once

#include <CLI/App.hpp>
#include <functional>
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

// Parses the command line and runs the command that it names.
int RunProgram(int argc, const char* const* argv, Console& console);

}  // namespace trevix::cli
