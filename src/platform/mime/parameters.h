// Content-Type and Content-Disposition: a word and its parameters.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace trevix::mime {

struct Parameterized {
    std::string word;  // lower case: "text/plain", "attachment"; empty when there is none
    std::vector<std::pair<std::string, std::string>> parameters;  // names in lower case

    // The decoded value in UTF-8; empty when there is no such parameter.
    std::string Parameter(std::string_view name) const;
};

// Reads a field's value as leniently as it is safe: comments and folds are passed over, continued
// and extended parameters put together in the order of their numbers, an extended value wins over
// a plain one of the same name, of equal ones the first. Raw bytes are UTF-8 or else Windows-1252.
Parameterized ParseParameterized(std::string_view raw);

// The same for a Content-Type: the word has a "/" or is empty.
Parameterized ParseContentType(std::string_view raw);

}  // namespace trevix::mime
