// An array that grows without moving what it holds: growing a large one costs neither a copy nor a
// moment of double memory.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace trevix::recordset {

template <typename T>
class ChunkedArray {
 public:
    std::size_t size() const { return size_; }
    T& operator[](std::size_t at) { return chunks_[at >> kShift][at & kMask]; }
    const T& operator[](std::size_t at) const { return chunks_[at >> kShift][at & kMask]; }

    void PushBack(const T& value) {
        if ((size_ & kMask) == 0) chunks_.push_back(std::make_unique<T[]>(kMask + 1));
        ++size_;
        (*this)[size_ - 1] = value;
    }

    // Makes room up to `size`; the new elements are default values.
    void GrowTo(std::size_t size) {
        while (size_ < size)
            PushBack(T());
    }

 private:
    static constexpr std::size_t kShift = 10;
    static constexpr std::size_t kMask = (std::size_t{1} << kShift) - 1;

    std::vector<std::unique_ptr<T[]>> chunks_;
    std::size_t size_ = 0;
};

}  // namespace trevix::recordset
