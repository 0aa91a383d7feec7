#include "platform/recordset/cell_value.h"

#include <cmath>
#include <limits>
#include <optional>

#include "platform/recordset/adtg_format.h"
#include "platform/recordset/date_text.h"
#include "platform/recordset/number_text.h"
#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

constexpr std::int16_t kTrue = -1;

std::optional<double> NumberOf(const Variant& value) {
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? -1 : 0;
    if (const auto* small = std::get_if<std::int16_t>(&value)) return *small;
    if (const auto* integer = std::get_if<std::int32_t>(&value)) return *integer;
    if (const auto* number = std::get_if<double>(&value)) return *number;
    if (const auto* date = std::get_if<Date>(&value)) return date->days;
    if (const auto* text = std::get_if<std::string>(&value)) return ParseNumberText(*text);
    return std::nullopt;
}

template <typename Integer>
WriteOutcome WriteInteger(std::uint8_t* image, const Column& column, const Variant& value) {
    const std::optional<double> number = NumberOf(value);
    if (!number) return WriteOutcome::kWrongType;
    const double rounded = std::nearbyint(*number);  // halves go to the even neighbour
    if (!(rounded >= std::numeric_limits<Integer>::min() &&
          rounded <= std::numeric_limits<Integer>::max())) {
        return WriteOutcome::kRefused;
    }
    Table::Store(image, column, static_cast<Integer>(rounded));
    return WriteOutcome::kDone;
}

WriteOutcome WriteBoolean(std::uint8_t* image, const Column& column, const Variant& value) {
    std::optional<double> number = NumberOf(value);
    if (const auto* text = std::get_if<std::string>(&value); text != nullptr && !number) {
        if (FoldedEqual(*text, "TRUE")) number = kTrue;
        if (FoldedEqual(*text, "FALSE")) number = 0;
    }
    if (!number) return WriteOutcome::kWrongType;
    Table::Store<std::int16_t>(image, column, *number != 0 ? kTrue : std::int16_t{0});
    return WriteOutcome::kDone;
}

WriteOutcome WriteDate(std::uint8_t* image, const Column& column, const Variant& value) {
    std::optional<double> days;
    if (const auto* text = std::get_if<std::string>(&value)) days = ParseDateText(*text);
    if (!days) days = NumberOf(value);
    if (!days) return WriteOutcome::kWrongType;
    if (!(*days >= kFirstDay && *days < kDayAfterLast)) return WriteOutcome::kRefused;
    Table::Store(image, column, *days);
    return WriteOutcome::kDone;
}

WriteOutcome WriteDouble(std::uint8_t* image, const Column& column, const Variant& value) {
    const std::optional<double> number = NumberOf(value);
    if (!number) return WriteOutcome::kWrongType;
    Table::Store(image, column, *number);
    return WriteOutcome::kDone;
}

// The text that a value other than a text turns into.
std::optional<std::string> ConvertedText(const Variant& value) {
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "True" : "False";
    if (std::holds_alternative<Date>(value)) return std::nullopt;
    if (const auto number = NumberOf(value)) return NumberText(*number);
    return std::nullopt;
}

WriteOutcome WriteText(Table& table, std::uint8_t* image, const Column& column,
                       std::string_view text, TextId& guess) {
    std::string normalized;
    if (!IsAscii(text)) {
        normalized = NormalizedText(text);
        text = normalized;
    }
    // A text has at most as many units as bytes, so most need no counting.
    if (text.size() > column.limit_units && Utf16Units(text) > column.limit_units) {
        return WriteOutcome::kRefused;
    }
    if (text.size() > kMaxCellBytes / 2) return WriteOutcome::kRefused;
    guess = table.pool().Intern(text, guess);
    Table::Store(image, column, guess);
    return WriteOutcome::kDone;
}

WriteOutcome WriteValue(Table& table, std::uint8_t* image, const Column& column,
                        const Variant& value, TextId& guess) {
    switch (column.kind) {
        case CellKind::kInt16: return WriteInteger<std::int16_t>(image, column, value);
        case CellKind::kInt32: return WriteInteger<std::int32_t>(image, column, value);
        case CellKind::kBoolean: return WriteBoolean(image, column, value);
        case CellKind::kDate: return WriteDate(image, column, value);
        case CellKind::kDouble: return WriteDouble(image, column, value);
        case CellKind::kText: {
            if (const auto* text = std::get_if<std::string>(&value)) {
                return WriteText(table, image, column, *text, guess);
            }
            const std::optional<std::string> converted = ConvertedText(value);
            if (!converted) return WriteOutcome::kWrongType;
            return WriteText(table, image, column, *converted, guess);
        }
        case CellKind::kBytes: break;
    }
    return WriteOutcome::kWrongType;
}

}  // namespace

Variant ReadCell(const Table& table, const std::uint8_t* image, std::size_t column) {
    const Column& described = table.columns()[column];
    if (Table::IsNull(image, column)) return Empty();
    switch (described.kind) {
        case CellKind::kInt16: return Table::Load<std::int16_t>(image, described);
        case CellKind::kInt32: return Table::Load<std::int32_t>(image, described);
        case CellKind::kDouble: return Table::Load<double>(image, described);
        case CellKind::kBoolean: return Table::Load<std::int16_t>(image, described) != 0;
        case CellKind::kDate: {
            const auto days = Table::Load<double>(image, described);
            if (std::isfinite(days)) return Date{days};
            return described.nullable ? Variant(Empty()) : Variant(Date());
        }
        case CellKind::kText: return std::string(table.Text(image, described));
        case CellKind::kBytes: break;
    }
    return Blob::FromString(std::string(table.Text(image, described)));
}

WriteOutcome WriteCell(Table& table, std::uint8_t* image, std::size_t column, const Variant& value,
                       TextId& guess) {
    const Column& described = table.columns()[column];
    if (IsEmpty(value)) {
        if (!described.nullable) return WriteOutcome::kRefused;
        table.Clear(image, column);
        return WriteOutcome::kDone;
    }
    const WriteOutcome outcome = WriteValue(table, image, described, value, guess);
    if (outcome == WriteOutcome::kDone) Table::SetNull(image, column, false);
    return outcome;
}

}  // namespace trevix::recordset
