// The columns and rows of an open record set, without cursor, filter or index.
//
// A row image is one byte of state, a map of Null cells, and the cells at their columns' offsets.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/recordset/column.h"
#include "platform/recordset/row_store.h"
#include "platform/recordset/string_pool.h"

namespace trevix::recordset {

// What a row is to the server that it never came from. A row that was added stays pending; a row
// that a file holds as unchanged keeps its first values when it is changed or deleted.
enum class RowState : std::uint8_t { kPending, kUnchanged, kChanged };

using RowImage = std::vector<std::uint8_t>;
using ColumnMap = std::vector<std::uint8_t>;

// The part of a file before the rows, kept as read.
struct FileHead {
    std::string bytes;
    std::size_t row_count_offset = 0;
};

class Table {
 public:
    Table(std::vector<Column> columns, FileHead head);

    const std::vector<Column>& columns() const { return columns_; }
    const FileHead& head() const { return head_; }
    StringPool& pool() { return pool_; }
    const StringPool& pool() const { return pool_; }
    const RowStore& rows() const { return rows_; }

    // A pending row: Null where a column may be Null, else 0, the empty text, the zero date.
    const RowImage& default_row() const { return default_row_; }

    // Gives text columns the limits that the text columns of the same names have.
    void LimitTexts(const std::vector<Column>& appended);

    // Adding and changing. ReplaceRow keeps the first values of an unchanged row.
    RowId AddRow(const RowImage& image) { return rows_.Append(image.data()); }
    void ReplaceRow(RowId row, const RowImage& image, const ColumnMap& touched);
    void RemoveRow(RowId row);

    // As read from a file.
    void AddChangedRow(const RowImage& first, const RowImage& image, const ColumnMap& touched);
    void AddDeletedRow(const RowImage& first) { deleted_.Append(first.data()); }

    // Of a row in state kChanged: its first values, and the columns that were assigned since.
    struct Change {
        RowImage first;
        ColumnMap touched;
    };
    const Change& ChangeOf(RowId row) const { return changes_.at(row); }

    // The first values of deleted rows that a file held, in the order of their deletion.
    const RowStore& deleted() const { return deleted_; }

    // True when so much is unused that a new arrangement pays.
    bool ShouldCompact() const;

    // Gives the live rows new numbers, in order, and frees unused texts. Returns the new number of
    // `row`, or of the first live row after it; kNoRow when there is none.
    RowId Compact(RowId row);

    // Tells the table that texts of an image may have fallen out of use.
    void CountGarbage(std::size_t texts) { garbage_texts_ += texts; }

    static RowState State(const std::uint8_t* image) { return static_cast<RowState>(image[0]); }
    static void SetState(std::uint8_t* image, RowState state) {
        image[0] = static_cast<std::uint8_t>(state);
    }
    static bool IsNull(const std::uint8_t* image, std::size_t column) {
        return (image[1 + column / 8] >> (column % 8) & 1) != 0;
    }
    static void SetNull(std::uint8_t* image, std::size_t column, bool null) {
        std::uint8_t& byte = image[1 + column / 8];
        const auto bit = static_cast<std::uint8_t>(1U << (column % 8));
        byte = static_cast<std::uint8_t>(null ? byte | bit : byte & ~bit);
    }
    template <typename T>
    static T Load(const std::uint8_t* image, const Column& column) {
        T value;
        std::memcpy(&value, image + column.offset, sizeof value);
        return value;
    }
    template <typename T>
    static void Store(std::uint8_t* image, const Column& column, T value) {
        std::memcpy(image + column.offset, &value, sizeof value);
    }
    // Makes the cell Null, or zero in a column that is never Null.
    void Clear(std::uint8_t* image, std::size_t column) const;

    std::string_view Text(const std::uint8_t* image, const Column& column) const {
        return pool_.View(Load<TextId>(image, column));
    }

 private:
    void MarkTexts(const std::uint8_t* image, std::vector<bool>& used) const;

    std::vector<Column> columns_;
    FileHead head_;
    std::size_t text_columns_ = 0;
    RowImage default_row_;
    StringPool pool_;
    RowStore rows_;
    RowStore deleted_;
    std::unordered_map<RowId, Change> changes_;
    std::size_t garbage_texts_ = 0;
};

}  // namespace trevix::recordset
