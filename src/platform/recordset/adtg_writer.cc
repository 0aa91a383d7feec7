#include "platform/recordset/adtg_writer.h"

#include <string>

#include "platform/recordset/adtg_format.h"
#include "platform/recordset/adtg_head.h"
#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

void PutSize(std::size_t size, std::size_t bytes, std::string& target) {
    for (std::size_t i = 0; i < bytes; ++i)
        target += static_cast<char>(size >> (8 * i) & 0xFF);
}

class RowWriter {
 public:
    RowWriter(const Table& table, ByteWriter& writer)
        : table_(table),
          writer_(writer),
          out_(writer.buffer()),
          columns_(table.columns()),
          all_(MapBytes(columns_.size())) {
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            SetMapBit(all_.data(), i);
            if (columns_[i].nullable) nullable_.push_back(i);
        }
    }

    void WriteRow(RowId row) {
        const std::uint8_t* const image = table_.rows().At(row);
        switch (Table::State(image)) {
            case RowState::kPending: WriteUpdate(kTokenInsert, image, all_); break;
            case RowState::kUnchanged: WriteOriginal(image); break;
            case RowState::kChanged: {
                const Table::Change& change = table_.ChangeOf(row);
                WriteOriginal(change.first.data());
                WriteUpdate(kTokenChange, image, change.touched);
                break;
            }
        }
        writer_.Settle();
    }

    void WriteDeleted(const std::uint8_t* first) {
        WriteOriginal(first);
        out_ += static_cast<char>(kTokenDelete);
        writer_.Settle();
    }

 private:
    // Has a map only of the columns that may be Null; its unused bits are ones.
    void WriteOriginal(const std::uint8_t* image) {
        out_ += static_cast<char>(kTokenRow);
        map_.assign(MapBytes(nullable_.size()), 0xFF);
        for (std::size_t i = 0; i < nullable_.size(); ++i) {
            if (Table::IsNull(image, nullable_[i])) ClearMapBit(map_.data(), i);
        }
        PutMap(map_);
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (!Table::IsNull(image, i)) PutCell(image, columns_[i]);
        }
    }

    // Has two maps of all columns, of cells and of Nulls; their unused bits are zeros.
    void WriteUpdate(std::uint8_t token, const std::uint8_t* image, const ColumnMap& touched) {
        out_ += static_cast<char>(token);
        map_ = touched;
        nulls_.assign(touched.size(), 0);
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (!MapBit(touched.data(), i) || !Table::IsNull(image, i)) continue;
            ClearMapBit(map_.data(), i);
            SetMapBit(nulls_.data(), i);
        }
        PutMap(map_);
        PutMap(nulls_);
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (MapBit(map_.data(), i)) PutCell(image, columns_[i]);
        }
    }

    void PutMap(const ColumnMap& map) {
        out_.append(reinterpret_cast<const char*>(map.data()), map.size());
    }

    void PutCell(const std::uint8_t* image, const Column& column) {
        if (column.kind != CellKind::kText && column.kind != CellKind::kBytes) {
            out_.append(reinterpret_cast<const char*>(image) + column.offset,
                        CellSize(column.kind));
            return;
        }
        const std::size_t prefix_bytes = column.prefix == CellPrefix::kFourBytes ? 4
                                         : column.prefix == CellPrefix::kOneByte ? 1
                                                                                 : 0;
        const std::size_t start = out_.size() + prefix_bytes;
        out_.resize(start);
        const std::string_view cell = table_.Text(image, column);
        if (column.kind == CellKind::kText) {
            AppendUtf16(cell, out_);
        } else {
            out_.append(cell);
        }
        if (prefix_bytes == 0) {
            Pad(column, start);
        } else {
            const std::size_t size = out_.size() - start;
            for (std::size_t i = 0; i < prefix_bytes; ++i) {
                out_[start - prefix_bytes + i] = static_cast<char>(size >> (8 * i) & 0xFF);
            }
        }
    }

    // A cell without a size has the whole size of its column: texts end in blanks then, and what
    // never had a value is zeros.
    void Pad(const Column& column, std::size_t start) {
        const std::size_t end = start + static_cast<std::size_t>(column.max_cell_bytes);
        const bool text = column.kind == CellKind::kText;
        while (out_.size() < end)
            out_.append(text ? " " : "\0", 1).append(text ? 1 : 0, '\0');
    }

    const Table& table_;
    ByteWriter& writer_;
    std::string& out_;
    const std::vector<Column>& columns_;
    ColumnMap all_;
    std::vector<std::size_t> nullable_;
    ColumnMap map_;
    ColumnMap nulls_;
};

std::string HeadOf(const Table& table, std::size_t row_count) {
    const auto count = static_cast<std::uint32_t>(row_count);
    if (table.head().bytes.empty()) return FabricatedHead(table.columns(), count);
    std::string head = table.head().bytes;
    std::string digits;
    PutSize(count, 4, digits);
    return head.replace(table.head().row_count_offset, digits.size(), digits);
}

}  // namespace

bool WriteAdtg(const Table& table, const std::vector<RowId>* shown, ByteWriter& writer) {
    const RowStore& rows = table.rows();
    writer.buffer() += HeadOf(table, shown == nullptr ? rows.live() : shown->size());
    RowWriter row_writer(table, writer);
    if (shown != nullptr) {
        for (const RowId row : *shown)
            row_writer.WriteRow(row);
    } else {
        for (RowId i = 0; i < table.deleted().size(); ++i) {
            row_writer.WriteDeleted(table.deleted().At(i));
        }
        for (RowId row = rows.FirstLive(); row != kNoRow && writer.system_error() == 0;
             row = rows.NextLive(std::size_t{row} + 1)) {
            row_writer.WriteRow(row);
        }
    }
    writer.buffer() += static_cast<char>(kTokenDone);
    return writer.Flush();
}

}  // namespace trevix::recordset
