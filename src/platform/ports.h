// All that the core needs of the outside, in one place. Built by the program that runs the core;
// everything in it outlives the core's objects.
#pragma once

#include "platform/clock.h"
#include "platform/event_log.h"
#include "platform/file_system.h"
#include "platform/message_loop.h"
#include "platform/messaging.h"
#include "platform/record_set.h"
#include "platform/registry.h"
#include "platform/zip_engine.h"

namespace trevix {

struct Ports {
    Clock& clock;
    MessageLoop& loop;
    EventLog& event_log;
    FileSystem& files;
    Registry& registry;
    Environment& environment;
    MessagingFactory& messaging;
    RecordSetFactory& record_sets;
    ZipFactory& zip;
};

}  // namespace trevix
