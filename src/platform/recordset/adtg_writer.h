// Writes ADTG files.
#pragma once

#include <vector>

#include "platform/recordset/byte_writer.h"
#include "platform/recordset/table.h"

namespace trevix::recordset {

// Writes the rows of `shown`, or, when that is null, all live rows and in front of them the deleted
// ones that a file held. A set that was read gets the head that it had, apart from the row count.
// Returns false when writing failed, see ByteWriter::system_error.
bool WriteAdtg(const Table& table, const std::vector<RowId>* shown, ByteWriter& writer);

}  // namespace trevix::recordset
