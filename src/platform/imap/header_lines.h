// The fields of a header block as they stand there.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace trevix::imap {

struct HeaderLines {
    std::string_view whole;  // with its folds and last line end
    std::string_view name;   // as written
    std::string_view value;  // behind the colon
};

// All lines of the block up to the blank one, a field with its folds each. What is no field has an
// empty name.
std::vector<HeaderLines> FieldsIn(std::string_view header);

// Those of a name, which is given in lower case.
std::vector<HeaderLines> FieldsNamed(std::string_view header, std::string_view name);

}  // namespace trevix::imap
