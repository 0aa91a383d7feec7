#include "cli/index_output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "cli/display_width.h"
#include "cli/index_columns.h"
#include "cli/index_filter.h"
#include "cli/size_and_time.h"
#include "cli/text_format.h"
#include "util/format.h"

namespace trevix::cli {
namespace {

constexpr std::size_t kFlushBytes = std::size_t{64} * 1024;

// Collects what is written, since single small writes to a stream cost more than what they say.
class Buffered {
 public:
    explicit Buffered(std::ostream& out) : out_(out) {}
    Buffered(const Buffered&) = delete;
    Buffered& operator=(const Buffered&) = delete;
    ~Buffered() { out_ << text_; }

    std::string& text() { return text_; }
    void Settle() {
        if (text_.size() < kFlushBytes) return;
        out_ << text_;
        text_.clear();
    }

 private:
    std::ostream& out_;
    std::string text_;
};

std::string IsoText(double days) {
    const CivilTime civil = CivilFromDate(Date{days});
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d", civil.year,
                  civil.month, civil.day, civil.hour, civil.minute, civil.second);
    return text.data();
}

// A cell that is not a text; empty for Null.
std::string PlainCell(const RecordSet& index, std::size_t column) {
    const auto number = index.NumberAt(static_cast<int>(column));
    if (!number) return {};
    if (kAttachColumns[column].type == FieldType::kDate) return IsoText(*number);
    return std::to_string(static_cast<std::int64_t>(*number));
}

// The columns of the table.
enum class Cell { kRow, kName, kSize, kDate, kArchive, kFolder, kFrom, kSubject };

struct TableColumn {
    Cell cell;
    const char* title;
    bool is_text;  // cut when the terminal is too narrow; all others stay whole
    std::size_t width = 0;
};

std::string DateCell(const RecordSet& index) {
    const auto received = NumberOf(index, IndexColumn::kReceived);
    const auto written = NumberOf(index, IndexColumn::kFileDate);
    if (!received && !written) return {};
    // When a message was received is told in UTC; what an archive says of a file is local already.
    const double days = received ? LocalFromUtc(Date{*received}).days : *written;
    return IsoText(days).substr(0, std::string_view("2007-10-05").size());
}

std::string CellText(const RecordSet& index, Cell cell, RowNumber row) {
    switch (cell) {
        case Cell::kRow: return std::to_string(row);
        case Cell::kName: return Printable(TextOf(index, IndexColumn::kFileName));
        case Cell::kSize: return HumanBytes(IntegerOf(index, IndexColumn::kFileSize));
        case Cell::kDate: return DateCell(index);
        case Cell::kArchive: return Printable(TextOf(index, IndexColumn::kZipFile));
        case Cell::kFolder: return Printable(FolderText(TextOf(index, IndexColumn::kFolder)));
        case Cell::kFrom: return Printable(TextOf(index, IndexColumn::kFrom));
        case Cell::kSubject: return Printable(TextOf(index, IndexColumn::kSubject));
    }
    return {};
}

// Gives each text column its fair share of `room`: whoever needs less leaves the rest to others.
void ShareOut(std::vector<TableColumn*> wanting, std::size_t room) {
    std::sort(wanting.begin(), wanting.end(),
              [](const TableColumn* a, const TableColumn* b) { return a->width < b->width; });
    constexpr std::size_t kNarrowest = 4;
    for (std::size_t i = 0; i < wanting.size(); ++i) {
        const std::size_t share = std::max(room / (wanting.size() - i), kNarrowest);
        wanting[i]->width = std::min(wanting[i]->width, share);
        room -= std::min(room, wanting[i]->width);
    }
}

constexpr std::string_view kGap = "  ";

void FitInto(std::vector<TableColumn>& table, std::size_t columns) {
    std::size_t fixed = kGap.size() * (table.size() - 1);
    std::vector<TableColumn*> wanting;
    for (TableColumn& column : table) {
        if (column.is_text) {
            wanting.push_back(&column);
        } else {
            fixed += column.width;
        }
    }
    ShareOut(wanting, columns > fixed ? columns - fixed : 0);
}

std::vector<TableColumn> MeasuredTable(RecordSet& index, const std::vector<RowNumber>& rows) {
    std::vector<TableColumn> table = {
        {Cell::kRow, "Row", false},   {Cell::kName, "Name", true},
        {Cell::kSize, "Size", false}, {Cell::kDate, "Date", false},
        {Cell::kArchive, "In", true}, {Cell::kFolder, "Folder", true},
        {Cell::kFrom, "From", true},  {Cell::kSubject, "Subject", true}};
    ForEachRow(index, rows, [&](RowNumber row) {
        for (TableColumn& column : table) {
            column.width =
                std::max(column.width, DisplayColumns(CellText(index, column.cell, row)));
        }
    });
    // Nothing found lies in an archive.
    std::erase_if(table, [](const TableColumn& column) {
        return column.cell == Cell::kArchive && column.width == 0;
    });
    for (TableColumn& column : table) {
        column.width = std::max(column.width, DisplayColumns(column.title));
    }
    return table;
}

template <typename TextOfColumn>
void AppendLine(std::string& out, const std::vector<TableColumn>& table, std::size_t columns,
                const TextOfColumn& text_of) {
    std::string line;
    for (const TableColumn& column : table) {
        if (!line.empty()) line += kGap;
        const std::string text = Shortened(text_of(column), column.width);
        const bool to_the_right = column.cell == Cell::kRow || column.cell == Cell::kSize;
        line += to_the_right ? PadLeft(text, column.width) : PadRight(text, column.width);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    // A terminal that is too narrow even for what cannot be cut.
    out += columns == 0 ? line : Shortened(line, columns);
    out += '\n';
}

void AppendCsvText(std::string& out, std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos) {
        out += text;
        return;
    }
    out += '"';
    for (const char c : text) {
        if (c == '"') out += '"';
        out += c;
    }
    out += '"';
}

// Control characters are escaped also where JSON would take them, for the sake of terminals.
void AppendJsonText(std::string& out, std::string_view text) {
    out += '"';
    for (std::size_t at = 0; at < text.size(); ++at) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const bool is_high_control =
            byte == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0;
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += text[at];
        } else if (byte < 0x20 || byte == 0x7F || is_high_control) {
            const unsigned code = is_high_control ? static_cast<unsigned char>(text[++at]) : byte;
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", code);
            out += escape.data();
        } else {
            out += text[at];
        }
    }
    out += '"';
}

}  // namespace

void ForEachRow(RecordSet& index, const std::function<void(RowNumber)>& visit) {
    // Moving fails only where there is nothing to move to.
    if (index.RecordCount() == 0 || !index.MoveFirst().ok()) return;
    for (RowNumber row = 1; !index.Eof(); ++row) {
        visit(row);
        if (!index.MoveNext().ok()) return;
    }
}

void ForEachRow(RecordSet& index, const std::vector<RowNumber>& rows,
                const std::function<void(RowNumber)>& visit) {
    if (rows.empty() || index.RecordCount() == 0 || !index.MoveFirst().ok()) return;
    RowNumber row = 1;
    for (const RowNumber wanted : rows) {
        for (; row < wanted; ++row) {
            if (!index.MoveNext().ok()) return;
        }
        if (index.Eof()) return;
        visit(row);
    }
}

void WriteTable(RecordSet& index, const std::vector<RowNumber>& rows, std::size_t columns,
                std::ostream& out) {
    if (rows.empty()) return;
    std::vector<TableColumn> table = MeasuredTable(index, rows);
    if (columns > 0) FitInto(table, columns);
    Buffered buffer(out);
    AppendLine(buffer.text(), table, columns,
               [](const TableColumn& column) { return column.title; });
    ForEachRow(index, rows, [&](RowNumber row) {
        AppendLine(buffer.text(), table, columns,
                   [&](const TableColumn& column) { return CellText(index, column.cell, row); });
        buffer.Settle();
    });
}

void WriteCsv(RecordSet& index, const std::vector<RowNumber>& rows, bool for_terminal,
              std::ostream& out) {
    Buffered buffer(out);
    buffer.text() = "Row";
    for (const AttachColumn& column : kAttachColumns) {
        buffer.text() += std::string(",") + column.name;
    }
    buffer.text() += "\r\n";
    ForEachRow(index, rows, [&](RowNumber row) {
        std::string& text = buffer.text();
        text += std::to_string(row);
        for (std::size_t i = 0; i < kAttachColumns.size(); ++i) {
            text += ',';
            if (kAttachColumns[i].type == FieldType::kBstr) {
                const std::string_view cell = index.TextAt(static_cast<int>(i));
                AppendCsvText(text, for_terminal ? Printable(cell) : std::string(cell));
            } else {
                text += PlainCell(index, i);
            }
        }
        text += "\r\n";
        buffer.Settle();
    });
}

void WriteJson(RecordSet& index, const std::vector<RowNumber>& rows, std::ostream& out) {
    Buffered buffer(out);
    ForEachRow(index, rows, [&](RowNumber row) {
        std::string& text = buffer.text();
        text += R"({"event":"row","Row":)" + std::to_string(row);
        for (std::size_t i = 0; i < kAttachColumns.size(); ++i) {
            text += std::string(",\"") + kAttachColumns[i].name + "\":";
            if (kAttachColumns[i].type == FieldType::kBstr) {
                AppendJsonText(text, index.TextAt(static_cast<int>(i)));
                continue;
            }
            const std::string cell = PlainCell(index, i);
            if (cell.empty()) {
                text += "null";
            } else if (kAttachColumns[i].type == FieldType::kDate) {
                text += '"' + cell + '"';
            } else {
                text += cell;
            }
        }
        text += "}\n";
        buffer.Settle();
    });
}

}  // namespace trevix::cli
