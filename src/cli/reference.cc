#include "cli/reference.h"

#include <sstream>

#include "cli/command_table.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

// The type's own name, without what its checks add: "INT in [1 - 9]" stays "INT".
std::string ValueName(const CLI::Option& option) {
    if (option.get_items_expected_max() == 0) return {};
    std::string name = option.get_type_name();
    const std::size_t check = name.find_first_of(": ");
    if (check != std::string::npos) name.erase(check);
    return name;
}

OptionReference Describe(const CLI::Option& option) {
    OptionReference reference;
    reference.is_operand = option.get_positional();
    if (reference.is_operand) reference.names.push_back(option.get_name());
    if (!reference.is_operand) {
        for (const std::string& name : option.get_snames()) {
            reference.names.push_back("-" + name);
        }
        for (const std::string& name : option.get_lnames()) {
            reference.names.push_back("--" + name);
        }
    }
    reference.value = ValueName(option);
    reference.about = option.get_description();
    reference.group = option.get_group();
    reference.is_required = option.get_required();
    reference.repeats = option.get_expected_max() > 1;
    return reference;
}

// Help shows examples as lines that begin with the program's name.
std::vector<std::string> ExamplesIn(const std::string& footer) {
    std::vector<std::string> examples;
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("  trevixctl ")) examples.push_back(TrimBlanks(line));
    }
    return examples;
}

// "Usage: trevixctl config set [OPTIONS] NAME": what stands behind the program's name.
std::string UsageOf(const CLI::App& app) {
    const std::string help = app.help();
    constexpr std::string_view kLabel = "Usage: trevixctl";
    const std::size_t label = help.find(kLabel);
    if (label == std::string::npos) return {};
    const std::size_t end = help.find('\n', label);
    return TrimBlanks(help.substr(label + kLabel.size(), end - label - kLabel.size()));
}

}  // namespace

CommandReference ReferenceOf(CLI::App& app, const std::string& words) {
    CommandReference reference;
    reference.name = app.get_name();
    reference.words = words;
    reference.summary = app.get_description();
    reference.usage = UsageOf(app);
    reference.examples = ExamplesIn(app.get_footer());
    for (const CLI::Option* option : app.get_options()) {
        // Without a group an option is for the program's own use.
        if (option->get_group().empty()) continue;
        OptionReference one = Describe(*option);
        (one.is_operand ? reference.operands : reference.options).push_back(std::move(one));
    }
    for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
        const std::string below = words.empty() ? "" : words + " ";
        reference.commands.push_back(ReferenceOf(*command, below + command->get_name()));
    }
    return reference;
}

CommandReference ProgramReference() {
    CLI::App app;
    const Runners runners = Declare(app);
    return ReferenceOf(app);
}

const CommandReference* FindCommand(const CommandReference& program, const std::string& words) {
    if (program.words == words) return &program;
    for (const CommandReference& command : program.commands) {
        const CommandReference* found = FindCommand(command, words);
        if (found != nullptr) return found;
    }
    return nullptr;
}

std::vector<std::string> ChoicesOf(const OptionReference& option) {
    if (option.value.find('|') == std::string::npos) return {};
    return Split(option.value, "|");
}

}  // namespace trevix::cli
