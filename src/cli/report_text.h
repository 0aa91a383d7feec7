// The stored compression log, an HTML page, read back as rows.
#pragma once

#include <string>
#include <vector>

namespace trevix::cli {

struct LogRow {
    std::string folder;
    std::string attachments;
    std::string original_bytes;
    std::string compressed_bytes;
    std::string percent;
};

struct LogReport {
    std::string started;
    std::string completed;
    std::vector<LogRow> rows;  // the last one is the total
};

// What cannot be found in the page stays empty.
LogReport ParseCompressionLog(const std::string& html);

// A table: the folders in which something was zipped, and the total.
std::string FormatLogReport(const LogReport& report);

}  // namespace trevix::cli
