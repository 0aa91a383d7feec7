#include "cli/glob.h"

#include "util/case_fold.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

// The character at `at`, or the byte there when it is none.
std::string_view CharacterAt(std::string_view text, std::size_t at) {
    const std::size_t bytes = Utf8CharacterBytes(text, at);
    return text.substr(at, bytes == 0 ? 1 : bytes);
}

// Where the set that begins at `open` ends: its "]", which may stand first for itself.
std::size_t EndOfSet(std::string_view pattern, std::size_t open) {
    std::size_t at = open + 1;
    if (at < pattern.size() && (pattern[at] == '!' || pattern[at] == '^')) ++at;
    return pattern.find(']', at + 1);
}

// `set` is what stands between the brackets. UTF-8 orders bytes as it orders characters.
bool SetHolds(std::string_view set, std::string_view character) {
    const bool negated = set.starts_with('!') || set.starts_with('^');
    bool holds = false;
    for (std::size_t at = negated ? 1 : 0; at < set.size();) {
        const std::string_view first = CharacterAt(set, at);
        at += first.size();
        std::string_view last = first;
        if (at + 1 < set.size() && set[at] == '-') {
            last = CharacterAt(set, at + 1);
            at += 1 + last.size();
        }
        holds = holds || (first <= character && character <= last);
    }
    return holds != negated;
}

}  // namespace

Glob::Glob(std::string_view pattern) : pattern_(FoldCase(pattern)) {}

bool Glob::MatchOne(std::string_view name, std::size_t& at, std::size_t& from) const {
    const std::string_view character = CharacterAt(name, from);
    const char element = pattern_[at];
    if (element == '?') {
        ++at;
        from += character.size();
        return true;
    }
    if (element == '[') {
        const std::string_view pattern = pattern_;
        const std::size_t end = EndOfSet(pattern, at);
        if (end != std::string::npos) {
            if (!SetHolds(pattern.substr(at + 1, end - at - 1), character)) {
                return false;
            }
            at = end + 1;
            from += character.size();
            return true;
        }
    }
    const bool escaped = element == '\\' && at + 1 < pattern_.size();
    const std::size_t literal = escaped ? at + 1 : at;
    if (pattern_[literal] != name[from]) return false;
    at = literal + 1;
    ++from;
    return true;
}

std::size_t Glob::PlaceAfterStar(std::string_view name, std::size_t at, std::size_t from) const {
    constexpr std::string_view kSpecial = "?[\\*";
    const bool is_literal =
        at < pattern_.size() && kSpecial.find(pattern_[at]) == std::string_view::npos;
    return is_literal ? name.find(pattern_[at], from) : from;
}

// A "*" takes as little as it can; when that fails, only the last one has to take more.
bool Glob::Matches(std::string_view name) const {
    const std::string folded = FoldCase(name);
    std::size_t at = 0;
    std::size_t from = 0;
    std::size_t star = std::string::npos;
    std::size_t star_from = 0;
    while (from < folded.size()) {
        if (at < pattern_.size() && pattern_[at] == '*') {
            star = at++;
            from = PlaceAfterStar(folded, at, from);
            star_from = from;
            continue;
        }
        if (at < pattern_.size() && MatchOne(folded, at, from)) continue;
        if (star == std::string::npos) return false;
        at = star + 1;
        from = PlaceAfterStar(folded, at, star_from + CharacterAt(folded, star_from).size());
        star_from = from;
    }
    // Nothing of the name was left, or nothing in it that what stands behind the star begins with.
    return from == folded.size() && pattern_.find_first_not_of('*', at) == std::string::npos;
}

}  // namespace trevix::cli
