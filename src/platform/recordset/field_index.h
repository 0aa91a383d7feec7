// A hash index over one column: from a value to the rows that hold it, in row order.
//
// The rows of one value form a chain that is linked both ways, so that adding a row and removing
// one cost the same however many rows share the value.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "platform/recordset/cell_key.h"
#include "platform/recordset/chunked_array.h"
#include "platform/recordset/slot_table.h"
#include "platform/recordset/table.h"

namespace trevix::recordset {

class FieldIndex {
 public:
    // Covers the live rows of `table`, which outlives the index. From then on the owner tells the
    // index of every row that comes, goes, or is about to be changed and has been changed.
    FieldIndex(const Table& table, std::size_t column);

    std::size_t column() const { return column_; }

    void Insert(RowId row);
    void Remove(RowId row);

    // The rows that hold a value. `count` is 0 when there is none.
    struct Chain {
        RowId first = kNoRow;
        RowId last = kNoRow;
        std::uint32_t count = 0;
    };
    Chain Lookup(const CellKey& key);
    RowId Next(RowId row) const { return links_[row].next; }

 private:
    struct Link {
        RowId previous = kNoRow;
        RowId next = kNoRow;
    };
    struct Value {
        Chain chain;  // of no rows: freed
        std::uint32_t hash = 0;
    };

    CellKey KeyOfRow(RowId row) const { return KeyOf(table_, table_.rows().At(row), column_); }
    std::size_t FindSlot(const CellKey& key) const;
    std::size_t FindSlotOfEnd(std::uint32_t hash, RowId row) const;
    void AddValue(std::uint32_t hash, RowId row);
    void RemoveValue(std::size_t slot);
    void GrowSlots();
    void PutInOrder(Chain& chain);

    const Table& table_;
    std::size_t column_;
    SlotTable slots_;  // of values_
    ChunkedArray<Value> values_;
    std::vector<std::uint32_t> freed_values_;
    std::unordered_set<std::uint32_t> unordered_values_;  // whose rows are not in order
    ChunkedArray<Link> links_;
};

}  // namespace trevix::recordset
