#include "platform/recordset/row_store.h"

#include <bit>
#include <cstring>

namespace trevix::recordset {
namespace {

constexpr std::size_t kChunkBytes = 65536;

}  // namespace

RowStore::RowStore(std::size_t row_bytes) : row_bytes_(row_bytes) {
    while (chunk_shift_ < 12 && (row_bytes << (chunk_shift_ + 1)) <= kChunkBytes)
        ++chunk_shift_;
    chunk_mask_ = (std::size_t{1} << chunk_shift_) - 1;
}

RowId RowStore::Append(const std::uint8_t* image) {
    if ((size_ & chunk_mask_) == 0) {
        const std::size_t bytes = (chunk_mask_ + 1) * row_bytes_;
        chunks_.push_back(std::make_unique_for_overwrite<std::uint8_t[]>(bytes));
    }
    if (size_ % 64 == 0) live_.push_back(0);
    const auto row = static_cast<RowId>(size_++);
    std::memcpy(Place(row), image, row_bytes_);
    live_[row / 64] |= std::uint64_t{1} << (row % 64);
    if (live_count_++ == 0) first_ = row;
    last_ = row;
    return row;
}

void RowStore::Remove(RowId row) {
    live_[row / 64] &= ~(std::uint64_t{1} << (row % 64));
    --live_count_;
    if (live_count_ == 0) return;
    if (row == first_) first_ = NextLive(std::size_t{row} + 1);
    if (row != last_) return;
    std::size_t word = row / 64;
    while (live_[word] == 0)
        --word;
    last_ =
        static_cast<RowId>(word * 64 + 63 - static_cast<unsigned>(std::countl_zero(live_[word])));
}

RowId RowStore::NextLive(std::size_t from) const {
    if (from >= size_) return kNoRow;
    std::size_t word = from / 64;
    std::uint64_t bits = live_[word] & (~std::uint64_t{0} << (from % 64));
    while (bits == 0) {
        if (++word == live_.size()) return kNoRow;
        bits = live_[word];
    }
    return static_cast<RowId>(word * 64 + static_cast<unsigned>(std::countr_zero(bits)));
}

}  // namespace trevix::recordset
