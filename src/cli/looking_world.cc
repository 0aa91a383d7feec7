#include "cli/looking_world.h"

#include "cli/exit_codes.h"

namespace trevix::cli {

std::unique_ptr<World> OpenToLook(const StoreChoice& choice, Console& console, int& exit_code) {
    const auto name = LogonName(choice, console, exit_code);
    if (!name) return nullptr;
    WorldPlan plan;
    plan.writes = WorldPlan::Writes::kNothing;
    plan.keeps_summaries = true;
    plan.server_mode = choice.server_mode;
    auto world = World::Open(plan, *name, console);
    if (world == nullptr) exit_code = kExitFailed;
    return world;
}

}  // namespace trevix::cli
