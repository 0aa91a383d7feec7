// Rows of the attachment index on the standard output: a table for people, CSV (RFC 4180) and JSON
// for programs.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/record_set.h"

namespace trevix::cli {

// Records count from 1 in the order of the saved index.
using RowNumber = std::uint32_t;

// Calls `visit` with the number of each record while that is current. The record set's filter is
// not set.
void ForEachRow(RecordSet& index, const std::function<void(RowNumber)>& visit);

// The same for `rows`, which ascend.
void ForEachRow(RecordSet& index, const std::vector<RowNumber>& rows,
                const std::function<void(RowNumber)>& visit);

// A table with aligned columns. `columns` is the width of the terminal, which no line exceeds; 0
// cuts nothing.
void WriteTable(RecordSet& index, const std::vector<RowNumber>& rows, std::size_t columns,
                std::ostream& out);

// A line of names, then a line a row: "Row" and all columns of the index. Dates read
// "2007-10-05T15:04:05", Null is empty. `for_terminal`: without what a terminal would obey.
void WriteCsv(RecordSet& index, const std::vector<RowNumber>& rows, bool for_terminal,
              std::ostream& out);

// The same as one object a line, each with "event": "row"; Null is null.
void WriteJson(RecordSet& index, const std::vector<RowNumber>& rows, std::ostream& out);

}  // namespace trevix::cli
