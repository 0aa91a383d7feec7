// Bytes of a file or of memory, in order, with a bound that cannot be passed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <future>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/blob.h"
#include "platform/helper_thread.h"
#include "platform/result.h"

namespace trevix::recordset {

class ByteReader {
 public:
    explicit ByteReader(std::string_view bytes);

    // Reads `size` bytes from the descriptor, which stays the caller's.
    ByteReader(int descriptor, std::uint64_t size);

    // Reads `content`, which outlives the reader and is nobody else's until then: the next piece of
    // a large one is read by another thread while the last one is used.
    explicit ByteReader(const Blob& content);

    ByteReader(const ByteReader&) = delete;
    ByteReader& operator=(const ByteReader&) = delete;

    // Makes the next `count` bytes readable at data(); false when there are not so many, or when
    // reading failed.
    bool Require(std::size_t count) {
        return static_cast<std::size_t>(end_ - at_) >= count || Refill(count);
    }
    const std::uint8_t* data() const { return at_; }

    // Passes bytes that were required.
    void Skip(std::size_t count) { at_ += count; }

    // Reads a little-endian number (the byte order of the files).
    template <typename T>
    bool Read(T& value) {
        if (!Require(sizeof value)) return false;
        value = 0;
        for (std::size_t i = sizeof value; i > 0; --i) {
            value = static_cast<T>(value << 8 | at_[i - 1]);
        }
        Skip(sizeof value);
        return true;
    }
    bool Read(std::uint8_t& value) {
        if (!Require(1)) return false;
        value = *at_++;
        return true;
    }

    std::uint64_t offset() const { return end_offset_ - static_cast<std::uint64_t>(end_ - at_); }
    std::uint64_t remaining() const { return size_ - offset(); }

    // What reading failed with, if it did.
    const std::optional<Error>& failure() const { return failure_; }

 private:
    bool Refill(std::size_t count);
    bool ReadMore();
    std::size_t ReadDescriptor(std::size_t most);
    std::size_t ReadBlob(std::size_t most);
    std::size_t ReadAhead(std::uint8_t* target, std::size_t most);
    void StartPiece();

    int descriptor_ = -1;
    const Blob* blob_ = nullptr;
    std::uint64_t size_ = 0;
    std::uint64_t end_offset_ = 0;  // of end_
    std::optional<Error> failure_;
    std::vector<std::uint8_t> buffer_;
    std::size_t filled_ = 0;
    const std::uint8_t* at_ = nullptr;
    const std::uint8_t* end_ = nullptr;

    // Of a large blob: the piece in use, from `piece_at_` on, and the one that is being read.
    std::vector<std::uint8_t> piece_;
    std::size_t piece_at_ = 0;
    std::vector<std::uint8_t> next_piece_;
    std::uint64_t next_offset_ = 0;
    std::future<Status> next_read_;
    HelperThread helper_;  // goes first, and with it the job
};

}  // namespace trevix::recordset
