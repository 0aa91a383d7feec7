#include "platform/recordset/factory.h"

#include "platform/recordset/client_record_set.h"

namespace trevix::recordset {

Result<std::unique_ptr<RecordSet>> Factory::CreateRecordSet() {
    return std::unique_ptr<RecordSet>(std::make_unique<ClientRecordSet>());
}

}  // namespace trevix::recordset
