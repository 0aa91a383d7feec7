// Criteria of searches and filters: FIELD OPERATOR VALUE, joined by AND.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/recordset/cell_key.h"
#include "platform/result.h"

namespace trevix::recordset {

enum class Operator : std::uint8_t { kEqual, kNotEqual, kLess, kGreater, kAtMost, kAtLeast };

struct Condition {
    std::size_t column = 0;
    Operator compare = Operator::kEqual;
    bool with_null = false;  // the value is Null, `compare` is kEqual or kNotEqual
    CellKey key;             // without its text
    std::string text;

    // The key of the value; valid as long as this condition is.
    CellKey Key() const;

    // True when an index over the column can answer it.
    bool IsEquality() const { return compare == Operator::kEqual && !with_null; }

    // A Null cell meets only a comparison with Null.
    bool IsMetBy(const Table& table, const std::uint8_t* image) const;
};

// Error 3001 for what cannot be understood, 3265 for an unknown field.
Result<std::vector<Condition>> ParseCriterion(std::string_view criterion,
                                              const std::vector<Column>& columns);

// The column of that name, in any case; columns.size() when there is none.
std::size_t FindColumn(const std::vector<Column>& columns, std::string_view name);

}  // namespace trevix::recordset
