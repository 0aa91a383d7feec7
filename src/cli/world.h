// World: all that one run of the program consists of, built in one place and logged on to a store.
//
// This is the composition root: the adapters of src/assembly, and what dry runs and options put in
// front of them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/dry_run_hidden.h"
#include "cli/registry_overlay.h"
#include "cli/store_check.h"
#include "cli/store_name.h"
#include "platform/posix/poll_loop.h"
#include "shell/bas_ci.h"
#include "shell/event_echo.h"
#include "shell/session.h"

namespace trevix::cli {

struct WorldPlan {
    // kNothing: every write stays in memory or in private temporary files, and no log is kept.
    enum class Writes { kEverything, kNothing };
    Writes writes = Writes::kEverything;

    // Whether what is learnt of messages may go into the summary cache all the same.
    bool keeps_summaries = false;

    FolderUse folder_use = FolderUse::kSome;
    HeldLock held_lock = HeldLock::kShown;  // of worlds that write nothing
    bool server_mode = false;
    std::vector<OverlayValue> options;  // what the command line sets for this run
    EventEcho::Show show_error;         // where the errors of the run go; empty for nowhere
};

class World {
 public:
    // Builds everything and logs on. Null after a complaint.
    static std::unique_ptr<World> Open(const WorldPlan& plan, const StoreName& name,
                                       Console& console);
    virtual ~World() = default;
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    virtual BasCI& state() = 0;
    virtual Session& session() = 0;
    virtual posix::PollLoop& loop() = 0;

 protected:
    World() = default;
};

// What a person is told of a log-on that was refused for the reason `why`. Stores tell in one
// sentence what is wrong and, behind a semicolon, what to do.
Complaint RefusalComplaint(const std::string& store_name, const std::string& why);

// The text of the results message's property; empty when there is none.
Variant ResultsProperty(BasCI& state, const std::string& name, std::uint16_t type);

}  // namespace trevix::cli
