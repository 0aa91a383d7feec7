#include "platform/imap/fetch_reader.h"

#include <memory>
#include <utility>

#include "platform/imap/ascii.h"
#include "platform/imap/structure_reader.h"
#include "platform/imap/tokens.h"

namespace trevix::imap {
namespace {

constexpr std::size_t kMostSectionBytes = std::size_t{64} * 1024;

class FetchReader {
 public:
    FetchReader(Scanner& scanner, Spool& spool, const ContentRules& rules)
        : scanner_(scanner), spool_(spool), rules_(rules) {}

    FetchedMessage Read() {
        scanner_.Require('(');
        while (!scanner_.failed() && !scanner_.TakeIf(')')) {
            if (!scanner_.TakeIf(' ')) ReadItem();
        }
        return std::move(message_);
    }

 private:
    void ReadItem() {
        const std::string name = ReadName();
        if (name.empty()) return scanner_.Malformed("the name of an item was expected");
        if (scanner_.Peek() == '[') return ReadSectioned(name);
        scanner_.Require(' ');
        if (name == "UID") {
            message_.uid = ReadNumber32(scanner_);
        } else if (name == "FLAGS") {
            message_.flags = ReadWords(scanner_);
        } else if (name == "RFC822.SIZE") {
            message_.size_bytes = ReadNumber(scanner_);
        } else if (name == "INTERNALDATE") {
            message_.internal_date = ReadMoment();
        } else if (name == "SAVEDATE") {
            message_.save_date = ReadMoment();
        } else if (name == "MODSEQ") {
            message_.modseq = ReadModseq();
        } else if (name == "EMAILID") {
            message_.email_id = ReadEmailId();
        } else if (name == "BODYSTRUCTURE") {
            ReadStructure();
        } else {
            SkipValue(scanner_, rules_.most_content_bytes());
        }
    }

    // Up to a blank or an opening bracket.
    std::string ReadName() {
        std::string name;
        while (name.size() < 64) {
            const int c = scanner_.Peek();
            if (c <= ' ' || c == '[' || c == '(' || c == ')' || c == '"') break;
            name += UpperCase(static_cast<char>(scanner_.Take()));
        }
        return name;
    }

    std::optional<DateTime> ReadMoment() {
        const auto text = ReadNstring(scanner_);
        return text ? ParseDateTime(*text) : std::nullopt;
    }

    std::optional<std::uint64_t> ReadModseq() {
        scanner_.Require('(');
        const std::uint64_t modseq = ReadNumber(scanner_);
        scanner_.Require(')');
        return modseq;
    }

    std::optional<std::string> ReadEmailId() {
        const std::vector<std::string> words = ReadWords(scanner_);
        return words.size() == 1 ? std::optional(words.front()) : std::nullopt;
    }

    void ReadStructure() {
        bool complete = true;
        const Value value = ReadValue(scanner_, rules_.most_content_bytes(), complete);
        if (scanner_.failed()) return;
        if (!complete) {
            message_.structure_problem = "the structure is too deep or too large";
            return;
        }
        auto part = std::make_shared<BodyPart>();
        message_.structure_problem = ParseStructure(value, *part);
        if (message_.structure_problem.empty()) message_.structure = std::move(part);
    }

    // "[HEADER.FIELDS (\"To\" From)]<0>" behind the item's name.
    void ReadSectioned(const std::string& name) {
        const std::string section = ReadSection();
        FetchedSection fetched;
        fetched.section = section;
        if (scanner_.TakeIf('<')) {
            fetched.offset = ReadNumber(scanner_);
            scanner_.Require('>');
        }
        scanner_.Require(' ');
        if (scanner_.failed()) return;
        if (name != "BODY") return SkipValue(scanner_, rules_.most_content_bytes());
        ReadContent(std::move(fetched));
    }

    std::string ReadSection() {
        scanner_.Take();
        std::string section;
        bool quoted = false;
        for (;;) {
            const int c = scanner_.Peek();
            if (c == '\r' || c == '\n' || c == Scanner::kEnd ||
                section.size() == kMostSectionBytes) {
                scanner_.Malformed("the name of a section does not end");
                return {};
            }
            scanner_.Take();
            if (c == '"') quoted = !quoted;
            if (c == ']' && !quoted) return NormalSection(section);
            section += static_cast<char>(c);
        }
    }

    bool IsNew(const FetchedSection& fetched) const {
        for (const FetchedSection& known : message_.sections) {
            if (known.section == fetched.section && known.offset == fetched.offset) return false;
        }
        return true;
    }

    void ReadContent(FetchedSection fetched) {
        if (!rules_.Wants(fetched) || !IsNew(fetched)) {
            return SkipValue(scanner_, rules_.most_content_bytes());
        }
        if (!StartsLiteral(scanner_)) {
            auto text = ReadNstring(scanner_);
            if (text) fetched.content = Blob::FromString(*std::move(text));
        } else {
            const std::uint64_t length = ReadLiteralLength(scanner_, rules_.most_content_bytes());
            const bool small =
                length <= kSmallContent && scanner_.Keep(static_cast<std::size_t>(length));
            fetched.content = small ? InMemory(length) : Spooled(length);
        }
        if (!scanner_.failed()) message_.sections.push_back(std::move(fetched));
    }

    Blob InMemory(std::uint64_t length) {
        std::string bytes;
        bytes.reserve(static_cast<std::size_t>(length));
        scanner_.TakeContent(length, [&bytes](const char* piece, std::size_t count) {
            bytes.append(piece, count);
            return Status();
        });
        return Blob::FromString(std::move(bytes));
    }

    Blob Spooled(std::uint64_t length) {
        if (scanner_.failed()) return {};
        if (const Status begun = spool_.Begin(); !begun.ok()) {
            scanner_.Fail(begun.error());
            return {};
        }
        scanner_.TakeContent(length, [this](const char* piece, std::size_t count) {
            return spool_.Write(piece, count);
        });
        return scanner_.failed() ? Blob() : spool_.End();
    }

    Scanner& scanner_;
    Spool& spool_;
    const ContentRules& rules_;
    FetchedMessage message_;
};

}  // namespace

const FetchedSection* FetchedMessage::Find(std::string_view section) const {
    const std::string normal = NormalSection(section);
    for (const FetchedSection& fetched : sections) {
        if (SectionWithoutFields(fetched.section) == SectionWithoutFields(normal)) return &fetched;
    }
    return nullptr;
}

FetchedMessage ReadFetchItems(Scanner& scanner, Spool& spool, const ContentRules& rules) {
    return FetchReader(scanner, spool, rules).Read();
}

}  // namespace trevix::imap
