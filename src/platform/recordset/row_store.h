// Rows of one fixed size, in the order in which they were added.
//
// A deleted row only loses its mark of being live: numbers of rows stay what they are until the
// owner builds a new store from the live ones. Runs of deleted rows are skipped 64 at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace trevix::recordset {

using RowId = std::uint32_t;
inline constexpr RowId kNoRow = 0xFFFFFFFF;

class RowStore {
 public:
    explicit RowStore(std::size_t row_bytes);

    RowId Append(const std::uint8_t* image);
    std::uint8_t* At(RowId row) { return Place(row); }
    const std::uint8_t* At(RowId row) const { return Place(row); }

    void Remove(RowId row);
    bool IsLive(RowId row) const { return (live_[row / 64] >> (row % 64) & 1) != 0; }

    // Rows ever added, and those of them that are live.
    std::size_t size() const { return size_; }
    std::size_t live() const { return live_count_; }

    // The first live row that is not before `from`; kNoRow when there is none.
    RowId NextLive(std::size_t from) const;
    RowId FirstLive() const { return NextLive(first_); }
    RowId LastLive() const { return live_count_ == 0 ? kNoRow : last_; }

 private:
    std::uint8_t* Place(RowId row) const {
        return chunks_[row >> chunk_shift_].get() + (row & chunk_mask_) * row_bytes_;
    }

    std::size_t row_bytes_;
    unsigned chunk_shift_ = 0;
    std::size_t chunk_mask_ = 0;
    std::vector<std::unique_ptr<std::uint8_t[]>> chunks_;
    std::vector<std::uint64_t> live_;
    std::size_t size_ = 0;
    std::size_t live_count_ = 0;
    RowId first_ = 0;  // no live row is before it
    RowId last_ = 0;   // the last live row, when there is one
};

}  // namespace trevix::recordset
