#include "platform/profiles/profile_text.h"

#include <algorithm>
#include <string_view>

#include "platform/errors.h"

namespace trevix::profiles {
namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

class Parser {
 public:
    Parser(const std::string& text, const std::string& path) : text_(text), path_(path) {}

    Result<std::vector<ParsedProfile>> Parse() {
        for (std::size_t at = 0; at < text_.size();) {
            const std::size_t end = std::min(text_.find('\n', at), text_.size());
            ++line_;
            TREVIX_RETURN_IF_ERROR(ReadLine(Trim(text_.substr(at, end - at)), at));
            at = end + 1;
        }
        TREVIX_RETURN_IF_ERROR(FinishProfile(text_.size()));
        return std::move(found_);
    }

 private:
    Status ReadLine(const std::string& line, std::size_t begin) {
        if (line.find('\0') != std::string::npos) return Malformed(line_, "not a text file");
        if (line.empty() || line.front() == '#' || line.front() == ';') return {};
        if (line.front() == '[') return BeginProfile(line, begin);
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) {
            return Malformed(line_, "expected \"[name]\" or \"entry = value\"");
        }
        if (found_.empty()) return Malformed(line_, "an entry in front of the first \"[name]\"");
        return ReadEntry(Trim(line.substr(0, equals)), Trim(line.substr(equals + 1)));
    }

    Status BeginProfile(const std::string& line, std::size_t begin) {
        TREVIX_RETURN_IF_ERROR(FinishProfile(begin));
        const std::string name = line.back() == ']' ? Trim(line.substr(1, line.size() - 2)) : "";
        if (name.empty()) return Malformed(line_, "expected a profile's name as \"[name]\"");
        for (const ParsedProfile& other : found_) {
            if (other.profile.name != name) continue;
            return Malformed(line_, "a second profile named \"" + name + "\"");
        }
        found_.push_back({{name, {}, {}, {}}, begin, text_.size()});
        first_line_ = line_;
        return {};
    }

    Status ReadEntry(const std::string& entry, const std::string& value) {
        Profile& profile = found_.back().profile;
        if (value.empty()) return Malformed(line_, "\"" + entry + "\" has no value");
        if (entry == "store") {
            profile.stores.push_back(value);
        } else if (entry == "user" && profile.user.empty()) {
            profile.user = value;
        } else if (entry == "inbox" && profile.inbox.empty()) {
            profile.inbox = value;
        } else if (entry == "user" || entry == "inbox") {
            return Malformed(line_, "a second \"" + entry + "\" in one profile");
        } else {
            return Malformed(line_, "unknown entry \"" + entry + "\" (user, store, inbox)");
        }
        return {};
    }

    Status FinishProfile(std::size_t end) {
        if (found_.empty()) return {};
        found_.back().end = end;
        const Profile& profile = found_.back().profile;
        if (profile.stores.empty()) {
            return Malformed(first_line_, "profile \"" + profile.name + "\" has no store");
        }
        const auto& stores = profile.stores;
        if (!profile.inbox.empty() &&
            std::find(stores.begin(), stores.end(), profile.inbox) == stores.end()) {
            return Malformed(first_line_,
                             "the inbox of profile \"" + profile.name + "\" is none of its stores");
        }
        return {};
    }

    Error Malformed(int line, const std::string& what) const {
        return {ErrorKind::kMalformed, static_cast<int>(kLogonFailed),
                path_ + ":" + std::to_string(line) + ": " + what};
    }

    const std::string& text_;
    const std::string& path_;
    int line_ = 0;
    int first_line_ = 0;  // of the profile being read
    std::vector<ParsedProfile> found_;
};

bool IsSame(const Profile& left, const Profile& right) {
    return left.name == right.name && left.user == right.user && left.stores == right.stores &&
           left.inbox == right.inbox;
}

}  // namespace

Result<std::vector<ParsedProfile>> ParseProfiles(const std::string& text, const std::string& path) {
    return Parser(text, path).Parse();
}

Result<std::string> FormatProfile(const Profile& profile) {
    std::string text = "[" + profile.name + "]\n";
    if (!profile.user.empty()) text += "user = " + profile.user + "\n";
    for (const std::string& store : profile.stores) {
        text += "store = " + store + "\n";
    }
    if (!profile.inbox.empty()) text += "inbox = " + profile.inbox + "\n";

    // Line breaks and blanks at an end have no spelling in the file: what does not read back as it
    // is would be another profile.
    const auto read = ParseProfiles(text, "profile");
    if (!read.ok()) return read.error();
    if (read.value().size() != 1 || !IsSame(read.value().front().profile, profile)) {
        return Error{ErrorKind::kMalformed, kInvalidCall,
                     "profile \"" + profile.name + "\" holds a character that its file cannot"};
    }
    return text;
}

}  // namespace trevix::profiles
