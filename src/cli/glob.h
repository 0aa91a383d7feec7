// Glob: a pattern for whole names, as shells know it, without regard to case.
#pragma once

#include <string>
#include <string_view>

namespace trevix::cli {

// "*" is any characters, "?" one character, "[a-z]" one of a set and "[!a-z]" one that is not; "\"
// takes the next character as it is. A "[" without its "]" is a plain character.
class Glob {
 public:
    explicit Glob(std::string_view pattern);

    bool Matches(std::string_view name) const;

 private:
    // The pattern's element at `at` against the character of `name` at `from`; both move on.
    bool MatchOne(std::string_view name, std::size_t& at, std::size_t& from) const;

    // Where the pattern from `at` on, behind a star, can begin: not before `from`; npos for
    // nowhere.
    std::size_t PlaceAfterStar(std::string_view name, std::size_t at, std::size_t from) const;

    std::string pattern_;  // folded
};

}  // namespace trevix::cli
