#include "platform/imap/tokens.h"

#include <limits>
#include <utility>

#include "platform/imap/ascii.h"

namespace trevix::imap {
namespace {

// What a word costs in memory beside its bytes, roughly.
constexpr std::size_t kWordCost = 16;
constexpr std::size_t kMostWords = std::size_t{64} * 1024;

bool EndsAtom(int c) {
    return c <= ' ' || c == '(' || c == ')' || c == '"' || c == 0x7F;
}

bool EndsLine(int c) {
    return c == '\r' || c == '\n' || c == Scanner::kEnd;
}

// A quoted string behind its first quote, each byte to `put`.
template <typename Put>
void TakeQuoted(Scanner& scanner, Put&& put) {
    for (;;) {
        int c = scanner.Take();
        if (c == '"') return;
        if (c == '\\') c = scanner.Take();
        if (EndsLine(c)) {
            scanner.Malformed("a quoted text does not end");
            return;
        }
        put(static_cast<char>(c));
    }
}

// The bytes of a string, quoted or literal. False when they were too many to keep.
bool TakeString(Scanner& scanner, std::uint64_t most_bytes, std::string* text) {
    bool kept = text != nullptr;
    if (scanner.TakeIf('"')) {
        TakeQuoted(scanner, [&](char c) {
            kept = kept && scanner.Keep(1);
            if (kept) text->push_back(c);
        });
        return kept;
    }
    const std::uint64_t length = ReadLiteralLength(scanner, most_bytes);
    kept = kept && scanner.Keep(static_cast<std::size_t>(length));
    scanner.TakeContent(length, [&](const char* bytes, std::size_t count) -> Status {
        if (kept) text->append(bytes, count);
        return {};
    });
    return kept;
}

void TakeLineEnd(Scanner& scanner) {
    scanner.TakeIf('\r');
    scanner.Require('\n');
}

// Builds a value word by word without recursion, so that no depth of lists costs more stack.
class ValueBuilder {
 public:
    ValueBuilder(Scanner& scanner, std::uint64_t most_content_bytes, bool keep)
        : scanner_(scanner), most_content_bytes_(most_content_bytes), complete_(keep) {
        if (keep) open_.push_back(&root_);
    }

    // `root` has one item afterwards, the value, unless it could not be kept.
    void Build() {
        do {
            const int c = scanner_.Peek();
            if (c == ' ' && depth_ > 0) {
                scanner_.Take();
            } else if (c == '(') {
                scanner_.Take();
                Open();
            } else if (c == ')') {
                if (depth_ == 0) return scanner_.Malformed("a value was expected");
                scanner_.Take();
                Close();
            } else {
                PutWord(c);
            }
        } while (!scanner_.failed() && depth_ > 0);
    }

    bool complete() const { return complete_; }
    Value& root() { return root_; }

 private:
    bool Keeps() const { return open_.size() == depth_ + 1; }

    Value* Put(Value::Kind kind) {
        if (!Keeps() || !scanner_.Keep(kWordCost)) {
            complete_ = false;
            return nullptr;
        }
        open_.back()->items.emplace_back();
        open_.back()->items.back().kind = kind;
        return &open_.back()->items.back();
    }

    void Open() {
        Value* const list = depth_ < kMostOpenLists ? Put(Value::Kind::kList) : nullptr;
        if (list == nullptr) complete_ = false;
        ++depth_;
        // Stays valid: nothing is added to the list that holds it while it is open.
        if (list != nullptr) open_.push_back(list);
    }

    void Close() {
        if (Keeps() && depth_ > 0) open_.pop_back();
        --depth_;
    }

    void PutWord(int c) {
        if (c == '"' || StartsLiteral(scanner_)) {
            Value* const word = Put(Value::Kind::kString);
            const bool kept =
                TakeString(scanner_, most_content_bytes_, word == nullptr ? nullptr : &word->text);
            if (!kept) complete_ = false;
            return;
        }
        std::string atom = ReadAtom(scanner_, std::size_t{64} * 1024);
        Value* const word = Put(Value::Kind::kAtom);
        if (word == nullptr) return;
        if (SameLetters(atom, "NIL")) {
            word->kind = Value::Kind::kNil;
        } else if (scanner_.Keep(atom.size())) {
            word->text = std::move(atom);
        } else {
            complete_ = false;
        }
    }

    Scanner& scanner_;
    std::uint64_t most_content_bytes_;
    bool complete_;
    Value root_;
    std::vector<Value*> open_;  // the lists that are open and kept; the root first
    std::size_t depth_ = 0;     // lists that are open
};

}  // namespace

std::string ReadAtom(Scanner& scanner, std::size_t most_bytes) {
    std::string atom;
    while (!EndsAtom(scanner.Peek())) {
        if (atom.size() == most_bytes) {
            scanner.Malformed("a word is too long");
            return {};
        }
        atom += static_cast<char>(scanner.Take());
    }
    if (atom.empty()) scanner.Malformed("a word was expected");
    return atom;
}

std::uint64_t ReadNumber(Scanner& scanner) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    if (!IsDigit(scanner.Peek())) scanner.Malformed("a number was expected");
    std::uint64_t number = 0;
    while (IsDigit(scanner.Peek())) {
        const auto digit = static_cast<std::uint64_t>(scanner.Take() - '0');
        if (number > (kMost - digit) / 10) {
            scanner.Malformed("a number is too large");
            return 0;
        }
        number = number * 10 + digit;
    }
    return number;
}

std::uint32_t ReadNumber32(Scanner& scanner) {
    const std::uint64_t number = ReadNumber(scanner);
    if (number <= std::numeric_limits<std::uint32_t>::max()) {
        return static_cast<std::uint32_t>(number);
    }
    scanner.Malformed("a number is too large");
    return 0;
}

bool StartsLiteral(Scanner& scanner) {
    const int c = scanner.Peek();
    return c == '{' || c == '~';
}

std::uint64_t ReadLiteralLength(Scanner& scanner, std::uint64_t most_bytes) {
    scanner.TakeIf('~');
    if (!scanner.TakeIf('{')) {
        scanner.Malformed("a text was expected");
        return 0;
    }
    const std::uint64_t length = ReadNumber(scanner);
    scanner.TakeIf('+');
    scanner.Require('}');
    TakeLineEnd(scanner);
    if (length > most_bytes) scanner.Malformed("a text is longer than it may be");
    return scanner.failed() ? 0 : length;
}

std::optional<std::string> ReadNstring(Scanner& scanner) {
    if (scanner.Peek() == '"' || StartsLiteral(scanner)) {
        std::string text;
        const bool kept = TakeString(scanner, std::numeric_limits<std::uint32_t>::max(), &text);
        if (!kept) scanner.Malformed("a text is longer than it may be");
        return text;
    }
    std::string atom = ReadAtom(scanner);
    if (SameLetters(atom, "NIL")) return std::nullopt;
    return atom;
}

std::string ReadAstring(Scanner& scanner) {
    if (scanner.Peek() == '"' || StartsLiteral(scanner)) {
        return ReadNstring(scanner).value_or(std::string());
    }
    return ReadAtom(scanner, std::size_t{64} * 1024);
}

std::vector<std::string> ReadWords(Scanner& scanner) {
    std::vector<std::string> words;
    if (!scanner.TakeIf('(')) {
        const auto word = ReadNstring(scanner);
        if (word) words.push_back(*word);
        return words;
    }
    while (!scanner.failed() && !scanner.TakeIf(')')) {
        if (scanner.TakeIf(' ')) continue;
        std::string word = ReadAtom(scanner);
        if (words.size() == kMostWords || !scanner.Keep(word.size() + kWordCost)) {
            scanner.Malformed("a list is too long");
        }
        words.push_back(std::move(word));
    }
    return words;
}

Value ReadValue(Scanner& scanner, std::uint64_t most_content_bytes, bool& complete) {
    ValueBuilder builder(scanner, most_content_bytes, true);
    builder.Build();
    if (!builder.complete()) complete = false;
    std::vector<Value>& items = builder.root().items;
    return items.empty() ? Value() : std::move(items.front());
}

void SkipValue(Scanner& scanner, std::uint64_t most_content_bytes) {
    ValueBuilder(scanner, most_content_bytes, false).Build();
}

UidSet ReadUidSet(Scanner& scanner, bool& complete) {
    std::vector<UidSet::Range> ranges;
    do {
        UidSet::Range range;
        range.first = ReadNumber32(scanner);
        range.last = scanner.TakeIf(':') ? ReadNumber32(scanner) : range.first;
        if (range.first > range.last) std::swap(range.first, range.last);
        if (scanner.failed()) return {};
        if (ranges.size() < kMostRanges) {
            ranges.push_back(range);
        } else {
            complete = false;
        }
    } while (scanner.TakeIf(','));
    return UidSet::FromRanges(std::move(ranges));
}

std::string ReadLine(Scanner& scanner, std::size_t most_bytes) {
    std::string line;
    for (;;) {
        const int c = scanner.Take();
        if (c == '\n' || c == Scanner::kEnd) break;
        if (line.size() < most_bytes) line += static_cast<char>(c);
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return line;
}

void SkipReply(Scanner& scanner, std::uint64_t most_content_bytes) {
    for (;;) {
        const int c = scanner.Take();
        if (c == '\n' || c == Scanner::kEnd) return;
        if (c == '"') {
            // Of a text for people, which may hold a single one, only the line's end is certain.
            while (!EndsLine(scanner.Peek())) {
                const int inner = scanner.Take();
                if (inner == '"') break;
                if (inner == '\\' && !EndsLine(scanner.Peek())) scanner.Take();
            }
        } else if (c == '{' && IsDigit(scanner.Peek())) {
            std::uint64_t length = 0;
            while (IsDigit(scanner.Peek()) && length <= most_content_bytes) {
                length = length * 10 + static_cast<std::uint64_t>(scanner.Take() - '0');
            }
            scanner.TakeIf('+');
            if (!scanner.TakeIf('}')) continue;
            scanner.TakeIf('\r');
            if (!scanner.TakeIf('\n')) continue;
            if (length > most_content_bytes) {
                scanner.Malformed("a text is longer than it may be");
                return;
            }
            scanner.TakeContent(length, [](const char*, std::size_t) { return Status(); });
        }
    }
}

void EndReply(Scanner& scanner, std::uint64_t most_content_bytes) {
    if (scanner.failed()) return;
    scanner.TakeIf('\r');
    if (!scanner.TakeIf('\n')) SkipReply(scanner, most_content_bytes);
}

}  // namespace trevix::imap
