#include "platform/imap/server_sections.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <utility>

#include "platform/errors.h"

namespace trevix::imap {
namespace {

std::string_view Trim(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// What is wrong with a value; empty when nothing is.
using Check = std::string (*)(std::string_view value);

std::string CheckNothing(std::string_view /*value*/) {
    return {};
}

std::string CheckSecurity(std::string_view value) {
    if (value == "tls" || value == "starttls" || value == "plain") return {};
    return "is tls, starttls or plain";
}

std::string CheckPort(std::string_view value) {
    std::uint16_t port = 0;
    const auto [end, failure] = std::from_chars(value.data(), value.data() + value.size(), port);
    const bool is_port = failure == std::errc() && end == value.data() + value.size() && port > 0;
    return is_port ? "" : "is a number from 1 to 65535";
}

std::string CheckPath(std::string_view value) {
    return value.starts_with('/') ? "" : "is an absolute path";
}

std::string CheckAuth(std::string_view value) {
    return value == "password" || value == "xoauth2" ? "" : "is password or xoauth2";
}

std::string CheckCredential(std::string_view value) {
    const bool is_name = value.find('/') == std::string_view::npos && value != "." && value != "..";
    return is_name ? "" : "is a name without \"/\"";
}

struct EntryRule {
    std::string_view name;
    Check check;
    bool is_secret_source;
};

constexpr std::array kEntries = {
    EntryRule{"security", CheckSecurity, false},
    EntryRule{"port", CheckPort, false},
    EntryRule{"ca_file", CheckPath, false},
    EntryRule{"auth", CheckAuth, false},
    EntryRule{"login", CheckNothing, false},
    EntryRule{"password_command", CheckNothing, true},
    EntryRule{"password_file", CheckPath, true},
    EntryRule{"password_credential", CheckCredential, true},
    EntryRule{"password", CheckNothing, true},
    EntryRule{"hidden_mailbox", CheckNothing, false},
};

const EntryRule* FindRule(std::string_view name) {
    const auto* const found = std::find_if(kEntries.begin(), kEntries.end(),
                                           [name](const auto& rule) { return rule.name == name; });
    return found == kEntries.end() ? nullptr : found;
}

std::string EntryNames() {
    std::string names;
    for (const EntryRule& rule : kEntries)
        names += (names.empty() ? "" : ", ") + std::string(rule.name);
    return names;
}

class Parser {
 public:
    Parser(std::string_view text, const std::string& path) : text_(text), path_(path) {}

    Result<std::vector<ServerSection>> Parse() {
        for (std::size_t at = 0; at < text_.size();) {
            const std::size_t end = std::min(text_.find('\n', at), text_.size());
            ++line_;
            TREVIX_RETURN_IF_ERROR(ReadLine(Trim(text_.substr(at, end - at))));
            at = end + 1;
        }
        return std::move(sections_);
    }

 private:
    Status ReadLine(std::string_view line) {
        if (line.find('\0') != std::string_view::npos) return Malformed("not a text file");
        if (line.empty() || line.front() == '#' || line.front() == ';') return {};
        if (line.front() == '[') return BeginSection(line);
        const std::size_t equals = line.find('=');
        if (equals == std::string_view::npos) {
            return Malformed("expected \"[host]\", \"[user@host]\" or \"entry = value\"");
        }
        if (sections_.empty()) return Malformed("an entry in front of the first \"[host]\"");
        return ReadEntry(Trim(line.substr(0, equals)), Trim(line.substr(equals + 1)));
    }

    // A user's name may hold an "@", a host's does not.
    Status BeginSection(std::string_view line) {
        const std::string_view name =
            line.back() == ']' ? Trim(line.substr(1, line.size() - 2)) : std::string_view();
        const std::size_t at = name.rfind('@');
        ServerSection section;
        if (at != std::string_view::npos) section.user = name.substr(0, at);
        section.host = at == std::string_view::npos ? name : name.substr(at + 1);
        for (char& c : section.host) {
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        }
        const bool has_no_user = at != std::string_view::npos && section.user.empty();
        if (section.host.empty() || has_no_user || section.host.find('/') != std::string::npos) {
            return Malformed("expected a server as \"[host]\" or \"[user@host]\"");
        }
        for (const ServerSection& other : sections_) {
            if (other.host != section.host || other.user != section.user) continue;
            return Malformed("a second section \"" + std::string(name) + "\"");
        }
        sections_.push_back(std::move(section));
        return {};
    }

    Status ReadEntry(std::string_view name, std::string_view value) {
        const std::string quoted = "\"" + std::string(name) + "\"";
        const EntryRule* rule = FindRule(name);
        if (rule == nullptr) {
            return Malformed("unknown entry " + quoted + " (" + EntryNames() + ")");
        }
        if (value.empty()) return Malformed(quoted + " has no value");
        const std::string wrong = rule->check(value);
        if (!wrong.empty()) return Malformed(quoted + " " + wrong);
        auto& entries = sections_.back().entries;
        for (const EntryRule& other : kEntries) {
            if (!rule->is_secret_source || !other.is_secret_source || &other == rule) continue;
            if (entries.find(other.name) == entries.end()) continue;
            return Malformed(quoted + " besides \"" + std::string(other.name) +
                             "\": a password comes from one place");
        }
        const auto [place, is_new] = entries.try_emplace(std::string(name));
        if (!is_new) return Malformed("a second " + quoted + " in one section");
        place->second.value = value;
        place->second.line = line_;
        return {};
    }

    Error Malformed(const std::string& what) const { return MalformedAt(path_, line_, what); }

    std::string_view text_;
    const std::string& path_;
    int line_ = 0;
    std::vector<ServerSection> sections_;
};

}  // namespace

Error MalformedAt(const std::string& path, int line, const std::string& what) {
    return {ErrorKind::kMalformed, static_cast<int>(kLogonFailed),
            path + ":" + std::to_string(line) + ": " + what};
}

Result<std::vector<ServerSection>> ParseServerSections(std::string_view text,
                                                       const std::string& path) {
    return Parser(text, path).Parse();
}

}  // namespace trevix::imap
