#include "cli/report_text.h"

#include <algorithm>

#include "cli/text_format.h"

namespace trevix::cli {
namespace {

// What stands between two marks from `at` on; `at` moves behind the second one. Empty, with `at` at
// the end, when they are not there.
std::string Between(const std::string& text, const std::string& before, const std::string& after,
                    std::size_t& at) {
    const std::size_t begin = text.find(before, at);
    if (begin == std::string::npos) {
        at = text.size();
        return {};
    }
    const std::size_t from = begin + before.size();
    const std::size_t end = std::min(text.find(after, from), text.size());
    at = std::min(end + after.size(), text.size());
    return text.substr(from, end - from);
}

// The cells of one row: what stands behind the ">" of each "<td".
std::vector<std::string> CellsOf(const std::string& row) {
    std::vector<std::string> cells;
    for (std::size_t at = 0; at < row.size();) {
        const std::string cell = Between(row, "<td", "</td>", at);
        const std::size_t end_of_tag = cell.find('>');
        if (end_of_tag != std::string::npos) cells.push_back(cell.substr(end_of_tag + 1));
    }
    return cells;
}

std::string Line(const LogRow& row, std::size_t columns) {
    constexpr std::size_t kNumber = 16;
    return PadRight(Shortened(row.folder, columns), columns) + PadLeft(row.attachments, kNumber) +
           PadLeft(row.original_bytes, kNumber) + PadLeft(row.compressed_bytes, kNumber) +
           PadLeft(row.percent, 6) + "\n";
}

}  // namespace

LogReport ParseCompressionLog(const std::string& html) {
    LogReport report;
    std::size_t at = 0;
    report.started = Between(html, "<title>Trevix Compress Attachments Log ", "</title>", at);
    at = 0;
    while (at < html.size()) {
        const std::vector<std::string> cells = CellsOf(Between(html, "<tr>", "</tr>", at));
        constexpr std::size_t kCells = 5;
        if (cells.size() != kCells) continue;
        report.rows.push_back({cells[0], cells[1], cells[2], cells[3], cells[4]});
    }
    at = html.rfind("<br>Completed ");
    if (at != std::string::npos) {
        report.completed = Between(html, "<br>Completed ", "</body>", at);
    }
    return report;
}

std::string FormatLogReport(const LogReport& report) {
    constexpr std::size_t kWidest = 40;
    std::size_t columns = 12;
    for (const LogRow& row : report.rows) {
        columns = std::clamp(Printable(row.folder).size(), columns, kWidest);
    }
    std::string text = "Compression run of " + Printable(report.started) + "\n\n" +
                       Line({"Folder", "Attachments", "Bytes before", "Bytes after", "%"}, columns);
    std::size_t idle = 0;
    for (std::size_t i = 0; i < report.rows.size(); ++i) {
        LogRow row = report.rows[i];
        const bool is_total = i + 1 == report.rows.size();
        if (!is_total && row.attachments == "0") {
            ++idle;
            continue;
        }
        for (std::string* cell : {&row.folder, &row.attachments, &row.original_bytes,
                                  &row.compressed_bytes, &row.percent}) {
            *cell = Printable(*cell);
        }
        text += Line(row, columns);
    }
    if (idle > 0) {
        text += "\n" + std::to_string(idle) + (idle == 1 ? " folder" : " folders") +
                " without anything to zip\n";
    }
    if (!report.completed.empty()) text += "\nCompleted " + Printable(report.completed) + "\n";
    return text;
}

}  // namespace trevix::cli
