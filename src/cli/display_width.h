// How many columns of a terminal a text takes: two for the wide characters of East Asia and for
// pictures, none for marks that stand on the character before them.
#pragma once

#include <cstddef>
#include <string_view>

namespace trevix::cli {

// Of the UTF-8 character at `at`, which is inside. `bytes` becomes its length; a byte that belongs
// to no character counts as one of one column.
std::size_t CharacterColumns(std::string_view text, std::size_t at, std::size_t& bytes);

std::size_t DisplayColumns(std::string_view text);

}  // namespace trevix::cli
