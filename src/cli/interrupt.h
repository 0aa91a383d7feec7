// Ctrl-C: the first one asks for an end at the next message, the second one ends the program at
// once. SIGTERM counts as well.
#pragma once

#include <functional>

#include "platform/posix/poll_loop.h"

namespace trevix::cli {

// What is said when the program ends at once: of a run of its own, and of one of the service.
inline constexpr const char* kEndedAtOnceText =
    "\ntrevixctl: ended at once; the store counts as held for up to five minutes\n";
inline constexpr const char* kLeftServiceText =
    "\ntrevixctl: left the service, which ends the run behind the message at hand\n";

class Interrupt {
 public:
    // From now on and until this object goes, `cancel` is called from the loop for the first
    // signal; the second one says `last_words`, a constant text, and ends the program. With null
    // the second one does nothing: whoever sends it may not know of the first. At most one object
    // at a time.
    Interrupt(posix::PollLoop& loop, const char* last_words, std::function<void()> cancel);
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;
    ~Interrupt();

 private:
    posix::PollLoop& loop_;
    int read_end_ = -1;
    int write_end_ = -1;
};

}  // namespace trevix::cli
