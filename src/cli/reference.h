// Reference: what the program takes, read from the same declarations that parse its command line,
// so that manual pages and completions cannot tell anything else.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace trevix::cli {

struct OptionReference {
    std::vector<std::string> names;  // "-n", "--dry-run"; of an operand "WORDS"
    std::string value;               // what it takes: "DIR", "ex|std"; empty for a flag
    std::string about;
    std::string group;  // the heading that help shows it under
    bool is_operand = false;
    bool is_required = false;
    bool repeats = false;
};

struct CommandReference {
    std::string name;   // "set"
    std::string words;  // "config set"; empty for the program itself
    std::string summary;
    std::string usage;  // what follows "trevixctl ", as help shows it
    std::vector<std::string> examples;
    std::vector<OptionReference> options;
    std::vector<OptionReference> operands;
    std::vector<CommandReference> commands;
};

// What the declarations on `app` say of it and of all commands below it.
CommandReference ReferenceOf(CLI::App& app, const std::string& words = {});

// Of the whole program.
CommandReference ProgramReference();

// The command of those words ("config set", or "" for the program); null when there is none.
const CommandReference* FindCommand(const CommandReference& program, const std::string& words);

// The words that a value is one of: those of "ex|std"; none when it is free.
std::vector<std::string> ChoicesOf(const OptionReference& option);

}  // namespace trevix::cli
