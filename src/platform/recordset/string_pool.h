// Each different text (or cell of raw bytes) of a record set, stored once.
//
// Most texts of an index repeat from row to row: all rows of one message share its subject, sender
// and entry ID. A row therefore holds 32-bit numbers of texts. Texts are not counted; Sweep() frees
// those that nobody named.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/recordset/chunked_array.h"
#include "platform/recordset/slot_table.h"

namespace trevix::recordset {

using TextId = std::uint32_t;

class StringPool {
 public:
    StringPool();

    // The number of the empty text.
    static constexpr TextId kEmptyText = 0;

    TextId Intern(std::string_view text);

    // `guess` when that is the number of `text`, else Intern(text). Any number below size() may be
    // guessed, also a freed one.
    TextId Intern(std::string_view text, TextId guess) {
        return !IsFreed(guess) && View(guess) == text ? guess : Intern(text);
    }

    // Valid until the next Sweep().
    std::string_view View(TextId id) const { return {entries_[id].data, entries_[id].size}; }

    // FoldedHash(View(id)), computed once.
    std::uint32_t Hash(TextId id) const { return entries_[id].hash; }

    std::size_t size() const { return entries_.size(); }

    // Frees every text whose place in `used` is false. The others keep their numbers.
    void Sweep(const std::vector<bool>& used);

 private:
    struct Entry {
        const char* data = nullptr;  // null: freed
        std::uint32_t size = 0;
        std::uint32_t hash = 0;
    };
    struct Arena {
        std::vector<std::unique_ptr<char[]>> blocks;
        char* free = nullptr;
        std::size_t left = 0;
        const char* Keep(std::string_view text);
    };
    // A freed text looks like an empty one, but its number is given away again.
    bool IsFreed(TextId id) const { return entries_[id].data == nullptr; }
    void GrowSlots();

    ChunkedArray<Entry> entries_;
    std::vector<TextId> freed_;
    SlotTable slots_;
    Arena arena_;
};

}  // namespace trevix::recordset
