#include "platform/imap/reply_parser.h"

#include <utility>

#include "platform/imap/ascii.h"
#include "platform/imap/fetch_reader.h"
#include "platform/imap/tokens.h"

namespace trevix::imap {
namespace {

std::optional<Condition::Kind> ConditionKind(std::string_view word) {
    if (word == "OK") return Condition::Kind::kOk;
    if (word == "NO") return Condition::Kind::kNo;
    if (word == "BAD") return Condition::Kind::kBad;
    if (word == "BYE") return Condition::Kind::kBye;
    if (word == "PREAUTH") return Condition::Kind::kPreauth;
    return std::nullopt;
}

class ReplyReader {
 public:
    ReplyReader(Scanner& scanner, Spool& spool, const ContentRules& rules)
        : scanner_(scanner), spool_(spool), rules_(rules) {}

    Reply Read() {
        if (scanner_.TakeIf('+')) {
            scanner_.TakeIf(' ');
            return ContinuationReply{ReadLine(scanner_)};
        }
        if (!scanner_.TakeIf('*')) return Tagged();
        scanner_.Require(' ');
        if (IsDigit(scanner_.Peek())) return Numbered();
        const std::string word = UpperCase(ReadAtom(scanner_));
        if (const auto kind = ConditionKind(word)) return ConditionReply{Words(*kind)};
        return Data(word);
    }

 private:
    Condition Words(Condition::Kind kind) {
        scanner_.TakeIf(' ');
        return ParseCondition(kind, ReadLine(scanner_));
    }

    Reply Tagged() {
        TaggedReply reply;
        reply.tag = ReadAtom(scanner_);
        scanner_.Require(' ');
        if (scanner_.failed()) return OtherReply{};
        const auto kind = ConditionKind(UpperCase(ReadAtom(scanner_)));
        if (!kind || *kind == Condition::Kind::kBye || *kind == Condition::Kind::kPreauth) {
            scanner_.Malformed("an answer must be OK, NO or BAD");
            return OtherReply{};
        }
        reply.condition = Words(*kind);
        return reply;
    }

    // "12 EXISTS", "12 EXPUNGE", "12 FETCH (...)".
    Reply Numbered() {
        const std::uint32_t number = ReadNumber32(scanner_);
        scanner_.Require(' ');
        if (scanner_.failed()) return OtherReply{};
        const std::string word = UpperCase(ReadAtom(scanner_));
        Reply reply;
        if (word == "EXISTS") {
            reply = ExistsReply{number};
        } else if (word == "EXPUNGE") {
            reply = ExpungeReply{number};
        } else if (word == "FETCH") {
            scanner_.Require(' ');
            FetchReply fetch{ReadFetchItems(scanner_, spool_, rules_)};
            fetch.message.sequence = number;
            reply = std::move(fetch);
        }
        return Ended(std::move(reply));
    }

    Reply Ended(Reply reply) {
        EndReply(scanner_, rules_.most_content_bytes());
        return reply;
    }

    Reply Data(const std::string& word) {
        if (word == "CAPABILITY") return Ended(CapabilityReply{Words()});
        if (word == "ENABLED") return Ended(EnabledReply{Words()});
        if (word == "SEARCH") return Ended(Search());
        if (word == "ESEARCH") return Ended(ExtendedSearch());
        if (!scanner_.TakeIf(' ')) return Ended(OtherReply{});
        if (word == "FLAGS") return Ended(FlagsReply{ReadWords(scanner_)});
        if (word == "LIST" || word == "LSUB") return Ended(List());
        if (word == "STATUS") return Ended(StatusData());
        if (word == "VANISHED") return Ended(Vanished());
        return Ended(OtherReply{});
    }

    // The words up to the end of the line.
    std::vector<std::string> Words() {
        std::vector<std::string> words;
        while (scanner_.TakeIf(' ')) {
            const int next = scanner_.Peek();
            if (next == ' ' || next == '\r' || next == '\n') continue;
            std::string word = ReadAtom(scanner_);
            if (!scanner_.Keep(word.size() + sizeof(std::string))) {
                scanner_.Malformed("a list is too long");
            }
            words.push_back(std::move(word));
        }
        return words;
    }

    Reply List() {
        ListReply list;
        list.attributes = ReadWords(scanner_);
        scanner_.Require(' ');
        if (scanner_.failed()) return OtherReply{};
        list.delimiter = ReadNstring(scanner_).value_or(std::string());
        scanner_.Require(' ');
        if (scanner_.failed()) return OtherReply{};
        list.name = ReadAstring(scanner_);
        return list;
    }

    Reply StatusData() {
        StatusReply status;
        status.mailbox = ReadAstring(scanner_);
        scanner_.Require(' ');
        scanner_.Require('(');
        while (!scanner_.failed() && !scanner_.TakeIf(')')) {
            if (scanner_.TakeIf(' ')) continue;
            const std::string name = UpperCase(ReadAtom(scanner_));
            scanner_.Require(' ');
            if (scanner_.failed()) break;
            if (name == "MESSAGES") {
                status.messages = ReadNumber32(scanner_);
            } else if (name == "UIDNEXT") {
                status.uid_next = ReadNumber32(scanner_);
            } else if (name == "UIDVALIDITY") {
                status.uid_validity = ReadNumber32(scanner_);
            } else if (name == "HIGHESTMODSEQ") {
                status.highest_modseq = ReadNumber(scanner_);
                // 0 says that the mailbox keeps none.
                if (*status.highest_modseq == 0) status.highest_modseq.reset();
            } else {
                SkipValue(scanner_, rules_.most_content_bytes());
            }
        }
        return status;
    }

    // "* SEARCH 2 84 882", with "(MODSEQ n)" at the end sometimes.
    Reply Search() {
        SearchReply search;
        std::vector<std::uint32_t> uids;
        while (scanner_.TakeIf(' ')) {
            if (!IsDigit(scanner_.Peek())) continue;
            const std::uint32_t uid = ReadNumber32(scanner_);
            if (uids.size() < kMostNumbers) {
                uids.push_back(uid);
            } else {
                search.complete = false;
            }
        }
        search.uids = UidSet::FromList(std::move(uids));
        return search;
    }

    // "* ESEARCH (TAG \"T4\") UID ALL 2,10:11"; no ALL when nothing was found.
    Reply ExtendedSearch() {
        SearchReply search;
        while (scanner_.TakeIf(' ')) {
            if (scanner_.Peek() == '(') {
                SkipValue(scanner_, rules_.most_content_bytes());
                continue;
            }
            const std::string word = UpperCase(ReadAtom(scanner_));
            if (word == "UID") continue;
            scanner_.Require(' ');
            if (scanner_.failed()) break;
            if (word == "ALL") {
                search.uids = ReadUidSet(scanner_, search.complete);
            } else {
                SkipValue(scanner_, rules_.most_content_bytes());
            }
        }
        return search;
    }

    Reply Vanished() {
        VanishedReply vanished;
        if (scanner_.Peek() == '(') {
            for (const std::string& word : ReadWords(scanner_)) {
                vanished.earlier = vanished.earlier || SameLetters(word, "EARLIER");
            }
            scanner_.Require(' ');
        }
        if (scanner_.failed()) return OtherReply{};
        vanished.uids = ReadUidSet(scanner_, vanished.complete);
        return vanished;
    }

    Scanner& scanner_;
    Spool& spool_;
    const ContentRules& rules_;
};

}  // namespace

Result<Reply> ReadReply(Scanner& scanner, Spool& spool, const ContentRules& rules) {
    scanner.BeginReply();
    Reply reply = ReplyReader(scanner, spool, rules).Read();
    if (scanner.failed()) return scanner.error();
    return reply;
}

Condition ParseCondition(Condition::Kind kind, std::string_view line) {
    Condition condition;
    condition.kind = kind;
    const std::size_t close = line.find(']');
    if (!line.empty() && line.front() == '[' && close != std::string_view::npos) {
        const std::string_view inside = line.substr(1, close - 1);
        const std::size_t blank = std::min(inside.find(' '), inside.size());
        condition.code = UpperCase(inside.substr(0, blank));
        condition.arguments = inside.substr(std::min(blank + 1, inside.size()));
        line.remove_prefix(close + 1);
        if (!line.empty() && line.front() == ' ') line.remove_prefix(1);
    }
    condition.text = line;
    return condition;
}

std::string NormalSection(std::string_view section) {
    std::string normal;
    bool blank = false;
    for (const char c : section) {
        if (c == '"') continue;
        if (c == ' ') {
            blank = !normal.empty() && normal.back() != '(';
            continue;
        }
        if (blank && c != ')') normal += ' ';
        blank = false;
        normal += UpperCase(c);
    }
    return normal;
}

std::string_view SectionWithoutFields(std::string_view normal_section) {
    const std::string_view name = normal_section.substr(0, normal_section.find('('));
    return name.substr(0, name.find_last_not_of(' ') + 1);
}

}  // namespace trevix::imap
