#include "platform/zip/stream_join.h"

#include <zlib.h>

#include <array>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

namespace trevix::zip_engine {
namespace {

// Both counted in bits from the start of the stream.
struct LastBlock {
    std::size_t begin = 0;  // of its header, whose first bit is the mark
    std::size_t end = 0;
};

class Inflater {
 public:
    Inflater(char* bytes, std::size_t count) {
        if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK) throw std::bad_alloc();
        stream_.next_in = reinterpret_cast<Bytef*>(bytes);
        stream_.avail_in = static_cast<uInt>(count);
    }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;
    ~Inflater() { inflateEnd(&stream_); }

    // Goes on to the end of the block at hand, or as far as the output holds.
    bool Step() {
        stream_.next_out = output_.data();
        stream_.avail_out = static_cast<uInt>(output_.size());
        const int code = inflate(&stream_, Z_BLOCK);
        return code == Z_OK || code == Z_BUF_ERROR;
    }
    bool made_progress() const { return stream_.avail_out != output_.size() || is_at_end(); }

    // What zlib tells of the block in its data type.
    bool is_at_end() const { return (stream_.data_type & 128) != 0; }
    bool is_last() const { return (stream_.data_type & 64) != 0; }
    std::size_t position() const {
        return std::size_t{stream_.total_in} * 8 - static_cast<std::size_t>(stream_.data_type & 7);
    }

 private:
    z_stream stream_{};
    std::vector<Bytef> output_ = std::vector<Bytef>(std::size_t{64} * 1024);
};

bool FindLastBlock(char* bytes, std::size_t count, LastBlock* last) {
    Inflater inflater(bytes, count);
    for (;;) {
        if (!inflater.Step() || !inflater.made_progress()) return false;
        if (!inflater.is_at_end()) continue;
        if (inflater.is_last()) {
            last->end = inflater.position();
            return true;
        }
        last->begin = inflater.position();
    }
}

}  // namespace

std::size_t OpenStream(char* stream, std::size_t count) {
    if (count > std::numeric_limits<uInt>::max()) return 0;
    LastBlock last;
    if (!FindLastBlock(stream, count, &last)) return 0;

    auto* const bytes = reinterpret_cast<std::uint8_t*>(stream);
    bytes[last.begin / 8] &= static_cast<std::uint8_t>(~(1U << (last.begin % 8)));
    const std::size_t used = last.end % 8;
    std::size_t end = (last.end + 7) / 8;
    if (used != 0) bytes[end - 1] &= static_cast<std::uint8_t>((1U << used) - 1);
    // The three bits of an empty stored block's header are zero, like the rest of their byte.
    if (used == 0 || used > 5) bytes[end++] = 0;
    for (const std::uint8_t byte : std::array<std::uint8_t, 4>{0, 0, 0xFF, 0xFF})
        bytes[end++] = byte;
    return end;
}

}  // namespace trevix::zip_engine
