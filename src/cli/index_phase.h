// IndexPhase: an index run that was started, followed to its end; by itself or behind a compression
// run.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "cli/index_view.h"
#include "cli/run_errors.h"
#include "cli/runs.h"

namespace trevix::cli {

class IndexPhase {
 public:
    // Shows what the index run does from now on.
    IndexPhase(Runs& runs, RunErrors& errors, std::string store_name, Console& console);

    // For Ctrl-C.
    void Cancel() { view_.Cancel(); }

    // Whether an index run follows the compression run that has ended.
    bool IsStarted() { return runs_.IndexingFollows(); }

    // Serves the loop until the run has ended, and says how it went. The program's exit status.
    int Follow();

    // What the run has done; of a run that never was, that it did nothing.
    nlohmann::json SummaryFields() const;

 private:
    int ExitCode();

    Runs& runs_;
    RunErrors& errors_;
    std::string store_name_;
    Console& console_;
    IndexView view_;
    std::int64_t elapsed_ms_ = 0;
};

}  // namespace trevix::cli
