// What a compression run has done, as the command line tells it at the end.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "manage/cmanage.h"

namespace trevix::cli {

// What was really saved in one folder.
struct FolderOutcome {
    std::string path;  // names joined by "/", as --folder takes them
    std::int64_t attachments = 0;
    std::int64_t bytes_before = 0;
    std::int64_t bytes_after = 0;
};

// One line: "12 messages changed, 15 attachments zipped, 4.1 MB -> 1.2 MB (70% saved), 3.2 s".
std::string SummaryLine(const RunSummary& summary, std::int64_t elapsed_ms, bool dry_run);

// The folders in which something changed, and their sum: before, after, gain.
std::string FolderTable(const std::vector<FolderOutcome>& folders);

nlohmann::json SummaryEvent(const RunSummary& summary, const std::vector<FolderOutcome>& folders,
                            std::int64_t elapsed_ms, bool dry_run, int exit_code);

}  // namespace trevix::cli
