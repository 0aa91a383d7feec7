// What a cell is compared by: texts without regard to case, dates by whole seconds, all numbers as
// one kind.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/recordset/table.h"

namespace trevix::recordset {

struct CellKey {
    enum class Kind : std::uint8_t { kNone, kNumber, kSeconds, kText };

    Kind kind = Kind::kNone;  // kNone: Null, no date, not a number, or not comparable
    std::uint32_t hash = 0;   // equal keys have equal hashes
    double number = 0;
    std::int64_t seconds = 0;
    std::string_view text;

    static CellKey OfNumber(double number);
    static CellKey OfDate(double days);
    static CellKey OfText(std::string_view text, std::uint32_t folded_hash);
};

// The key of a cell; its text is valid as long as the pool keeps it.
CellKey KeyOf(const Table& table, const std::uint8_t* image, std::size_t column);

// Keys of one column. No key equals one of kind kNone.
bool KeysEqual(const CellKey& left, const CellKey& right);

// Negative, 0 or positive; both of the same kind, not kNone.
int CompareKeys(const CellKey& left, const CellKey& right);

}  // namespace trevix::recordset
