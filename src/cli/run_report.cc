#include "cli/run_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

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

std::string NumberRow(const FolderOutcome& folder, std::size_t columns) {
    return Row(Printable(folder.path), columns, FormatThousands(folder.attachments),
               HumanBytes(folder.bytes_before), HumanBytes(folder.bytes_after),
               HumanBytes(folder.bytes_before - folder.bytes_after));
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
    if (summary.messages_left > 0) {
        line += ", " + FormatThousands(summary.messages_left) + " left as they are";
    }
    if (summary.messages_failed > 0) {
        line += ", " + Counted(summary.messages_failed, "failure", "failures");
    }
    return line + ", " + HumanDuration(elapsed_ms);
}

std::string FolderTable(const std::vector<FolderOutcome>& folders) {
    constexpr std::size_t kWidest = 40;
    std::size_t columns = 12;
    FolderOutcome total{"Total"};
    for (const FolderOutcome& folder : folders) {
        if (folder.attachments == 0) continue;
        columns = std::clamp(Printable(folder.path).size(), columns, kWidest);
        total.attachments += folder.attachments;
        total.bytes_before += folder.bytes_before;
        total.bytes_after += folder.bytes_after;
    }
    if (total.attachments == 0) return {};
    std::string table = Row("Folder", columns, "Attachments", "Before", "After", "Gain");
    for (const FolderOutcome& folder : folders) {
        if (folder.attachments > 0) table += NumberRow(folder, columns);
    }
    return table + NumberRow(total, columns);
}

nlohmann::json SummaryEvent(const RunSummary& summary, const std::vector<FolderOutcome>& folders,
                            std::int64_t elapsed_ms, bool dry_run, int exit_code) {
    nlohmann::json list = nlohmann::json::array();
    for (const FolderOutcome& folder : folders) {
        list.push_back({{"path", folder.path},
                        {"attachments", folder.attachments},
                        {"bytes_before", folder.bytes_before},
                        {"bytes_after", folder.bytes_after}});
    }
    return {{"event", "summary"},
            {"exit", exit_code},
            {"dry_run", dry_run},
            {"messages_changed", summary.messages_changed},
            {"messages_failed", summary.messages_failed},
            {"messages_left", summary.messages_left},
            {"attachments_zipped", summary.attachments_zipped},
            {"stationery_removed", summary.stationery_removed},
            {"bytes_before", summary.original_bytes},
            {"bytes_after", summary.compressed_bytes},
            {"bytes_saved", summary.original_bytes - summary.compressed_bytes},
            {"percent_saved", SavedPercent(summary.original_bytes, summary.compressed_bytes)},
            {"elapsed_ms", elapsed_ms},
            {"folders", list}};
}

}  // namespace trevix::cli
