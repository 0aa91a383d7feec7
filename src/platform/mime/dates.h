// Times as the ports give them.
#pragma once

#include <cstdint>

#include "platform/variant.h"

namespace trevix::mime {

// Nanoseconds since 1970 as a date with its fraction, UTC as UTC. Never earlier than the instant
// itself: a message must not look older than a mark that was set before it.
Date DateFromUnixNs(std::int64_t ns);

}  // namespace trevix::mime
