#include "platform/recordset/criterion.h"

#include <charconv>
#include <cmath>
#include <optional>

#include "platform/errors.h"
#include "platform/recordset/date_text.h"
#include "platform/recordset/number_text.h"
#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// A value as it stands in a criterion.
struct Literal {
    enum class Form : std::uint8_t { kPlain, kQuoted, kDate };
    Form form = Form::kPlain;
    std::string text;
};

class Parser {
 public:
    Parser(std::string_view criterion, const std::vector<Column>& columns)
        : criterion_(criterion), rest_(criterion), columns_(columns) {}

    Result<std::vector<Condition>> Parse() {
        std::vector<Condition> conditions;
        do {
            Condition condition;
            const std::string name = TakeName();
            if (name.empty() || !TakeOperator(condition.compare)) return NotUnderstood();
            const std::optional<Literal> literal = TakeLiteral();
            if (!literal) return NotUnderstood();
            condition.column = FindColumn(columns_, name);
            if (condition.column == columns_.size()) return RuntimeError(kItemNotFound, name);
            if (!Interpret(*literal, condition)) return NotUnderstood();
            conditions.push_back(std::move(condition));
            SkipBlanks();
        } while (TakeAnd());
        if (!rest_.empty()) return NotUnderstood();
        return conditions;
    }

 private:
    Error NotUnderstood() const {
        return RuntimeError(kBadArguments, NormalizedText(criterion_.substr(0, 300)));
    }

    void SkipBlanks() {
        rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
    }

    bool TakeText(std::string_view text) {
        if (!rest_.starts_with(text)) return false;
        rest_.remove_prefix(text.size());
        return true;
    }

    std::string TakeName() {
        SkipBlanks();
        std::size_t end = 0;
        std::string name;
        if (TakeText("[")) {
            end = rest_.find(']');
            if (end == std::string_view::npos) return {};
            name = rest_.substr(0, end++);
        } else {
            end = std::min(rest_.find_first_of("=<> \t\r\n'#"), rest_.size());
            name = rest_.substr(0, end);
        }
        rest_.remove_prefix(end);
        SkipBlanks();
        return name;
    }

    bool TakeOperator(Operator& found) {
        if (TakeText("<>")) {
            found = Operator::kNotEqual;
        } else if (TakeText("<=")) {
            found = Operator::kAtMost;
        } else if (TakeText(">=")) {
            found = Operator::kAtLeast;
        } else if (TakeText("<")) {
            found = Operator::kLess;
        } else if (TakeText(">")) {
            found = Operator::kGreater;
        } else if (TakeText("=")) {
            found = Operator::kEqual;
        } else {
            return false;
        }
        SkipBlanks();
        return true;
    }

    std::optional<Literal> TakeLiteral() {
        Literal literal;
        if (TakeText("'")) {
            literal.form = Literal::Form::kQuoted;
            return TakeQuoted(literal.text) ? std::optional(literal) : std::nullopt;
        }
        if (TakeText("#")) {
            const std::size_t end = rest_.find('#');
            if (end == std::string_view::npos) return std::nullopt;
            literal.form = Literal::Form::kDate;
            literal.text = rest_.substr(0, end);
            rest_.remove_prefix(end + 1);
            return literal;
        }
        const std::size_t end = std::min(rest_.find_first_of(kBlanks), rest_.size());
        if (end == 0) return std::nullopt;
        literal.text = rest_.substr(0, end);
        rest_.remove_prefix(end);
        return literal;
    }

    bool TakeQuoted(std::string& text) {
        for (;;) {
            const std::size_t quote = rest_.find('\'');
            if (quote == std::string_view::npos) return false;
            text.append(rest_.substr(0, quote));
            rest_.remove_prefix(quote + 1);
            if (!TakeText("'")) return true;
            text += '\'';
        }
    }

    bool TakeAnd() {
        constexpr std::string_view kAnd = "AND";
        if (!FoldedEqual(rest_.substr(0, kAnd.size()), kAnd)) return false;
        if (rest_.find_first_of(" \t\r\n[") != kAnd.size()) return false;
        rest_.remove_prefix(kAnd.size());
        return true;
    }

    // Gives `condition` the value that `literal` is for its column.
    bool Interpret(const Literal& literal, Condition& condition) const {
        const Column& column = columns_[condition.column];
        const bool plain = literal.form == Literal::Form::kPlain;
        if (plain && column.nullable && FoldedEqual(literal.text, "NULL")) {
            condition.with_null = true;
            return condition.compare == Operator::kEqual ||
                   condition.compare == Operator::kNotEqual;
        }
        switch (column.kind) {
            case CellKind::kBytes: return false;
            case CellKind::kText: {
                if (literal.form == Literal::Form::kDate) return false;
                condition.text = NormalizedText(literal.text);
                condition.key = CellKey::OfText({}, FoldedHash(condition.text));
                return true;
            }
            case CellKind::kDate: {
                std::optional<double> days = ParseDateText(literal.text);
                if (!days && plain) days = ParseNumberText(literal.text);
                if (!days) return false;
                condition.key = CellKey::OfDate(*days);
                return true;
            }
            default: {
                std::optional<double> number = ParseNumberText(literal.text);
                if (column.kind == CellKind::kBoolean) number = TruthOf(literal.text, number);
                if (!number || literal.form == Literal::Form::kDate) return false;
                condition.key = CellKey::OfNumber(*number);
                return true;
            }
        }
    }

    static std::optional<double> TruthOf(std::string_view text, std::optional<double> number) {
        if (FoldedEqual(text, "TRUE")) return -1;
        if (FoldedEqual(text, "FALSE")) return 0;
        if (number) return *number != 0 ? -1 : 0;
        return std::nullopt;
    }

    std::string_view criterion_;
    std::string_view rest_;
    const std::vector<Column>& columns_;
};

}  // namespace

CellKey Condition::Key() const {
    CellKey whole = key;
    whole.text = text;
    return whole;
}

bool Condition::IsMetBy(const Table& table, const std::uint8_t* image) const {
    if (with_null) return Table::IsNull(image, column) == (compare == Operator::kEqual);
    const CellKey cell = KeyOf(table, image, column);
    if (cell.kind == CellKey::Kind::kNone || cell.kind != key.kind) return false;
    if (compare == Operator::kEqual) return KeysEqual(cell, Key());
    const int order = CompareKeys(cell, Key());
    switch (compare) {
        case Operator::kNotEqual: return order != 0;
        case Operator::kLess: return order < 0;
        case Operator::kGreater: return order > 0;
        case Operator::kAtMost: return order <= 0;
        default: return order >= 0;
    }
}

Result<std::vector<Condition>> ParseCriterion(std::string_view criterion,
                                              const std::vector<Column>& columns) {
    return Parser(criterion, columns).Parse();
}

std::size_t FindColumn(const std::vector<Column>& columns, std::string_view name) {
    std::size_t at = 0;
    while (at < columns.size() && !FoldedEqual(columns[at].name, name))
        ++at;
    return at;
}

}  // namespace trevix::recordset
