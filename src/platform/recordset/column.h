// A column: what the port calls a field, with all that its cells need in memory and in a file.
#pragma once

#include <cstdint>
#include <string>

#include "platform/record_set.h"

namespace trevix::recordset {

// How a cell stands in a row image. Texts and raw bytes are numbers of pool entries.
enum class CellKind : std::uint8_t { kInt16, kInt32, kDouble, kDate, kBoolean, kText, kBytes };

// What stands before a cell in a file.
enum class CellPrefix : std::uint8_t { kNone, kOneByte, kFourBytes };

inline constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

struct Column {
    std::string name;
    FieldType type = FieldType::kOther;
    CellKind kind = CellKind::kBytes;
    bool nullable = false;
    std::uint32_t limit_units = kNoLimit;  // longest text that Set() takes

    std::uint16_t db_type = 0;
    std::uint32_t max_length = 0;
    std::uint32_t flags = 0;
    CellPrefix prefix = CellPrefix::kNone;
    std::uint64_t max_cell_bytes = 0;  // of a file cell; the very size without a prefix

    std::uint32_t offset = 0;  // of the cell in a row image

    bool IsLong() const;
};

// Bytes of a cell in a row image.
std::uint32_t CellSize(CellKind kind);

// A column as appended. The caller has checked the arguments.
Column MakeColumn(const std::string& name, FieldType type, int defined_size, int attributes);

// Fills everything that follows from name, db_type, max_length and flags of a column that was read.
// False when such a column cannot be: a size that its type does not have, or none at all.
bool CompleteColumn(Column& column);

}  // namespace trevix::recordset
