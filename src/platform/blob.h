// Blob: bytes of any size, held in memory or read on demand.
//
// An attachment or a message can be a gigabyte, so whoever passes bytes around passes a Blob, which
// is cheap to copy and reads only what it is asked for. A Blob never changes once made; one over a
// file keeps the file open, so it stays readable after the file was deleted.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/result.h"

namespace trevix {

class Blob {
 public:
    // Where the bytes come from. Shared among the copies of a Blob, hence immutable.
    class Source {
     public:
        Source() = default;
        Source(const Source&) = delete;
        Source& operator=(const Source&) = delete;
        virtual ~Source() = default;

        // Fixed for the life of the source.
        virtual std::uint64_t size_bytes() const = 0;

        // Copies exactly `count` bytes from `offset` to `target`; the caller keeps the range inside
        // the source. kIo when reading fails, kMalformed when the bytes cannot be produced (a part
        // whose transfer encoding is damaged); a source that has become shorter is kChanged.
        virtual Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const = 0;

        // The descriptor of an open file that holds exactly these bytes, starting at
        // *file_offset; -1 when there is none. Lets adapters copy or parse without a detour. The
        // descriptor stays owned by the source, and its file position is not to be relied on.
        virtual int descriptor(std::uint64_t* /*file_offset*/) const { return -1; }

        // All the bytes, for as long as the source lives, when they are held in memory; else null.
        virtual const char* in_memory() const { return nullptr; }
    };

    Blob() = default;
    explicit Blob(std::shared_ptr<const Source> source) : source_(std::move(source)) {}
    static Blob FromString(std::string bytes);

    // The concatenation of `pieces`, which are kept, not copied.
    static Blob Join(std::vector<Blob> pieces);

    // `count` bytes from `offset`, cut at the end of this Blob.
    Blob Slice(std::uint64_t offset, std::uint64_t count) const;

    std::uint64_t size_bytes() const { return source_ ? source_->size_bytes() : 0; }
    bool empty() const { return size_bytes() == 0; }

    // Exactly `count` bytes; kOther (error 9) when the range leaves the Blob, else as
    // Source::ReadAt.
    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const;

    // All bytes in memory. For what is known to be small.
    Result<std::string> ToString() const;

    int descriptor(std::uint64_t* file_offset) const {
        return source_ ? source_->descriptor(file_offset) : -1;
    }

    // As the source's: valid while any copy of this Blob lives.
    const char* in_memory() const { return source_ ? source_->in_memory() : nullptr; }

    // Hands the bytes to `sink` (called as sink(const char*, std::size_t), returning a Status) in
    // order, in pieces of at most 256 KiB. Ends at the first failure of either side.
    template <typename Sink>
    Status ForEachPiece(Sink&& sink) const {
        constexpr std::uint64_t kPiece = std::uint64_t{256} * 1024;
        const std::uint64_t size = size_bytes();
        const char* const held = in_memory();
        std::string buffer;
        if (held == nullptr) buffer.resize(static_cast<std::size_t>(std::min(kPiece, size)));
        for (std::uint64_t offset = 0; offset < size;) {
            const auto count = static_cast<std::size_t>(std::min(kPiece, size - offset));
            const char* bytes = held + offset;
            if (held == nullptr) {
                TREVIX_RETURN_IF_ERROR(source_->ReadAt(offset, buffer.data(), count));
                bytes = buffer.data();
            }
            TREVIX_RETURN_IF_ERROR(sink(bytes, count));
            offset += count;
        }
        return {};
    }

 private:
    std::shared_ptr<const Source> source_;
};

}  // namespace trevix
