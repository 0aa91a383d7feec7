#include "platform/recordset/records.h"

#include <utility>

#include "platform/recordset/adtg_format.h"

namespace trevix::recordset {

Records::Records(std::vector<Column> columns, FileHead head)
    : table_(std::move(columns), std::move(head)) {}

RowId Records::Add(const RowImage& image) {
    const RowId row = table_.AddRow(image);
    for (const auto& index : indexes_)
        index->Insert(row);
    return row;
}

void Records::Replace(RowId row, const RowImage& image, const ColumnMap& touched) {
    for (const auto& index : indexes_) {
        if (MapBit(touched.data(), index->column())) index->Remove(row);
    }
    table_.ReplaceRow(row, image, touched);
    for (const auto& index : indexes_) {
        if (MapBit(touched.data(), index->column())) index->Insert(row);
    }
}

void Records::Remove(RowId row) {
    for (const auto& index : indexes_)
        index->Remove(row);
    table_.RemoveRow(row);
}

bool Records::Meets(RowId row, const std::vector<Condition>& conditions) const {
    for (const Condition& condition : conditions) {
        if (!condition.IsMetBy(table_, table_.rows().At(row))) return false;
    }
    return true;
}

RowId Records::FindFrom(RowId from, const Condition& condition) {
    if (condition.IsEquality()) return FindEqual(from, condition);
    const RowStore& rows = table_.rows();
    RowId row = rows.NextLive(from);
    while (row != kNoRow && !condition.IsMetBy(table_, rows.At(row))) {
        row = rows.NextLive(std::size_t{row} + 1);
    }
    return row;
}

// Follows the chain of the value from its first row, and looks at the rows from `from` on at the
// same pace: a search from the start ends at once by the chain, and searching on from each match
// costs no more than one walk through the set.
RowId Records::FindEqual(RowId from, const Condition& condition) {
    FieldIndex& index = IndexOf(condition.column);
    const FieldIndex::Chain chain = index.Lookup(condition.Key());
    if (chain.count == 0 || chain.last < from) return kNoRow;
    const RowStore& rows = table_.rows();
    RowId scanned = rows.NextLive(from);
    for (RowId row = chain.first; row < from; row = index.Next(row)) {
        if (scanned == kNoRow || condition.IsMetBy(table_, rows.At(scanned))) return scanned;
        scanned = rows.NextLive(std::size_t{scanned} + 1);
        if (index.Next(row) >= from) return index.Next(row);
    }
    return chain.first;
}

std::vector<RowId> Records::Select(const std::vector<Condition>& conditions) {
    FieldIndex* best = nullptr;
    FieldIndex::Chain chain;
    for (const Condition& condition : conditions) {
        if (!condition.IsEquality()) continue;
        FieldIndex& index = IndexOf(condition.column);
        const FieldIndex::Chain candidate = index.Lookup(condition.Key());
        if (best != nullptr && candidate.count >= chain.count) continue;
        best = &index;
        chain = candidate;
    }
    if (best == nullptr) return SelectByScan(conditions);
    std::vector<RowId> selected;
    for (RowId row = chain.first; row != kNoRow; row = best->Next(row)) {
        if (Meets(row, conditions)) selected.push_back(row);
    }
    return selected;
}

std::vector<RowId> Records::SelectByScan(const std::vector<Condition>& conditions) const {
    std::vector<RowId> selected;
    const RowStore& rows = table_.rows();
    for (RowId row = rows.FirstLive(); row != kNoRow; row = rows.NextLive(std::size_t{row} + 1)) {
        if (Meets(row, conditions)) selected.push_back(row);
    }
    return selected;
}

RowId Records::Compact(RowId row) {
    indexes_.clear();
    return table_.Compact(row);
}

FieldIndex& Records::IndexOf(std::size_t column) {
    for (const auto& index : indexes_) {
        if (index->column() == column) return *index;
    }
    indexes_.push_back(std::make_unique<FieldIndex>(table_, column));
    return *indexes_.back();
}

}  // namespace trevix::recordset
