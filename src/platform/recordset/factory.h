// Makes record sets that live in memory and are saved as ADTG files.
#pragma once

#include <memory>

#include "platform/record_set.h"

namespace trevix::recordset {

class Factory : public RecordSetFactory {
 public:
    Result<std::unique_ptr<RecordSet>> CreateRecordSet() override;
};

}  // namespace trevix::recordset
