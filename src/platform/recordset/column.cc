#include "platform/recordset/column.h"

#include "platform/recordset/adtg_format.h"

namespace trevix::recordset {
namespace {

constexpr std::uint32_t kNullableFlags = kFieldIsNullable | kFieldMayBeNull;

struct TypeRow {
    FieldType type;
    CellKind kind;
    std::uint16_t db_type;
    std::uint32_t max_length;
    std::uint32_t flags;
};

constexpr TypeRow kTypes[] = {
    {FieldType::kSmallInt, CellKind::kInt16, kDbI2, 2, kFlagWrite | kFlagFixed},
    {FieldType::kInteger, CellKind::kInt32, kDbI4, 4, kFlagWrite | kFlagFixed},
    {FieldType::kDouble, CellKind::kDouble, kDbR8, 8, kFlagWrite | kFlagFixed},
    {FieldType::kDate, CellKind::kDate, kDbDate, 8, kFlagWrite | kFlagFixed},
    {FieldType::kBoolean, CellKind::kBoolean, kDbBool, 2, kFlagWrite | kFlagFixed},
    {FieldType::kBstr, CellKind::kText, kDbWstr, kNoMaxLength, kFlagWrite | kFlagLong},
};

bool IsWide(std::uint16_t db_type) {
    return db_type == kDbWstr || db_type == kDbBstr;
}

bool HasVariableType(std::uint16_t db_type) {
    return IsWide(db_type) || db_type == kDbBytes || db_type == kDbStr || db_type == kDbVarNumeric;
}

// The published text has the width of the prefix depend on the number of characters; the files
// have it depend on the number of bytes, also for columns marked as fixed.
CellPrefix PrefixOf(const Column& column) {
    if (!HasVariableType(column.db_type)) return CellPrefix::kNone;
    if (column.max_cell_bytes > 255) return CellPrefix::kFourBytes;
    const bool fixed = (column.flags & kFlagFixed) != 0 && column.db_type != kDbVarNumeric;
    return fixed ? CellPrefix::kNone : CellPrefix::kOneByte;
}

// The longest text that a column which was read can hold, in units.
std::uint32_t LongestText(const Column& column) {
    if (!column.IsLong() || column.prefix == CellPrefix::kNone) return column.max_length;
    return column.prefix == CellPrefix::kOneByte ? 255 / 2 : kNoLimit;
}

void CompleteSizes(Column& column) {
    column.nullable = (column.flags & kNullableFlags) != 0;
    column.max_cell_bytes = std::uint64_t{column.max_length} * (IsWide(column.db_type) ? 2 : 1);
    column.prefix = PrefixOf(column);
}

}  // namespace

bool Column::IsLong() const {
    return (flags & kFlagLong) != 0 || max_length == kNoMaxLength;
}

std::uint32_t CellSize(CellKind kind) {
    switch (kind) {
        case CellKind::kInt16:
        case CellKind::kBoolean: return 2;
        case CellKind::kDouble:
        case CellKind::kDate: return 8;
        default: return 4;
    }
}

Column MakeColumn(const std::string& name, FieldType type, int defined_size, int attributes) {
    Column column;
    column.name = name;
    column.type = type;
    for (const TypeRow& row : kTypes) {
        if (row.type != type) continue;
        column.kind = row.kind;
        column.db_type = row.db_type;
        column.max_length = row.max_length;
        column.flags = row.flags;
    }
    if (attributes != kFieldUnspecified) column.flags |= static_cast<std::uint32_t>(attributes);
    if (type == FieldType::kBstr && defined_size > 0) {
        column.limit_units = static_cast<std::uint32_t>(defined_size);
    }
    CompleteSizes(column);
    return column;
}

bool CompleteColumn(Column& column) {
    CompleteSizes(column);
    if (IsWide(column.db_type)) {
        column.type = FieldType::kBstr;
        column.kind = CellKind::kText;
        column.limit_units = LongestText(column);
    }
    for (const TypeRow& row : kTypes) {
        if (row.db_type != column.db_type || row.type == FieldType::kBstr) continue;
        column.type = row.type;
        column.kind = row.kind;
        if (column.max_length != row.max_length) return false;
    }
    // A cell of no bytes at all would let a small file claim any number of rows.
    return column.prefix != CellPrefix::kNone ||
           (column.max_cell_bytes > 0 && column.max_cell_bytes <= kMaxFixedCellBytes);
}

}  // namespace trevix::recordset
