#include "platform/recordset/field_index.h"

#include <algorithm>

namespace trevix::recordset {
namespace {

constexpr std::size_t kFirstSlots = 64;

}  // namespace

FieldIndex::FieldIndex(const Table& table, std::size_t column)
    : table_(table), column_(column), slots_(kFirstSlots) {
    const RowStore& rows = table_.rows();
    for (RowId row = rows.FirstLive(); row != kNoRow; row = rows.NextLive(std::size_t{row} + 1)) {
        Insert(row);
    }
}

// The slot that holds the value of `key`, else the free one where it would go.
std::size_t FieldIndex::FindSlot(const CellKey& key) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = key.hash & mask;
    for (; slots_[at].value != kNoValue; at = (at + 1) & mask) {
        if (slots_[at].hash != key.hash) continue;
        if (KeysEqual(KeyOfRow(values_[slots_[at].value].chain.first), key)) break;
    }
    return at;
}

// The slot of the value whose chain begins or ends with `row`, which is in the index.
std::size_t FieldIndex::FindSlotOfEnd(std::uint32_t hash, RowId row) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hash & mask;
    for (;; at = (at + 1) & mask) {
        if (slots_[at].hash != hash || slots_[at].value == kNoValue) continue;
        const Chain& chain = values_[slots_[at].value].chain;
        if (chain.first == row || chain.last == row) return at;
    }
}

void FieldIndex::Insert(RowId row) {
    links_.GrowTo(std::size_t{row} + 1);
    links_[row] = Link();
    const CellKey key = KeyOfRow(row);
    if (key.kind == CellKey::Kind::kNone) return;
    const std::size_t slot = FindSlot(key);
    if (slots_[slot].value == kNoValue) {
        AddValue(key.hash, row);
        return;
    }
    Value& value = values_[slots_[slot].value];
    // A row that was changed to this value may belong in the middle. It is put there when the
    // value is asked for next, so that a run of such changes is sorted once.
    if (row < value.chain.last) value.in_order = false;
    links_[row].previous = value.chain.last;
    links_[value.chain.last].next = row;
    value.chain.last = row;
    ++value.chain.count;
}

void FieldIndex::Remove(RowId row) {
    const CellKey key = KeyOfRow(row);
    if (key.kind == CellKey::Kind::kNone) return;
    const Link link = links_[row];
    const std::size_t slot = link.previous == kNoRow || link.next == kNoRow
                                 ? FindSlotOfEnd(key.hash, row)
                                 : FindSlot(key);
    Value& value = values_[slots_[slot].value];
    if (link.previous != kNoRow) links_[link.previous].next = link.next;
    if (link.next != kNoRow) links_[link.next].previous = link.previous;
    if (value.chain.first == row) value.chain.first = link.next;
    if (value.chain.last == row) value.chain.last = link.previous;
    if (--value.chain.count == 0) RemoveValue(slot);
    links_[row] = Link();
}

FieldIndex::Chain FieldIndex::Lookup(const CellKey& key) {
    const std::size_t slot = FindSlot(key);
    if (slots_[slot].value == kNoValue) return {};
    Value& value = values_[slots_[slot].value];
    if (!value.in_order) PutInOrder(value);
    return value.chain;
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
    if ((used_slots_ + 1) * 4 > slots_.size() * 3) Rehash(slots_.size() * 2);
    Place(hash, number);
}

// Closes the gap, so that a search still ends at the first free slot.
void FieldIndex::RemoveValue(std::size_t slot) {
    freed_values_.push_back(slots_[slot].value);
    const std::size_t mask = slots_.size() - 1;
    std::size_t gap = slot;
    for (std::size_t at = (gap + 1) & mask; slots_[at].value != kNoValue; at = (at + 1) & mask) {
        const std::size_t home = slots_[at].hash & mask;
        if (((at - home) & mask) < ((at - gap) & mask)) continue;
        slots_[gap] = slots_[at];
        gap = at;
    }
    slots_[gap] = Slot();
    --used_slots_;
}

void FieldIndex::Place(std::uint32_t hash, std::uint32_t value) {
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hash & mask;
    while (slots_[at].value != kNoValue)
        at = (at + 1) & mask;
    slots_[at] = Slot{hash, value};
    ++used_slots_;
}

void FieldIndex::Rehash(std::size_t slot_count) {
    std::vector<Slot> old(slot_count);
    old.swap(slots_);
    used_slots_ = 0;
    for (const Slot& slot : old) {
        if (slot.value != kNoValue) Place(slot.hash, slot.value);
    }
}

void FieldIndex::PutInOrder(Value& value) {
    std::vector<RowId> rows;
    rows.reserve(value.chain.count);
    for (RowId row = value.chain.first; row != kNoRow; row = links_[row].next)
        rows.push_back(row);
    std::sort(rows.begin(), rows.end());
    RowId previous = kNoRow;
    for (const RowId row : rows) {
        links_[row] = Link{previous, kNoRow};
        if (previous != kNoRow) links_[previous].next = row;
        previous = row;
    }
    value.chain.first = rows.front();
    value.chain.last = rows.back();
    value.in_order = true;
}

}  // namespace trevix::recordset
