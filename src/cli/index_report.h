// What an index run has done, as the command line tells it at the end.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "index/cindex.h"

namespace trevix::cli {

// What the statistics text of a saved index says. Its totals of all attachments are not taken: they
// end at 2 GB.
struct IndexStatistics {
    std::vector<std::string> stores;
    std::int64_t index_bytes = 0;
};

// What cannot be found in the text stays empty.
IndexStatistics ParseIndexStatistics(const std::string& text);

// One line: "index of Ann's mail: 30 attachments (2 new), 4.1 MB (1.2 MB packed), index 3.1 KB,
// 0.4 s".
std::string IndexSummaryLine(const IndexSummary& summary, std::int64_t elapsed_ms);

// Without "event" and "exit".
nlohmann::json IndexSummaryFields(const IndexSummary& summary, std::int64_t elapsed_ms);

}  // namespace trevix::cli
