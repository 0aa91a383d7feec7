// Reads ADTG files of flat record sets.
#pragma once

#include <memory>

#include "platform/recordset/byte_reader.h"
#include "platform/recordset/records.h"
#include "platform/result.h"

namespace trevix::recordset {

// The record set that `reader` holds, in whichever states its rows are. Columns of types that the
// port does not have are kept as raw bytes. kMalformed (3003), with the offset, for anything
// damaged, cut off or hierarchical; kIo (3003) when reading fails.
Result<std::unique_ptr<Records>> ReadAdtg(ByteReader& reader);

}  // namespace trevix::recordset
