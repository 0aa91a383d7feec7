// Adapters: everything that stands behind the core's ports on this system, built in one place.
//
// The programs share it. What only one of them wants (dry runs, settings of the command line) it
// puts in front of a port itself, with PortsWith().
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "assembly/open_stores.h"
#include "platform/eventlog/system_event_log.h"
#include "platform/ports.h"
#include "platform/posix/poll_loop.h"
#include "platform/posix/posix_file_system.h"
#include "platform/posix/system_clock.h"
#include "platform/profiles/profile_provider.h"
#include "platform/recordset/factory.h"
#include "platform/registry/file_registry.h"
#include "platform/registry/process_environment.h"
#include "platform/summary_cache.h"
#include "platform/zip/factory.h"

namespace trevix::assembly {

struct AdapterPlan {
    posix::FirstTick first_tick = posix::FirstTick::kAfterInterval;

    // Where the program's data lies when it is installed, seen from the program's own folder.
    std::string data_from_program;

    // Other places than the usual ones; empty for those.
    std::string temporary;
    std::string user_settings;
    std::string machine_settings;

    // False: what is learnt of messages is forgotten with the process.
    bool keeps_summaries = true;

    StorePlan stores;
};

class Adapters {
 public:
    explicit Adapters(const AdapterPlan& plan);
    Adapters(const Adapters&) = delete;
    Adapters& operator=(const Adapters&) = delete;
    ~Adapters();

    posix::PollLoop& loop() { return loop_; }
    EventLog& event_log() { return event_log_; }
    Registry& registry() { return registry_; }
    FileSystem& files() { return files_; }

    Ports AllPorts() { return PortsWith(event_log_, registry_); }
    Ports PortsWith(EventLog& event_log, Registry& registry);

 private:
    // In the order in which they are needed, so that each outlives who uses it.
    posix::SystemClock clock_;
    posix::PollLoop loop_;
    eventlog::SystemEventLog event_log_;
    posix::PosixFileSystem files_;
    registry::FileRegistry registry_;
    registry::ProcessEnvironment environment_;
    profiles::ProfileProvider provider_;
    std::unique_ptr<SummaryCache> cache_;
    std::unique_ptr<MessagingFactory> messaging_;
    recordset::Factory record_sets_;
    zip_engine::Factory zip_;
};

}  // namespace trevix::assembly
