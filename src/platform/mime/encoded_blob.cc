#include "platform/mime/encoded_blob.h"

#include <string>

#include "platform/mime/transfer_codec.h"

namespace trevix::mime {
namespace {

class EncodedSource final : public Blob::Source {
 public:
    EncodedSource(Blob plain, std::string newline)
        : plain_(std::move(plain)),
          newline_(std::move(newline)),
          stride_(kBase64LineChars + newline_.size()),
          size_bytes_(EncodedSize()) {}

    std::uint64_t size_bytes() const override { return size_bytes_; }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        const std::uint64_t plain_size = plain_.size_bytes();
        std::uint64_t line = offset / stride_;
        const std::uint64_t last_line = (offset + count - 1) / stride_;
        const std::uint64_t plain_begin = line * kBase64LineBytes;
        std::string plain(
            static_cast<std::size_t>(
                std::min<std::uint64_t>(plain_size, (last_line + 1) * kBase64LineBytes) -
                plain_begin),
            '\0');
        TREVIX_RETURN_IF_ERROR(plain_.ReadAt(plain_begin, plain.data(), plain.size()));

        std::string text(kBase64LineChars, '\0');
        text += newline_;
        auto skip = static_cast<std::size_t>(offset % stride_);
        for (std::size_t at = 0; count > 0; at += kBase64LineBytes) {
            const std::size_t take_plain = std::min(kBase64LineBytes, plain.size() - at);
            EncodeBase64(reinterpret_cast<const unsigned char*>(plain.data() + at), take_plain,
                         text.data());
            const std::size_t take = std::min(count, text.size() - skip);
            std::memcpy(target, text.data() + skip, take);
            target += take;
            count -= take;
            skip = 0;
        }
        return {};
    }

 private:
    std::uint64_t EncodedSize() const {
        const std::uint64_t plain = plain_.size_bytes();
        if (plain == 0) return 0;
        const std::uint64_t lines = (plain + kBase64LineBytes - 1) / kBase64LineBytes;
        return (plain + 2) / 3 * 4 + (lines - 1) * newline_.size();
    }

    Blob plain_;
    std::string newline_;
    std::uint64_t stride_;
    std::uint64_t size_bytes_;
};

}  // namespace

Blob EncodeBlob(const Blob& plain, const std::string& newline) {
    return Blob(std::make_shared<EncodedSource>(plain, newline));
}

}  // namespace trevix::mime
