// The attachment index as the last index run left it on the results message, for commands that look
// things up in it.
//
// Takes no lock and writes nothing, neither to the store nor to temporary files: a run that goes on
// meanwhile replaces the saved index as a whole when it ends.
#pragma once

#include <memory>

#include "cli/console.h"
#include "platform/record_set.h"
#include "shell/bas_ci.h"

namespace trevix::cli {

// An open record set with the columns of the index. kNotFound when no index was saved yet, kMissing
// when there is no results message, kMalformed when the saved index is damaged or of another
// layout.
Result<std::unique_ptr<RecordSet>> LoadSavedIndex(BasCI& state);

// The same; null after a complaint.
std::unique_ptr<RecordSet> OpenSavedIndex(BasCI& state, Console& console);

}  // namespace trevix::cli
