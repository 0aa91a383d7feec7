#include "platform/mime/line_scanner.h"

namespace trevix::mime {
namespace {

// Most messages end within the first piece, and of the others only the header may be wanted.
constexpr std::size_t kFirstBytes = std::size_t{16} * 1024;
constexpr std::size_t kMoreBytes = std::size_t{256} * 1024;

}  // namespace

Status LineScanner::Fill(std::uint64_t offset) {
    const std::size_t want = offset == 0 && buffer_.empty() ? kFirstBytes : kMoreBytes;
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(want, size_ - offset));
    buffer_.resize(count);
    buffer_begin_ = offset;
    Status read = blob_.ReadAt(offset, buffer_.data(), count);
    if (!read.ok()) buffer_.clear();
    return read;
}

Status LineScanner::SkipLine(std::uint64_t from) {
    while (from < size_) {
        if (!Holds(from)) TREVIX_RETURN_IF_ERROR(Fill(from));
        const auto inside = static_cast<std::size_t>(from - buffer_begin_);
        const std::size_t found = buffer_.find('\n', inside);
        if (found != std::string::npos) {
            position_ = buffer_begin_ + found + 1;
            return {};
        }
        from = buffer_end();
    }
    position_ = size_;
    return {};
}

Result<bool> LineScanner::Next(Line* line) {
    if (position_ >= size_) return false;
    if (!Holds(position_)) TREVIX_RETURN_IF_ERROR(Fill(position_));
    auto inside = static_cast<std::size_t>(position_ - buffer_begin_);
    std::size_t found = buffer_.find('\n', inside);
    if (found == std::string::npos && buffer_end() < size_) {
        TREVIX_RETURN_IF_ERROR(Fill(position_));
        inside = 0;
        found = buffer_.find('\n');
    }
    line->begin = position_;
    if (found != std::string::npos || buffer_end() >= size_) {
        const std::size_t stop = found != std::string::npos ? found + 1 : buffer_.size();
        line->head = std::string_view(buffer_).substr(inside, stop - inside).substr(0, kHeadMax);
        position_ = buffer_begin_ + stop;
    } else {
        long_head_ = buffer_.substr(inside, kHeadMax);
        line->head = long_head_;
        TREVIX_RETURN_IF_ERROR(SkipLine(buffer_end()));
    }
    line->end = position_;
    line->head_is_whole = line->head.size() == line->end - line->begin;
    return true;
}

Result<bool> LineScanner::NextDashed(Line* line) {
    while (position_ < size_) {
        // Two bytes must be in the buffer to tell.
        if (!Holds(position_) || (!Holds(position_ + 1) && position_ + 1 < size_)) {
            TREVIX_RETURN_IF_ERROR(Fill(position_));
        }
        const auto inside = static_cast<std::size_t>(position_ - buffer_begin_);
        if (buffer_[inside] == '-' && inside + 1 < buffer_.size() && buffer_[inside + 1] == '-') {
            return Next(line);
        }
        const void* found = std::memchr(buffer_.data() + inside, '\n', buffer_.size() - inside);
        if (found == nullptr) {
            TREVIX_RETURN_IF_ERROR(SkipLine(buffer_end()));
        } else {
            position_ += static_cast<std::uint64_t>(static_cast<const char*>(found) -
                                                    (buffer_.data() + inside)) +
                         1;
        }
    }
    return false;
}

Result<std::size_t> LineScanner::NewlineBefore(std::uint64_t offset) const {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(2, offset));
    char bytes[2] = {};
    TREVIX_RETURN_IF_ERROR(blob_.ReadAt(offset - count, bytes, count));
    if (count == 0 || bytes[count - 1] != '\n') return std::size_t{0};
    return std::size_t{count == 2 && bytes[0] == '\r' ? 2U : 1U};
}

}  // namespace trevix::mime
