#include "cli/completion.h"
#include "cli/setting_table.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

constexpr const char* kFunctions = R"sh(# fish completion for trevixctl

function __trevixctl_at --description 'Whether these words stand behind the program, and they alone'
    set -l words (commandline -opc)
    set -e words[1]
    test (count $words) -ge (count $argv); or return 1
    for word in $argv
        test $words[1] = $word; or return 1
        set -e words[1]
    end
end

function __trevixctl_ends --description 'Whether these are all the words so far'
    set -l words (commandline -opc)
    test (count $words) -eq (math (count $argv) + 1); and __trevixctl_at $argv
end

function __trevixctl_profiles
    trevixctl profile list --json 2>/dev/null | string replace -rf '.*"name":"([^"\\\\]*)".*' '$1'
end

complete -c trevixctl -f
)sh";

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "'";
}

// What completes a value; empty for nothing to offer.
std::string Candidates(const OptionReference& option) {
    const std::string& word = option.is_operand ? option.names.front() : option.value;
    if (word == "DIR") return "(__fish_complete_directories)";
    if (word == "PROFILE") return "(__trevixctl_profiles)";
    std::string words;
    if (word == "SETTING") {
        for (const Setting& setting : Settings()) {
            words += (words.empty() ? "" : " ") + std::string(setting.name);
        }
    }
    for (const std::string& choice : ChoicesOf(option)) {
        words += (words.empty() ? "" : " ") + choice;
    }
    return words;
}

// The condition under which a command's own words are offered.
std::string At(const std::string& function, const CommandReference& command) {
    return "complete -c trevixctl -n " +
           Quoted(function + (command.words.empty() ? "" : " " + command.words));
}

std::string OptionLine(const CommandReference& command, const OptionReference& option) {
    std::string line = At(command.words.empty() ? "__trevixctl_ends" : "__trevixctl_at", command);
    for (const std::string& name : option.names) {
        const bool is_long = name.starts_with("--");
        line += (is_long ? " -l " : " -s ") + name.substr(is_long ? 2 : 1);
    }
    if (option.value == "FILE") {
        line += " -r -F";
    } else if (!option.value.empty()) {
        line += " -x";
        const std::string candidates = Candidates(option);
        if (!candidates.empty()) line += " -a " + Quoted(candidates);
    }
    return line + " -d " + Quoted(option.about) + "\n";
}

std::string OperandLine(const CommandReference& command, const OptionReference& operand) {
    if (operand.names.front() == "FILE") return At("__trevixctl_ends", command) + " -F\n";
    const std::string candidates = Candidates(operand);
    if (candidates.empty()) return {};
    return At("__trevixctl_ends", command) + " -a " + Quoted(candidates) + "\n";
}

std::string Lines(const CommandReference& command) {
    std::string text;
    for (const CommandReference& below : command.commands) {
        text += At("__trevixctl_ends", command) + " -a " + below.name + " -d " +
                Quoted(below.summary) + "\n";
    }
    for (const OptionReference& option : command.options) {
        text += OptionLine(command, option);
    }
    for (const OptionReference& operand : command.operands) {
        text += OperandLine(command, operand);
    }
    for (const CommandReference& below : command.commands) {
        text += Lines(below);
    }
    return text;
}

}  // namespace

std::string FishCompletion(const CommandReference& program) {
    return kFunctions + Lines(program);
}

}  // namespace trevix::cli
