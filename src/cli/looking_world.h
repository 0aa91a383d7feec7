// The world of commands that only look at a store.
#pragma once

#include <memory>

#include "cli/console.h"
#include "cli/store_choice.h"
#include "cli/world.h"

namespace trevix::cli {

// Logs on without writing anything but the summary cache. Null after a complaint; `exit_code` then
// says which.
std::unique_ptr<World> OpenToLook(const StoreChoice& choice, Console& console, int& exit_code);

}  // namespace trevix::cli
