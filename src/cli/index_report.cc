#include "cli/index_report.h"

#include <cctype>
#include <nlohmann/json.hpp>

#include "cli/text_format.h"
#include "util/format.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

// The number before the last " bytes": "1.50KB (1,536 bytes)".
std::int64_t BytesOf(const std::string& text) {
    std::size_t end = text.rfind(" byte");
    std::int64_t bytes = 0;
    std::int64_t unit = 1;
    for (; end != std::string::npos && end > 0; --end) {
        const char c = text[end - 1];
        if (c == ',') continue;
        if (std::isdigit(static_cast<unsigned char>(c)) == 0) break;
        bytes += unit * (c - '0');
        unit *= 10;
    }
    return bytes;
}

}  // namespace

IndexStatistics ParseIndexStatistics(const std::string& text) {
    IndexStatistics statistics;
    bool are_stores = false;
    for (const std::string& line : Split(text, "\r\n")) {
        if (line.starts_with("Time to create index")) are_stores = false;
        if (are_stores) statistics.stores.push_back(line);
        if (line.starts_with("Attachment index created for:")) are_stores = true;
        if (line.starts_with("Size of index (compressed): "))
            statistics.index_bytes = BytesOf(line);
    }
    return statistics;
}

std::string IndexSummaryLine(const IndexSummary& summary, std::int64_t elapsed_ms) {
    const IndexStatistics statistics = ParseIndexStatistics(summary.text);
    std::string stores;
    for (const std::string& name : statistics.stores) {
        stores += (stores.empty() ? "" : ", ") + Printable(name);
    }
    std::string line = "index of " + stores + ": " + FormatThousands(summary.rows) +
                       (summary.rows == 1 ? " attachment" : " attachments");
    line += " (" + FormatThousands(summary.rows_added) + " new), ";
    line += HumanBytes(summary.bytes) + " (" + HumanBytes(summary.stored_bytes) +
            " packed), index " + HumanBytes(statistics.index_bytes);
    const std::int64_t failures = summary.messages_failed + summary.folders_failed;
    if (failures > 0) {
        line += ", " + FormatThousands(failures) + (failures == 1 ? " failure" : " failures");
    }
    return line + ", " + HumanDuration(elapsed_ms);
}

nlohmann::json IndexSummaryFields(const IndexSummary& summary, std::int64_t elapsed_ms) {
    const IndexStatistics statistics = ParseIndexStatistics(summary.text);
    return {{"saved", !summary.text.empty()},
            {"stores", statistics.stores},
            {"rows", summary.rows},
            {"rows_added", summary.rows_added},
            {"messages_indexed", summary.messages_indexed},
            {"messages_failed", summary.messages_failed},
            {"folders_failed", summary.folders_failed},
            {"bytes", summary.bytes},
            {"stored_bytes", summary.stored_bytes},
            {"index_bytes", statistics.index_bytes},
            {"elapsed_ms", elapsed_ms}};
}

}  // namespace trevix::cli
