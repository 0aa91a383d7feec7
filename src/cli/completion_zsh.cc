#include "cli/completion.h"
#include "cli/setting_table.h"

namespace trevix::cli {
namespace {

constexpr const char* kFunctions = R"sh(#compdef trevixctl
# zsh completion for trevixctl

_trevixctl_profiles() {
    local -a names
    names=(${(f)"$(trevixctl profile list --json 2>/dev/null |
        sed -n 's/.*"name":"\([^"\\]*\)".*/\1/p')"})
    compadd -a names
}

)sh";

// As it stands within single quotes in what describes an argument.
std::string Escaped(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        if (c == '\'') {
            safe += "'\\''";
        } else {
            if (c == '[' || c == ']' || c == ':' || c == '\\') safe += '\\';
            safe += c;
        }
    }
    return safe;
}

std::string FunctionName(const CommandReference& command) {
    std::string name = "_trevixctl";
    for (const char c : " " + command.words) {
        name += c == ' ' ? '_' : c;
    }
    return command.words.empty() ? "_trevixctl" : name;
}

// ":message:action" behind an option that takes a value.
std::string Action(const OptionReference& option) {
    const std::string& word = option.is_operand ? option.names.front() : option.value;
    std::string action = " ";
    if (word == "DIR") action = "_directories";
    if (word == "FILE") action = "_files";
    if (word == "PROFILE") action = "_trevixctl_profiles";
    if (word == "SETTING") {
        action = "(";
        for (const Setting& setting : Settings()) {
            action += std::string(action == "(" ? "" : " ") + setting.name;
        }
        action += ")";
    }
    std::string choices;
    for (const std::string& choice : ChoicesOf(option)) {
        choices += (choices.empty() ? "" : " ") + choice;
    }
    if (!choices.empty()) action = "(" + choices + ")";
    return ":" + Escaped(word) + ":" + action;
}

std::string ArgumentLine(const OptionReference& option) {
    if (option.is_operand) {
        return std::string("        '") +
               (option.repeats       ? "*"
                : option.is_required ? ""
                                     : ":") +
               Action(option) + "'";
    }
    std::string names;
    std::string alternatives;
    for (const std::string& name : option.names) {
        names += (names.empty() ? "" : " ") + name;
        alternatives += (alternatives.empty() ? "" : ",") + name;
    }
    std::string line = "        '";
    line += option.repeats ? "*" : "(" + names + ")";
    line += option.names.size() > 1 ? "'{" + alternatives + "}'" : names;
    line += "[" + Escaped(option.about) + "]";
    if (!option.value.empty()) line += Action(option);
    return line + "'";
}

std::string Function(const CommandReference& command) {
    std::string text = FunctionName(command) + "() {\n";
    if (!command.commands.empty()) {
        // A function would have the words put back when it ends.
        text += "    if (( CURRENT > 2 )); then\n        shift words\n        (( CURRENT-- ))\n";
        text += "        case $words[1] in\n";
        for (const CommandReference& below : command.commands) {
            text += "            " + below.name + ") " + FunctionName(below) + " ;;\n";
        }
        text += "        esac\n        return\n    fi\n    local -a commands\n    commands=(\n";
        for (const CommandReference& below : command.commands) {
            text += "        '" + below.name + ":" + Escaped(below.summary) + "'\n";
        }
        text += "    )\n    [[ $PREFIX == -* ]] || _describe -t commands command commands\n";
    }
    text += "    _arguments -S";
    for (const OptionReference& option : command.options) {
        text += " \\\n" + ArgumentLine(option);
    }
    for (const OptionReference& operand : command.operands) {
        text += " \\\n" + ArgumentLine(operand);
    }
    text += "\n}\n\n";
    for (const CommandReference& below : command.commands) {
        text += Function(below);
    }
    return text;
}

}  // namespace

std::string ZshCompletion(const CommandReference& program) {
    return kFunctions + Function(program) + "_trevixctl \"$@\"\n";
}

}  // namespace trevix::cli
