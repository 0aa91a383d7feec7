#include "platform/blob.h"

namespace trevix {
namespace {

class MemorySource final : public Blob::Source {
 public:
    explicit MemorySource(std::string bytes) : bytes_(std::move(bytes)) {}

    std::uint64_t size_bytes() const override { return bytes_.size(); }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        std::memcpy(target, bytes_.data() + offset, count);
        return {};
    }

    const char* in_memory() const override { return bytes_.data(); }

 private:
    std::string bytes_;
};

class JoinedSource final : public Blob::Source {
 public:
    explicit JoinedSource(std::vector<Blob> pieces) : pieces_(std::move(pieces)) {
        for (const Blob& piece : pieces_) {
            starts_.push_back(size_bytes_);
            size_bytes_ += piece.size_bytes();
        }
    }

    std::uint64_t size_bytes() const override { return size_bytes_; }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        // The last piece that starts at or before the offset.
        auto at = static_cast<std::size_t>(
            std::upper_bound(starts_.begin(), starts_.end(), offset) - starts_.begin() - 1);
        while (count > 0) {
            const std::uint64_t inside = offset - starts_[at];
            const std::uint64_t left = pieces_[at].size_bytes() - inside;
            const auto take = static_cast<std::size_t>(std::min<std::uint64_t>(left, count));
            if (take > 0) TREVIX_RETURN_IF_ERROR(pieces_[at].ReadAt(inside, target, take));
            offset += take;
            target += take;
            count -= take;
            ++at;
        }
        return {};
    }

 private:
    std::vector<Blob> pieces_;
    std::vector<std::uint64_t> starts_;
    std::uint64_t size_bytes_ = 0;
};

class SlicedSource final : public Blob::Source {
 public:
    SlicedSource(Blob whole, std::uint64_t offset, std::uint64_t count)
        : whole_(std::move(whole)), offset_(offset), count_(count) {}

    std::uint64_t size_bytes() const override { return count_; }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        return whole_.ReadAt(offset_ + offset, target, count);
    }

    int descriptor(std::uint64_t* file_offset) const override {
        const int descriptor = whole_.descriptor(file_offset);
        if (descriptor >= 0) *file_offset += offset_;
        return descriptor;
    }

    const char* in_memory() const override {
        const char* const whole = whole_.in_memory();
        return whole == nullptr ? nullptr : whole + offset_;
    }

 private:
    Blob whole_;
    std::uint64_t offset_;
    std::uint64_t count_;
};

}  // namespace

Blob Blob::FromString(std::string bytes) {
    return Blob(std::make_shared<MemorySource>(std::move(bytes)));
}

Blob Blob::Join(std::vector<Blob> pieces) {
    return Blob(std::make_shared<JoinedSource>(std::move(pieces)));
}

Blob Blob::Slice(std::uint64_t offset, std::uint64_t count) const {
    const std::uint64_t size = size_bytes();
    const std::uint64_t start = std::min(offset, size);
    return Blob(std::make_shared<SlicedSource>(*this, start, std::min(count, size - start)));
}

Status Blob::ReadAt(std::uint64_t offset, char* target, std::size_t count) const {
    if (count == 0) return {};
    const std::uint64_t size = size_bytes();
    if (offset > size || count > size - offset) return RuntimeError(kSubscriptOutOfRange);
    return source_->ReadAt(offset, target, count);
}

Result<std::string> Blob::ToString() const {
    std::string bytes(static_cast<std::size_t>(size_bytes()), '\0');
    TREVIX_RETURN_IF_ERROR(ReadAt(0, bytes.data(), bytes.size()));
    return bytes;
}

}  // namespace trevix
