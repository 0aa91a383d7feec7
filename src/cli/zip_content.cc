#include "cli/zip_content.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "platform/zip/archive_bytes.h"
#include "platform/zip/archive_directory.h"
#include "platform/zip/little_endian.h"
#include "zip/czip.h"

namespace trevix::cli {
namespace {

using zip_engine::Code;

constexpr std::size_t kPiece = std::size_t{128} * 1024;

Error Damaged(const std::string& why) {
    return {ErrorKind::kMalformed, 0, why};
}

class BlobBytes final : public zip_engine::ArchiveBytes {
 public:
    explicit BlobBytes(const Blob& blob) : blob_(blob) {}
    std::uint64_t size_bytes() const override { return blob_.size_bytes(); }
    Code ReadAt(std::uint64_t offset, char* target, std::size_t count) override {
        const std::uint64_t size = blob_.size_bytes();
        if (offset > size || count > size - offset) return zip_engine::kStructure;
        return blob_.ReadAt(offset, target, count).ok() ? zip_engine::kOk : zip_engine::kReadFailed;
    }

 private:
    const Blob& blob_;
};

// Unpacks in order; going back begins anew.
class EntrySource final : public Blob::Source {
 public:
    // `packed` is the entry's content as it lies in the archive.
    EntrySource(Blob packed, const zip_engine::DirectoryEntry& entry)
        : packed_(std::move(packed)),
          is_deflated_(entry.method == zip_engine::kMethodDeflated),
          size_(entry.size_bytes),
          crc_(entry.crc32) {}
    EntrySource(const EntrySource&) = delete;
    EntrySource& operator=(const EntrySource&) = delete;
    ~EntrySource() override { End(); }

    std::uint64_t size_bytes() const override { return size_; }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        if (offset < position_ || !begun_) TREVIX_RETURN_IF_ERROR(Begin());
        std::array<char, 4096> passed{};
        while (position_ < offset) {
            const auto step = std::min<std::uint64_t>(offset - position_, passed.size());
            TREVIX_RETURN_IF_ERROR(Unpack(passed.data(), static_cast<std::size_t>(step)));
        }
        return Unpack(target, count);
    }

 private:
    void End() const {
        if (begun_) ::inflateEnd(&stream_);
        begun_ = false;
    }

    Status Begin() const {
        End();
        stream_ = {};
        if (::inflateInit2(&stream_, -MAX_WBITS) != Z_OK) return Damaged("zlib cannot start");
        begun_ = true;
        position_ = 0;
        taken_ = 0;
        running_crc_ = 0;
        return {};
    }

    // Without more input zlib may still have something to give out, or says that it has not.
    Status Refill() const {
        const auto count = std::min<std::uint64_t>(kPiece, packed_.size_bytes() - taken_);
        input_.resize(static_cast<std::size_t>(count));
        TREVIX_RETURN_IF_ERROR(packed_.ReadAt(taken_, input_.data(), input_.size()));
        taken_ += count;
        stream_.next_in = reinterpret_cast<Bytef*>(input_.data());
        stream_.avail_in = static_cast<uInt>(count);
        return {};
    }

    Status Inflate(char* target, std::size_t count) const {
        while (count > 0) {
            const auto wanted = static_cast<uInt>(std::min(count, kPiece));
            stream_.next_out = reinterpret_cast<Bytef*>(target);
            stream_.avail_out = wanted;
            if (stream_.avail_in == 0) TREVIX_RETURN_IF_ERROR(Refill());
            const int outcome = ::inflate(&stream_, Z_NO_FLUSH);
            const std::size_t got = wanted - stream_.avail_out;
            target += got;
            count -= got;
            const bool goes_on = outcome == Z_OK || (outcome == Z_STREAM_END && count == 0);
            if (!goes_on) return Damaged("it cannot be inflated");
        }
        return {};
    }

    Status Unpack(char* target, std::size_t count) const {
        TREVIX_RETURN_IF_ERROR(is_deflated_ ? Inflate(target, count)
                                            : packed_.ReadAt(position_, target, count));
        position_ += count;
        running_crc_ = ::libdeflate_crc32(running_crc_, target, count);
        if (position_ == size_ && running_crc_ != crc_) return Damaged("its check sum is wrong");
        return {};
    }

    Blob packed_;
    bool is_deflated_;
    std::uint64_t size_;
    std::uint32_t crc_;
    // Where the reading stands; the bytes that come out are always the same.
    mutable z_stream stream_{};
    mutable bool begun_ = false;
    mutable std::uint64_t position_ = 0;
    mutable std::uint64_t taken_ = 0;
    mutable std::uint32_t running_crc_ = 0;
    mutable std::string input_;
};

// What the entry's content is in the archive: behind its own header.
Result<Blob> PackedContent(const Blob& archive, const zip_engine::DirectoryEntry& entry) {
    constexpr std::size_t kHeaderBytes = 30;
    constexpr std::uint32_t kSignature = 0x04034B50;
    std::array<char, kHeaderBytes> header{};
    BlobBytes bytes(archive);
    const Code code = bytes.ReadAt(entry.header_offset, header.data(), header.size());
    if (code != zip_engine::kOk) return Damaged(CZIP::GetErrorDesc(code));
    if (zip_engine::Get32(header.data()) != kSignature) return Damaged("an entry has no header");
    const std::uint64_t begin = entry.header_offset + kHeaderBytes +
                                zip_engine::Get16(header.data() + 26) +
                                zip_engine::Get16(header.data() + 28);
    const Blob packed = archive.Slice(begin, entry.compressed_bytes);
    if (packed.size_bytes() != entry.compressed_bytes) return Damaged("it ends too early");
    return packed;
}

}  // namespace

Result<Blob> OpenZipContent(const Blob& archive, const std::string& name) {
    BlobBytes bytes(archive);
    zip_engine::DirectoryPlace place;
    if (const Code code = zip_engine::FindDirectory(bytes, &place); code != zip_engine::kOk) {
        return Damaged(CZIP::GetErrorDesc(code));
    }
    zip_engine::DirectoryCursor cursor(place);
    while (!cursor.at_end()) {
        zip_engine::DirectoryEntry entry;
        if (const Code code = cursor.Next(bytes, &entry); code != zip_engine::kOk) {
            return Damaged(CZIP::GetErrorDesc(code));
        }
        if (entry.name != name) continue;
        const bool is_stored = entry.method == zip_engine::kMethodStored;
        if (entry.encrypted() || (!is_stored && entry.method != zip_engine::kMethodDeflated)) {
            return Damaged(CZIP::GetErrorDesc(zip_engine::kCannotComplete));
        }
        auto packed = PackedContent(archive, entry);
        if (!packed.ok()) return packed;
        if (is_stored && entry.size_bytes != entry.compressed_bytes) {
            return Damaged("an entry has two sizes");
        }
        return Blob(std::make_shared<EntrySource>(std::move(packed).value(), entry));
    }
    return Damaged("it holds no " + name);
}

}  // namespace trevix::cli
