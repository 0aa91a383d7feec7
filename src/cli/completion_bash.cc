#include "cli/completion.h"
#include "cli/setting_table.h"

namespace trevix::cli {
namespace {

constexpr const char* kFunctions = R"sh(# bash completion for trevixctl

# What `compgen "$@"` finds, whatever blanks it holds.
_trevixctl_found() {
    mapfile -t COMPREPLY < <(compgen "$@")
}

_trevixctl_profiles() {
    local name
    while IFS= read -r name; do
        [[ $name == "$1"* ]] && COMPREPLY+=("$(printf %q "$name")")
    done < <(trevixctl profile list --json 2>/dev/null |
             sed -n 's/.*"name":"\([^"\\]*\)".*/\1/p')
}

_trevixctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command=
    COMPREPLY=()
    # "--option=value" comes as three words.
    if [[ $cur == = ]]; then
        cur=
    elif [[ $prev == = ]]; then
        prev=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    (( COMP_CWORD > 1 )) && command=${COMP_WORDS[1]}
    (( COMP_CWORD > 2 )) && case $command in
)sh";

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

std::vector<std::string> SettingNames() {
    std::vector<std::string> names;
    for (const Setting& setting : Settings()) {
        names.emplace_back(setting.name);
    }
    return names;
}

// The shell command that completes a value; empty for nothing to offer.
std::string ValueCompletion(const OptionReference& option) {
    if (option.value == "DIR") return "compopt -o filenames; _trevixctl_found -d -- \"$cur\"";
    const std::string& word = option.is_operand ? option.names.front() : option.value;
    if (word == "FILE") return "compopt -o filenames; _trevixctl_found -f -- \"$cur\"";
    if (word == "PROFILE") return "_trevixctl_profiles \"$cur\"";
    if (word == "SETTING")
        return "_trevixctl_found -W '" + Joined(SettingNames()) + "' -- \"$cur\"";
    const std::vector<std::string> choices = ChoicesOf(option);
    if (choices.empty()) return {};
    return "_trevixctl_found -W '" + Joined(choices) + "' -- \"$cur\"";
}

// Cases for the values of a command's options: what stands behind "--maildir".
std::string ValueCases(const CommandReference& command) {
    std::string cases;
    for (const OptionReference& option : command.options) {
        if (option.value.empty()) continue;
        std::string pattern;
        for (const std::string& name : option.names) {
            pattern += (pattern.empty() ? "'" : "|'") + command.words + ":" + name + "'";
        }
        cases += "        " + pattern + ") " + ValueCompletion(option);
        cases += ValueCompletion(option).empty() ? "return ;;\n" : "; return ;;\n";
    }
    for (const CommandReference& below : command.commands) {
        cases += ValueCases(below);
    }
    return cases;
}

// Cases for the words that may stand anywhere: commands, options, operands.
std::string WordCases(const CommandReference& command) {
    std::vector<std::string> words;
    for (const CommandReference& below : command.commands) {
        words.push_back(below.name);
    }
    for (const OptionReference& option : command.options) {
        words.insert(words.end(), option.names.begin(), option.names.end());
    }
    std::string cases = "        '" + command.words + "') ";
    if (!command.operands.empty()) {
        const std::string operand = ValueCompletion(command.operands.front());
        if (!operand.empty())
            cases += "[[ $cur == -* ]] || { " + operand + "; return; }\n" + std::string(12, ' ');
    }
    cases += "_trevixctl_found -W '" + Joined(words) + "' -- \"$cur\" ;;\n";
    for (const CommandReference& below : command.commands) {
        cases += WordCases(below);
    }
    return cases;
}

}  // namespace

std::string BashCompletion(const CommandReference& program) {
    std::string script = kFunctions;
    for (const CommandReference& command : program.commands) {
        if (command.commands.empty()) continue;
        script += "        " + command.name + ") command+=\" ${COMP_WORDS[2]}\" ;;\n";
    }
    script += "    esac\n    case $command:$prev in\n" + ValueCases(program) +
              "    esac\n    case $command in\n" + WordCases(program) +
              "    esac\n}\n\ncomplete -F _trevixctl trevixctl\n";
    return script;
}

}  // namespace trevix::cli
