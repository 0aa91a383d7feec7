// Fleet: one compression run after another, or several side by side, over many mailboxes.
//
// Each mailbox gets a process of its own, this program again, so that one that fails harms no
// other. What a child tells on its standard output, as events, becomes one line for the mailbox.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/fleet_list.h"
#include "platform/posix/child_process.h"
#include "platform/posix/poll_loop.h"

namespace trevix::cli {

// How a mailbox's run ended; kStopped by us, before it was done.
enum class FleetOutcome { kDone, kPartial, kFailed, kBusy, kStopped };

// What became of a fleet's mailboxes.
class FleetTally {
 public:
    // Counts a mailbox by the exit status of its run, minus the signal that ended it.
    FleetOutcome Count(int exit_code);

    void NotStarted(std::size_t mailboxes) { not_started_ += mailboxes; }

    // The program's exit status. Failures weigh more than a lack of time, and that more than
    // mailboxes that another run holds.
    int ExitCode(bool is_interrupted, bool is_time_up) const;

    nlohmann::json Fields() const;

 private:
    std::size_t of(FleetOutcome outcome) const {
        return counts_[static_cast<std::size_t>(outcome)];
    }

    std::array<std::size_t, 5> counts_{};
    std::size_t not_started_ = 0;
};

const char* NameOf(FleetOutcome outcome);

struct FleetPlan {
    std::vector<FleetMember> members;
    std::vector<std::string> options;  // for each run
    int jobs = 1;
};

class Fleet {
 public:
    Fleet(FleetPlan plan, posix::PollLoop& loop, Console& console);
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;
    ~Fleet();

    // Serves the loop until all runs have ended, and tells of each.
    void Run();

    // Starts no more runs and asks those under way to end at their next message.
    void Stop();

    const FleetTally& tally() const { return tally_; }

    // The sums of what the runs did.
    nlohmann::json Sums() const;

 private:
    struct Member {
        std::size_t number = 0;  // in the list, from 1
        std::unique_ptr<posix::ChildProcess> process;
        std::string unread;  // the beginning of a line
        nlohmann::json summary;
        nlohmann::json errors = nlohmann::json::array();
    };

    void StartMore();
    bool Start(std::size_t index);
    void Read(Member& member);
    void TakeLine(Member& member, const std::string& line);
    void Finish(Member& member);
    void Tell(const Member& member, int exit_code);

    FleetPlan plan_;
    posix::PollLoop& loop_;
    Console& console_;
    std::string program_;
    std::size_t next_ = 0;
    std::vector<std::unique_ptr<Member>> running_;
    bool is_stopping_ = false;
    FleetTally tally_;
    std::array<std::int64_t, 4> sums_{};
};

}  // namespace trevix::cli
