#include "cli/man_page.h"

#include <cctype>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "cli/exit_codes.h"
#include "cli/setting_table.h"
#include "shell/log_writer.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

// "-n" and "--dry-run" as the formatter's flag macro takes them, which adds the first hyphen.
std::string FlagMacro(const std::string& name) {
    return "Fl " + RoffText(std::string_view{name}.substr(1));
}

bool IsUpper(const std::string& word) {
    for (const char c : word) {
        if (std::islower(static_cast<unsigned char>(c)) != 0) return false;
    }
    return true;
}

// A summary as a sentence of its own.
std::string Sentence(const std::string& text) {
    if (text.empty()) return {};
    const std::string sentence = ToUpper(text.substr(0, 1)) + text.substr(1);
    return RoffText(sentence) + (text.ends_with('.') ? "" : ".");
}

// A word of a usage line: an option, a place holder or a command.
std::string UsageWord(const std::string& word) {
    if (word.starts_with("-")) return FlagMacro(word);
    return (IsUpper(word) ? "Ar " : "Cm ") + RoffText(word);
}

// "config set SETTING [VALUE]" as lines of macros.
std::string Synopsis(const std::string& usage) {
    std::string lines = ".Nm trevixctl\n";
    bool is_optional = false;
    std::string line;
    std::istringstream words(usage);
    for (std::string word; words >> word;) {
        const bool opens = word.starts_with("[");
        const bool closes = word.ends_with("]");
        if (opens) word.erase(0, 1);
        if (closes) word.pop_back();
        if (!is_optional) line = opens ? ".Op" : ".";
        is_optional = (is_optional || opens) && !closes;
        line += (line == "." ? "" : " ") + UsageWord(word);
        if (!is_optional) lines += line + "\n";
    }
    return lines;
}

std::string DashedName(const CommandReference& command) {
    std::string name = "trevixctl";
    for (const std::string& word : Split(command.words, " ")) {
        name += "-" + word;
    }
    return name;
}

std::string Head(const CommandReference& command, const std::string& date) {
    const std::string name = DashedName(command);
    std::string summary = command.summary;
    if (summary.ends_with('.')) summary.pop_back();
    if (!summary.empty()) summary = ToLower(summary.substr(0, 1)) + summary.substr(1);
    return ".Dd " + date + "\n.Dt " + ToUpper(name) + " 1\n.Os Trevix " + kVersionText +
           "\n.Sh NAME\n.Nm " + name + "\n.Nd " + RoffText(summary) + "\n.Sh SYNOPSIS\n" +
           Synopsis(command.usage);
}

std::string OptionItem(const OptionReference& option) {
    std::string item = ".It";
    for (const std::string& name : option.names) {
        if (&name != &option.names.front()) item += " ,";
        item += option.is_operand ? " Ar " + RoffText(name) : " " + FlagMacro(name);
    }
    if (!option.is_operand && !option.value.empty()) item += " Ar " + RoffText(option.value);
    return item + "\n" + Sentence(option.about) + "\n";
}

// Operands first, then each group of options under its heading.
std::string Items(const CommandReference& command) {
    std::string text;
    std::vector<std::string> groups;
    std::map<std::string, std::string> items;
    const auto add = [&](const std::string& group, const OptionReference& option) {
        if (items.find(group) == items.end()) groups.push_back(group);
        items[group] += OptionItem(option);
    };
    for (const OptionReference& operand : command.operands) {
        add("", operand);
    }
    for (const OptionReference& option : command.options) {
        add(option.group == "Options" ? "" : option.group, option);
    }
    for (const std::string& group : groups) {
        if (!group.empty()) text += ".Pp\n" + RoffText(group) + ":\n";
        text += ".Bl -tag -width Ds\n" + items[group] + ".El\n";
    }
    return text;
}

std::string Options(const CommandReference& command) {
    std::string text = Items(command);
    if (command.words.empty()) return text;
    for (const CommandReference& below : command.commands) {
        text += ".Ss " + RoffText(below.words) + "\n" + Sentence(below.summary) + "\n.Pp\n" +
                Synopsis(below.usage) + Items(below);
    }
    return text;
}

std::string Commands(const CommandReference& command) {
    std::string text = ".Bl -tag -width Ds\n";
    for (const CommandReference& below : command.commands) {
        text += ".It Cm " + RoffText(below.name) + "\n" + Sentence(below.summary) + "\n";
    }
    return text + ".El\n";
}

std::string ExampleLines(const CommandReference& command) {
    std::string text = ".Bd -literal -offset indent\n";
    const auto add = [&text](const CommandReference& one) {
        for (const std::string& example : one.examples) {
            text += RoffText(example) + "\n";
        }
    };
    add(command);
    for (const CommandReference& below : command.commands) {
        // The program's own examples are enough: its commands have pages of their own.
        if (!command.words.empty()) add(below);
    }
    return text + ".Ed\n";
}

std::string ExitStatus() {
    std::string text = ".Bl -tag -width 130\n";
    for (const ExitMeaning& exit : kExitMeanings) {
        text += ".It " + std::to_string(exit.code) + "\n" + Sentence(exit.meaning) + "\n";
    }
    return text + ".El\n";
}

std::string Replaced(std::string line, const std::string& word, const std::string& text) {
    for (std::size_t at = 0; (at = line.find(word, at)) != std::string::npos; at += text.size()) {
        line.replace(at, word.size(), text);
    }
    return line;
}

std::string SettingItems() {
    std::string text = ".Bl -tag -width Ds\n";
    // A list of extensions may be longer than a line.
    const auto breakable = [](const char* value) { return Replaced(RoffText(value), ":", ":\\:"); };
    for (const Setting& setting : Settings()) {
        text += ".It Cm " + RoffText(setting.name) + " Pq Va " + RoffText(setting.value_name) +
                "\n" + Sentence(setting.about) + "\n.Pp\nDefault:\n" + breakable(setting.fallback) +
                "\n";
    }
    return text + ".El\n";
}

std::string Pages(const CommandReference& program) {
    std::set<std::string> names;
    for (const CommandReference& command : program.commands) {
        names.insert(DashedName(command));
    }
    std::string text;
    for (const std::string& name : names) {
        text += ".Xr " + RoffText(name) + " 1" + (name == *names.rbegin() ? "\n" : " ,\n");
    }
    return text;
}

// "trevixctl-config.1.in" is about "config", "trevixctl.1.in" about the program; null for pages
// that are about no command.
const CommandReference* CommandOfFile(const std::string& file_name,
                                      const CommandReference& program) {
    constexpr std::string_view kProgram = "trevixctl";
    if (!file_name.starts_with(kProgram)) return nullptr;
    const std::size_t end = file_name.find('.');
    std::string words = file_name.substr(kProgram.size(), end - kProgram.size());
    if (!words.empty()) words.erase(0, 1);
    return FindCommand(program, words);
}

// What stands for a word between two "@" on a line of its own.
Result<std::string> Block(const std::string& word, const CommandReference* command,
                          const std::string& date, const CommandReference& program) {
    if (word == "EXIT_STATUS") return ExitStatus();
    if (word == "SETTINGS") return SettingItems();
    if (word == "PAGES") return Pages(program);
    if (command == nullptr) return Error{ErrorKind::kMalformed, 0, word};
    if (word == "HEAD") return Head(*command, date);
    if (word == "OPTIONS") return Options(*command);
    if (word == "COMMANDS") return Commands(*command);
    if (word == "EXAMPLES") return ExampleLines(*command);
    return Error{ErrorKind::kMalformed, 0, word};
}

}  // namespace

std::string RoffText(std::string_view text) {
    std::string safe;
    // A point or a quote begins a request at the beginning of a line.
    if (!text.empty() && (text.front() == '.' || text.front() == '\'')) safe = "\\&";
    for (const char c : text) {
        switch (c) {
            case '\\': safe += "\\e"; break;
            case '-': safe += "\\-"; break;
            case '"': safe += "\\(dq"; break;
            case '\'': safe += "\\(aq"; break;
            case '~': safe += "\\(ti"; break;
            case '^': safe += "\\(ha"; break;
            default: safe += c;
        }
    }
    return safe;
}

Result<std::string> FillManPage(const std::string& page_template, const std::string& file_name,
                                const std::string& date, const CommandReference& program) {
    const CommandReference* command = CommandOfFile(file_name, program);
    std::string page;
    std::istringstream lines(page_template);
    for (std::string line; std::getline(lines, line);) {
        line = Replaced(Replaced(line, "@DATE@", date), "@VERSION@", kVersionText);
        if (line.size() < 3 || line.front() != '@' || line.back() != '@') {
            page += line + "\n";
            continue;
        }
        auto block = Block(line.substr(1, line.size() - 2), command, date, program);
        if (!block.ok()) return block;
        page += block.value();
    }
    return page;
}

}  // namespace trevix::cli
