// From hashes to the numbers of what was hashed: open addressing over a power of two of slots.
//
// A large record set has millions of slots, most of them asked for something that is not there. So
// a slot is five bytes: a number, and beside it in an array of its own eight bits of the hash,
// which answer most questions by themselves. The whole hash is the owner's, who is asked for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace trevix::recordset {

class SlotTable {
 public:
    explicit SlotTable(std::size_t slot_count = 64) : tags_(slot_count), numbers_(slot_count) {}

    // The slot of the number with that hash for which `is_it(number)` holds, else the free slot
    // where it would go.
    template <typename IsIt>
    std::size_t Find(std::uint32_t hash, const IsIt& is_it) const {
        const std::uint8_t tag = TagOf(hash);
        std::size_t at = hash & Mask();
        for (; tags_[at] != kFree; at = (at + 1) & Mask()) {
            if (tags_[at] == tag && is_it(numbers_[at])) break;
        }
        return at;
    }

    bool IsFree(std::size_t slot) const { return tags_[slot] == kFree; }
    std::uint32_t NumberAt(std::size_t slot) const { return numbers_[slot]; }

    // Whether one number more needs a larger table. The owner makes one of twice the size and
    // places all numbers anew, since it knows their hashes in an order that is quick to read.
    bool IsFull() const { return (used_ + 1) * 4 > tags_.size() * 3; }
    std::size_t slot_count() const { return tags_.size(); }

    void Place(std::uint32_t hash, std::uint32_t number) {
        std::size_t at = hash & Mask();
        while (tags_[at] != kFree)
            at = (at + 1) & Mask();
        tags_[at] = TagOf(hash);
        numbers_[at] = number;
        ++used_;
    }

    // Closes the gap, so that a search still ends at the first free slot.
    template <typename HashOf>
    void Remove(std::size_t slot, const HashOf& hash_of) {
        std::size_t gap = slot;
        for (std::size_t at = (gap + 1) & Mask(); tags_[at] != kFree; at = (at + 1) & Mask()) {
            const std::size_t home = hash_of(numbers_[at]) & Mask();
            if (((at - home) & Mask()) < ((at - gap) & Mask())) continue;
            tags_[gap] = tags_[at];
            numbers_[gap] = numbers_[at];
            gap = at;
        }
        tags_[gap] = kFree;
        --used_;
    }

 private:
    static constexpr std::uint8_t kFree = 0;

    // The place comes from the low bits, so the tag takes the high ones; never that of a free slot.
    static std::uint8_t TagOf(std::uint32_t hash) {
        const auto bits = static_cast<std::uint8_t>(hash >> 24);
        return bits == kFree ? std::uint8_t{1} : bits;
    }
    std::size_t Mask() const { return tags_.size() - 1; }

    std::vector<std::uint8_t> tags_;
    std::vector<std::uint32_t> numbers_;
    std::size_t used_ = 0;
};

}  // namespace trevix::recordset
