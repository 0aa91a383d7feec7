// Reads a Blob line by line in constant memory. Only a line feed ends a line.
#pragma once

#include <string>
#include <string_view>

#include "platform/blob.h"

namespace trevix::mime {

class LineScanner {
 public:
    // A line's first bytes are kept up to this length; no boundary or field name is longer.
    static constexpr std::size_t kHeadMax = 1024;

    struct Line {
        std::uint64_t begin = 0;
        std::uint64_t end = 0;      // behind the line feed, or the end of the input
        std::string_view head;      // valid until the next call
        bool head_is_whole = true;  // the head is the whole line
    };

    explicit LineScanner(const Blob& blob) : blob_(blob), size_(blob.size_bytes()) {}

    // False at the end of the input.
    Result<bool> Next(Line* line);

    // The next line, this one included, that begins with "--".
    Result<bool> NextDashed(Line* line);

    // Length of the line end (0, 1 or 2) directly before `offset`, which was read before.
    Result<std::size_t> NewlineBefore(std::uint64_t offset) const;

 private:
    Status Fill(std::uint64_t offset);
    bool Holds(std::uint64_t offset) const {
        return offset >= buffer_begin_ && offset < buffer_begin_ + buffer_.size();
    }
    std::uint64_t buffer_end() const { return buffer_begin_ + buffer_.size(); }

    // Moves behind the next line feed at or after `from`, or to the end of the input.
    Status SkipLine(std::uint64_t from);

    const Blob& blob_;
    std::uint64_t size_;
    std::uint64_t position_ = 0;  // always a line start
    std::string buffer_;
    std::uint64_t buffer_begin_ = 0;
    std::string long_head_;
};

}  // namespace trevix::mime
