#include "platform/recordset/string_pool.h"

#include <cstring>
#include <utility>

#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

constexpr std::size_t kSmallBlock = 4096;
constexpr std::size_t kLargeBlock = 262144;

}  // namespace

StringPool::StringPool() {
    Intern({});
}

const char* StringPool::Arena::Keep(std::string_view text) {
    if (text.empty()) return "";
    if (text.size() > left) {
        // A long text gets a block of its own, so that the rest of the current one stays usable.
        const std::size_t block = blocks.size() < 16 ? kSmallBlock : kLargeBlock;
        const bool alone = text.size() > block / 4;
        const std::size_t size = alone ? text.size() : block;
        blocks.push_back(std::make_unique_for_overwrite<char[]>(size));
        if (alone) {
            std::memcpy(blocks.back().get(), text.data(), text.size());
            return blocks.back().get();
        }
        free = blocks.back().get();
        left = size;
    }
    char* const kept = free;
    std::memcpy(kept, text.data(), text.size());
    free += text.size();
    left -= text.size();
    return kept;
}

TextId StringPool::Intern(std::string_view text) {
    const std::uint32_t hash = FoldedHash(text);
    const std::size_t slot =
        slots_.Find(hash, [&](TextId id) { return entries_[id].hash == hash && View(id) == text; });
    if (!slots_.IsFree(slot)) return slots_.NumberAt(slot);
    Entry entry;
    entry.data = arena_.Keep(text);
    entry.size = static_cast<std::uint32_t>(text.size());
    entry.hash = hash;
    auto id = static_cast<TextId>(entries_.size());
    if (freed_.empty()) {
        entries_.PushBack(entry);
    } else {
        id = freed_.back();
        freed_.pop_back();
        entries_[id] = entry;
    }
    if (slots_.IsFull()) {
        GrowSlots();
    } else {
        slots_.Place(hash, id);
    }
    return id;
}

void StringPool::GrowSlots() {
    slots_ = SlotTable(slots_.slot_count() * 2);
    for (TextId id = 0; id < entries_.size(); ++id) {
        if (!IsFreed(id)) slots_.Place(entries_[id].hash, id);
    }
}

void StringPool::Sweep(const std::vector<bool>& used) {
    Arena kept;
    freed_.clear();
    slots_ = SlotTable(slots_.slot_count());
    for (TextId id = 0; id < entries_.size(); ++id) {
        if (id == kEmptyText || (id < used.size() && used[id])) {
            entries_[id].data = kept.Keep(View(id));
            slots_.Place(entries_[id].hash, id);
        } else {
            entries_[id] = Entry();
            freed_.push_back(id);
        }
    }
    arena_ = std::move(kept);
}

}  // namespace trevix::recordset
