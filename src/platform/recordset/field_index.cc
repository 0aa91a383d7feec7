#include "platform/recordset/field_index.h"

#include <algorithm>

namespace trevix::recordset {
FieldIndex::FieldIndex(const Table& table, std::size_t column) : table_(table), column_(column) {
    const RowStore& rows = table_.rows();
    for (RowId row = rows.FirstLive(); row != kNoRow; row = rows.NextLive(std::size_t{row} + 1)) {
        Insert(row);
    }
}

// The slot that holds the value of `key`, else the free one where it would go.
std::size_t FieldIndex::FindSlot(const CellKey& key) const {
    return slots_.Find(key.hash, [&](std::uint32_t number) {
        const Value& value = values_[number];
        return value.hash == key.hash && KeysEqual(KeyOfRow(value.chain.first), key);
    });
}

// The slot of the value whose chain begins or ends with `row`, which is in the index.
std::size_t FieldIndex::FindSlotOfEnd(std::uint32_t hash, RowId row) const {
    return slots_.Find(hash, [&](std::uint32_t number) {
        const Chain& chain = values_[number].chain;
        return chain.first == row || chain.last == row;
    });
}

void FieldIndex::Insert(RowId row) {
    links_.GrowTo(std::size_t{row} + 1);
    links_[row] = Link();
    const CellKey key = KeyOfRow(row);
    if (key.kind == CellKey::Kind::kNone) return;
    const std::size_t slot = FindSlot(key);
    if (slots_.IsFree(slot)) {
        AddValue(key.hash, row);
        return;
    }
    Chain& chain = values_[slots_.NumberAt(slot)].chain;
    // A row that was changed to this value may belong in the middle. It is put there when the
    // value is asked for next, so that a run of such changes is sorted once.
    if (row < chain.last) unordered_values_.insert(slots_.NumberAt(slot));
    links_[row].previous = chain.last;
    links_[chain.last].next = row;
    chain.last = row;
    ++chain.count;
}

void FieldIndex::Remove(RowId row) {
    const CellKey key = KeyOfRow(row);
    if (key.kind == CellKey::Kind::kNone) return;
    const Link link = links_[row];
    const std::size_t slot = link.previous == kNoRow || link.next == kNoRow
                                 ? FindSlotOfEnd(key.hash, row)
                                 : FindSlot(key);
    Chain& chain = values_[slots_.NumberAt(slot)].chain;
    if (link.previous != kNoRow) links_[link.previous].next = link.next;
    if (link.next != kNoRow) links_[link.next].previous = link.previous;
    if (chain.first == row) chain.first = link.next;
    if (chain.last == row) chain.last = link.previous;
    if (--chain.count == 0) RemoveValue(slot);
    links_[row] = Link();
}

FieldIndex::Chain FieldIndex::Lookup(const CellKey& key) {
    const std::size_t slot = FindSlot(key);
    if (slots_.IsFree(slot)) return {};
    const std::uint32_t number = slots_.NumberAt(slot);
    Chain& chain = values_[number].chain;
    if (!unordered_values_.empty() && unordered_values_.erase(number) > 0) PutInOrder(chain);
    return chain;
}

void FieldIndex::AddValue(std::uint32_t hash, RowId row) {
    Value value;
    value.hash = hash;
    value.chain = Chain{row, row, 1};
    auto number = static_cast<std::uint32_t>(values_.size());
    if (freed_values_.empty()) {
        values_.PushBack(value);
    } else {
        number = freed_values_.back();
        freed_values_.pop_back();
        values_[number] = value;
    }
    if (slots_.IsFull()) {
        GrowSlots();
    } else {
        slots_.Place(hash, number);
    }
}

void FieldIndex::RemoveValue(std::size_t slot) {
    const std::uint32_t number = slots_.NumberAt(slot);
    slots_.Remove(slot, [this](std::uint32_t other) { return values_[other].hash; });
    unordered_values_.erase(number);
    freed_values_.push_back(number);
}

void FieldIndex::GrowSlots() {
    slots_ = SlotTable(slots_.slot_count() * 2);
    for (std::uint32_t number = 0; number < values_.size(); ++number) {
        if (values_[number].chain.count > 0) slots_.Place(values_[number].hash, number);
    }
}

void FieldIndex::PutInOrder(Chain& chain) {
    std::vector<RowId> rows;
    rows.reserve(chain.count);
    for (RowId row = chain.first; row != kNoRow; row = links_[row].next)
        rows.push_back(row);
    std::sort(rows.begin(), rows.end());
    RowId previous = kNoRow;
    for (const RowId row : rows) {
        links_[row] = Link{previous, kNoRow};
        if (previous != kNoRow) links_[previous].next = row;
        previous = row;
    }
    chain.first = rows.front();
    chain.last = rows.back();
}

}  // namespace trevix::recordset
