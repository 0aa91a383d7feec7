// IndexView: shows an index run while it goes on, and remembers how it ended. It looks like a
// compression run: see RunView.
#pragma once

#include <cstdint>
#include <string>

#include "cli/console.h"
#include "cli/runs.h"

namespace trevix::cli {

class IndexView final : public CIndexEvents {
 public:
    enum class End { kNone, kComplete, kCancelled, kHeld, kFailed };

    // Follows the run's events as long as this object lives.
    IndexView(Runs& runs, Console& console);
    IndexView(const IndexView&) = delete;
    IndexView& operator=(const IndexView&) = delete;
    ~IndexView() override { runs_.IndexingEvents(nullptr); }

    void FolderChange(const std::string& folder_name, std::int32_t count) override;
    void Progress(const std::string& text, std::int32_t count) override;
    void Complete(std::int32_t elapsed_ms) override;
    void Abort(const std::string& message) override;

    // Cancels the run; also one that has not begun, which forgets a cancel that came before.
    void Cancel();

    // Shows what no event has announced any more.
    void Finish();

    End end() const { return end_; }
    const std::string& abort_message() const { return abort_message_; }

    // The folder at hand; empty before the first.
    const std::string& folder() const { return folder_; }

 private:
    void Draw(std::int32_t done);
    void ShowFolder();

    Runs& runs_;
    const IndexSummary& summary_;
    Console& console_;

    std::string folder_;
    std::int32_t folder_count_ = 0;
    std::int64_t messages_before_ = 0;  // what the run had done when the folder began
    std::int64_t rows_before_ = 0;
    std::int32_t last_drawn_ = 0;  // ticks
    bool drawn_ = false;
    bool is_cancelled_ = false;
    End end_ = End::kNone;
    std::string abort_message_;
};

}  // namespace trevix::cli
