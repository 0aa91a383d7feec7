#include "platform/recordset/byte_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/errors.h"

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

ByteReader::ByteReader(const Blob& content) : blob_(&content), size_(content.size_bytes()) {
    buffer_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(size_, kBufferBytes)));
    at_ = end_ = buffer_.data();
}

bool ByteReader::Refill(std::size_t count) {
    const bool has_source = descriptor_ >= 0 || blob_ != nullptr;
    if (count > remaining() || !has_source || failure_) return false;
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
    const auto most = static_cast<std::size_t>(
        std::min<std::uint64_t>(buffer_.size() - filled_, size_ - end_offset_));
    const std::size_t got = blob_ != nullptr ? ReadBlob(most) : ReadDescriptor(most);
    filled_ += got;
    end_offset_ += got;
    return got > 0;
}

std::size_t ByteReader::ReadDescriptor(std::size_t most) {
    ssize_t got = 0;
    do {
        got = ::read(descriptor_, buffer_.data() + filled_, most);
    } while (got < 0 && errno == EINTR);
    // At the end the file has become shorter.
    if (got <= 0) failure_ = SystemError(got < 0 ? errno : EIO, {});
    return got < 0 ? 0 : static_cast<std::size_t>(got);
}

std::size_t ByteReader::ReadBlob(std::size_t most) {
    std::uint8_t* const target = buffer_.data() + filled_;
    if (size_ > kBufferBytes) return ReadAhead(target, most);
    const Status read = blob_->ReadAt(end_offset_, reinterpret_cast<char*>(target), most);
    if (!read.ok()) failure_ = read.error();
    return read.ok() ? most : 0;
}

std::size_t ByteReader::ReadAhead(std::uint8_t* target, std::size_t most) {
    if (piece_at_ == piece_.size()) {
        if (!next_read_.valid()) StartPiece();
        const Status read = next_read_.get();
        if (!read.ok()) {
            failure_ = read.error();
            return 0;
        }
        piece_.swap(next_piece_);
        piece_at_ = 0;
        if (next_offset_ < size_) StartPiece();
    }
    const std::size_t count = std::min(most, piece_.size() - piece_at_);
    std::memcpy(target, piece_.data() + piece_at_, count);
    piece_at_ += count;
    return count;
}

void ByteReader::StartPiece() {
    const std::uint64_t offset = next_offset_;
    const auto count =
        static_cast<std::size_t>(std::min<std::uint64_t>(size_ - offset, kBufferBytes));
    next_piece_.resize(count);
    next_offset_ += count;
    next_read_ = helper_.Run([this, offset, count] {
        return blob_->ReadAt(offset, reinterpret_cast<char*>(next_piece_.data()), count);
    });
}

}  // namespace trevix::recordset
