// The rows of an open record set together with their indexes, which it keeps true.
#pragma once

#include <memory>
#include <vector>

#include "platform/recordset/criterion.h"
#include "platform/recordset/field_index.h"
#include "platform/recordset/table.h"

namespace trevix::recordset {

class Records {
 public:
    Records(std::vector<Column> columns, FileHead head);

    Table& table() { return table_; }
    const Table& table() const { return table_; }

    RowId Add(const RowImage& image);
    void Replace(RowId row, const RowImage& image, const ColumnMap& touched);
    void Remove(RowId row);

    bool Meets(RowId row, const std::vector<Condition>& conditions) const;

    // The first live row that is not before `from` and meets `condition`; kNoRow when none does.
    RowId FindFrom(RowId from, const Condition& condition);

    // The live rows that meet all conditions, in row order.
    std::vector<RowId> Select(const std::vector<Condition>& conditions);

    // See Table::Compact. Indexes are made anew when they are needed next.
    RowId Compact(RowId row);

 private:
    FieldIndex& IndexOf(std::size_t column);
    RowId FindEqual(RowId from, const Condition& condition);
    std::vector<RowId> SelectByScan(const std::vector<Condition>& conditions) const;

    Table table_;
    std::vector<std::unique_ptr<FieldIndex>> indexes_;
};

}  // namespace trevix::recordset
