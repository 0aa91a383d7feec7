// What a compression run has done, as the command line tells it at the end.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "manage/cmanage.h"

namespace trevix::cli {

// One line: "12 messages changed, 15 attachments zipped, 4.1 MB -> 1.2 MB (70% saved), 3.2 s".
std::string SummaryLine(const RunSummary& summary, std::int64_t elapsed_ms, bool dry_run);

// The folders in which something changed, and their sum: before, after, gain.
std::string FolderTable(const RunSummary& summary);

nlohmann::json SummaryEvent(const RunSummary& summary, std::int64_t elapsed_ms, bool dry_run,
                            int exit_code);

}  // namespace trevix::cli
