// Characters in UTF-8. For adapters; the core has its own helpers in util/text.h.
#pragma once

#include <string>
#include <string_view>

namespace trevix {

inline constexpr char32_t kReplacementCharacter = 0xFFFD;

void PutUtf8(std::string& text, char32_t c);

// The next character of a text that is not empty; U+FFFD for a byte that starts none.
char32_t TakeUtf8(std::string_view& text);

}  // namespace trevix
