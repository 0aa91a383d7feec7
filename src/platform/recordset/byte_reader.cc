#include "platform/recordset/byte_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace trevix::recordset {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{256} * 1024;

}  // namespace

ByteReader::ByteReader(std::string_view bytes)
    : size_(bytes.size()),
      end_offset_(bytes.size()),
      at_(reinterpret_cast<const std::uint8_t*>(bytes.data())),
      end_(at_ + bytes.size()) {}

ByteReader::ByteReader(int descriptor, std::uint64_t size) : descriptor_(descriptor), size_(size) {
    buffer_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(size, kBufferBytes)));
    at_ = end_ = buffer_.data();
}

bool ByteReader::Refill(std::size_t count) {
    if (count > remaining() || descriptor_ < 0 || system_error_ != 0) return false;
    filled_ = static_cast<std::size_t>(end_ - at_);
    if (filled_ > 0) std::memmove(buffer_.data(), at_, filled_);
    at_ = buffer_.data();
    end_ = at_ + filled_;
    while (filled_ < count) {
        // Room is made only as bytes really come: the size of a sparse file promises nothing.
        if (filled_ == buffer_.size()) {
            buffer_.resize(std::min(buffer_.size() * 2, std::max(count, kBufferBytes)));
        }
        const bool more = ReadMore();
        at_ = buffer_.data();
        end_ = at_ + filled_;
        if (!more) return false;
    }
    return true;
}

bool ByteReader::ReadMore() {
    const auto left = static_cast<std::size_t>(
        std::min<std::uint64_t>(buffer_.size() - filled_, size_ - end_offset_));
    ssize_t got = 0;
    do {
        got = ::read(descriptor_, buffer_.data() + filled_, left);
    } while (got < 0 && errno == EINTR);
    if (got < 0) system_error_ = errno;
    if (got == 0) system_error_ = EIO;  // the file became shorter
    if (got <= 0) return false;
    filled_ += static_cast<std::size_t>(got);
    end_offset_ += static_cast<std::uint64_t>(got);
    return true;
}

}  // namespace trevix::recordset
