// RunView: shows a compression run while it goes on, and remembers how it ended.
//
// A terminal gets one line that is redrawn at most ten times a second, anything else one line a
// folder; both on the standard error. With --json events go to the standard output instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cli/console.h"
#include "cli/run_report.h"
#include "manage/cmanage.h"
#include "platform/clock.h"
#include "platform/message_loop.h"

namespace trevix::cli {

class RunView final : public CManageEvents {
 public:
    enum class End { kNone, kComplete, kCancelled, kHeld, kRefused };

    // `summary` is what the run has done when an event comes.
    RunView(const RunSummary& summary, Clock& clock, MessageLoop& loop, Console& console)
        : summary_(summary), clock_(clock), loop_(loop), console_(console) {}

    void FolderChange(const std::string& folder_name, std::int32_t count) override;
    void Progress(const std::string& folder_name, std::int32_t count) override;
    void Complete(std::int32_t elapsed_ms) override;
    void Abort(const std::string& message) override;

    // Shows what no event has announced any more.
    void Finish();

    End end() const { return end_; }
    const std::string& abort_message() const { return abort_message_; }
    const std::vector<FolderOutcome>& folders() const { return folders_; }

    // The folder at hand; empty before the first.
    const std::string& folder() const { return folder_; }

 private:
    std::int64_t ElapsedMs(std::int32_t since) const;
    void Draw(std::int32_t done);
    void TakeFinishedFolders();
    void ShowFolder(const FolderOutcome& folder);

    const RunSummary& summary_;
    Clock& clock_;
    MessageLoop& loop_;
    Console& console_;

    std::string folder_;
    std::int32_t folder_count_ = 0;
    std::int32_t folder_start_ = 0;  // ticks
    std::int32_t last_drawn_ = 0;    // ticks
    bool drawn_ = false;
    std::size_t reports_taken_ = 0;
    FolderOutcome taken_;  // the sum of what was taken
    std::vector<FolderOutcome> folders_;
    End end_ = End::kNone;
    std::string abort_message_;
};

}  // namespace trevix::cli
