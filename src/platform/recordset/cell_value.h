// Cells as values of the port: reading one, and writing one with conversion and range checks.
#pragma once

#include "platform/recordset/table.h"
#include "platform/variant.h"

namespace trevix::recordset {

// Null and what is no date are Empty where the column may be Null.
Variant ReadCell(const Table& table, const std::uint8_t* image, std::size_t column);

enum class WriteOutcome {
    kDone,
    kRefused,   // too long, out of range, or Null where a column is never Null
    kWrongType  // does not convert to the column's type
};

// Puts `value` into the cell, which stays as it was unless the outcome is kDone. `guess` is the
// number of a text that is likely to be the same, and becomes the number of the text written.
WriteOutcome WriteCell(Table& table, std::uint8_t* image, std::size_t column, const Variant& value,
                       TextId& guess);

}  // namespace trevix::recordset
