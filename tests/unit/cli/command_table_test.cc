#include "cli/command_table.h"

#include <gmock/gmock.h>

#include <CLI/App.hpp>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "cli/exit_codes.h"

namespace trevix::cli {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Outcome {
    int exit_code = 0;
    std::string out;
    std::string err;
};

Outcome RunWith(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "trevixctl");
    std::ostringstream out;
    std::ostringstream err;
    Console console(out, err, false);
    const int exit_code = RunProgram(static_cast<int>(arguments.size()), arguments.data(), console);
    return {exit_code, out.str(), err.str()};
}

TEST(CommandTable, IsCompleteForEachCommand) {
    std::set<std::string> names;
    for (const Command& command : CommandTable()) {
        EXPECT_TRUE(names.insert(command.name).second) << command.name;
        EXPECT_STRNE(command.summary, "");
        EXPECT_THAT(command.usage, StartsWith(command.name));
        std::istringstream lines(command.example);
        for (std::string line; std::getline(lines, line);) {
            EXPECT_THAT(line, StartsWith("trevixctl "));
        }
        EXPECT_THAT(command.example, HasSubstr(std::string("trevixctl ") + command.name));
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre("compress", "config", "extract", "find",
                                                     "folders", "index", "log", "profile", "report",
                                                     "status", "watch"));
}

// Every option that an example shows must be one that the command takes.
TEST(CommandTable, HasExamplesThatParse) {
    for (const Command& command : CommandTable()) {
        std::istringstream lines(command.example);
        for (std::string line; std::getline(lines, line);) {
            CLI::App app;
            std::vector<Runner> runners;
            for (const Command& other : CommandTable()) {
                runners.push_back(other.attach(*app.add_subcommand(other.name, other.summary)));
            }
            EXPECT_NO_THROW(app.parse(line, true)) << line;
        }
    }
}

TEST(RunProgram, ShowsTheHelpOfEachCommandWithItsExample) {
    for (const Command& command : CommandTable()) {
        const Outcome outcome = RunWith({command.name, "--help"});

        EXPECT_EQ(outcome.exit_code, kExitDone);
        EXPECT_THAT(outcome.out, HasSubstr(std::string("Usage: trevixctl ") + command.usage));
        EXPECT_THAT(outcome.out, HasSubstr("Example:\n  trevixctl "));
        EXPECT_EQ(outcome.err, "");
    }
}

TEST(RunProgram, ShowsTheHelpOfASubCommand) {
    const Outcome outcome = RunWith({"config", "set", "--help"});

    EXPECT_EQ(outcome.exit_code, kExitDone);
    EXPECT_THAT(outcome.out, HasSubstr("trevixctl config set exclude"));
}

TEST(RunProgram, ShowsItsVersion) {
    const Outcome outcome = RunWith({"--version"});

    EXPECT_EQ(outcome.exit_code, kExitDone);
    EXPECT_EQ(outcome.out, "trevixctl 4.0.4737\n");
}

TEST(RunProgram, RefusesWhatItDoesNotKnow) {
    for (const auto& arguments :
         std::vector<std::vector<const char*>>{{},
                                               {"frobnicate"},
                                               {"compress", "--frobnicate"},
                                               {"compress", "--html", "--html-only"},
                                               {"compress", "--separate", "--rollup"},
                                               {"compress", "--profile", "a", "--maildir", "b"},
                                               {"compress", "--alias", "ann"},
                                               {"compress", "--maildir"},
                                               {"config"},
                                               {"config", "get"},
                                               {"profile", "add", "x"},
                                               {"log", "-n", "0"}}) {
        const Outcome outcome = RunWith(arguments);

        EXPECT_EQ(outcome.exit_code, kExitUsage) << testing::PrintToString(arguments);
        EXPECT_THAT(outcome.err, StartsWith("trevixctl: "));
        EXPECT_THAT(outcome.err, HasSubstr("\nhint: "));
        EXPECT_EQ(outcome.out, "");
    }
}

TEST(RunProgram, EndsInASummaryForProgramsEvenOnAUsageError) {
    const Outcome outcome = RunWith({"compress", "--json", "--frobnicate"});

    std::istringstream lines(outcome.out);
    std::string line;
    std::string last;
    while (std::getline(lines, line)) {
        last = line;
    }
    const auto event = nlohmann::json::parse(last);
    EXPECT_EQ(event["event"], "summary");
    EXPECT_EQ(event["exit"], kExitUsage);
}

}  // namespace
}  // namespace trevix::cli
