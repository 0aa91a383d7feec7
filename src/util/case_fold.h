// Comparing texts without regard to case, by Unicode's simple case folding and nothing else:
// neither the locale nor the system's tables matter, so the same words find the same mail
// everywhere.
//
// One character folds to one character: "É" meets "é" and "Σ" meets "ς", but "ß" does not meet
// "ss". Bytes that are not UTF-8 stay as they are.
#pragma once

#include <string>
#include <string_view>

namespace trevix {

char32_t FoldCharacter(char32_t character);

// Not always as many bytes as `text`.
std::string FoldCase(std::string_view text);

// A text that is looked for in many others.
class FoldedText {
 public:
    explicit FoldedText(std::string_view text) : folded_(FoldCase(text)) {}

    // Whether it occurs in `text`, which need not be folded. The empty text occurs everywhere.
    bool IsIn(std::string_view text) const;

 private:
    bool IsInAscii(std::string_view text) const;

    std::string folded_;
};

}  // namespace trevix
