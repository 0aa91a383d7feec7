#include "cli/run_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "cli/text_format.h"
#include "util/format.h"

namespace trevix::cli {
namespace {

std::string Counted(std::int64_t count, const char* one, const char* many) {
    return FormatThousands(count) + " " + (count == 1 ? one : many);
}

std::string Row(const std::string& name, std::size_t columns, const std::string& count,
                const std::string& before, const std::string& after, const std::string& gain) {
    constexpr std::size_t kNumber = 12;
    return PadRight(Shortened(name, columns), columns) + PadLeft(count, kNumber) +
           PadLeft(before, kNumber) + PadLeft(after, kNumber) + PadLeft(gain, kNumber) + "\n";
}

std::string NumberRow(const std::string& name, std::size_t columns, std::int64_t count,
                      std::int64_t before, std::int64_t after) {
    return Row(name, columns, FormatThousands(count), HumanBytes(before), HumanBytes(after),
               HumanBytes(before - after));
}

}  // namespace

std::string SummaryLine(const RunSummary& summary, std::int64_t elapsed_ms, bool dry_run) {
    std::string line;
    if (dry_run) line = "dry run, nothing was written: ";
    line += Counted(summary.messages_changed, "message ", "messages ");
    line += dry_run ? "would change" : "changed";
    line += ", " + Counted(summary.attachments_zipped, "attachment", "attachments") + " zipped";
    if (summary.stationery_removed > 0) {
        line += ", " +
                Counted(summary.stationery_removed, "stationery image", "stationery images") +
                " removed";
    }
    line += ", " + HumanBytes(summary.original_bytes) + " -> " +
            HumanBytes(summary.compressed_bytes) + " (" +
            std::to_string(SavedPercent(summary.original_bytes, summary.compressed_bytes)) +
            "% saved)";
    if (summary.messages_failed > 0) {
        line += ", " + Counted(summary.messages_failed, "failure", "failures");
    }
    return line + ", " + HumanDuration(elapsed_ms);
}

std::string FolderTable(const RunSummary& summary) {
    constexpr std::size_t kWidest = 40;
    std::size_t columns = 12;
    std::vector<const FolderReport*> changed;
    for (const FolderReport& folder : summary.folders) {
        if (folder.compressed_count == 0) continue;
        changed.push_back(&folder);
        columns = std::clamp(Printable(folder.path).size(), columns, kWidest);
    }
    if (changed.empty()) return {};
    std::string table = Row("Folder", columns, "Attachments", "Before", "After", "Gain");
    std::int64_t count = 0;
    std::int64_t before = 0;
    std::int64_t after = 0;
    for (const FolderReport* folder : changed) {
        table += NumberRow(Printable(folder->path), columns, folder->compressed_count,
                           folder->original_bytes, folder->compressed_bytes);
        count += folder->compressed_count;
        before += folder->original_bytes;
        after += folder->compressed_bytes;
    }
    return table + NumberRow("Total", columns, count, before, after);
}

nlohmann::json SummaryEvent(const RunSummary& summary, std::int64_t elapsed_ms, bool dry_run,
                            int exit_code) {
    nlohmann::json folders = nlohmann::json::array();
    for (const FolderReport& folder : summary.folders) {
        folders.push_back({{"path", folder.path},
                           {"attachments", folder.compressed_count},
                           {"bytes_before", folder.original_bytes},
                           {"bytes_after", folder.compressed_bytes}});
    }
    return {{"event", "summary"},
            {"exit", exit_code},
            {"dry_run", dry_run},
            {"messages_changed", summary.messages_changed},
            {"messages_failed", summary.messages_failed},
            {"attachments_zipped", summary.attachments_zipped},
            {"stationery_removed", summary.stationery_removed},
            {"bytes_before", summary.original_bytes},
            {"bytes_after", summary.compressed_bytes},
            {"bytes_saved", summary.original_bytes - summary.compressed_bytes},
            {"percent_saved", SavedPercent(summary.original_bytes, summary.compressed_bytes)},
            {"elapsed_ms", elapsed_ms},
            {"folders", folders}};
}

}  // namespace trevix::cli
