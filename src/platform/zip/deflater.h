// Deflater: bytes in memory to a raw deflate stream, with one compressor for each level kept.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

struct libdeflate_compressor;

namespace trevix::zip_engine {

// The levels 0 to 9 that the engine knows, in ours: libdeflate's are stronger for the same time
// (its 5 makes smaller archives than zlib's 6), and its 8 and 9 cost more time than they are worth.
int LibraryLevel(std::int16_t level);

class Deflater {
 public:
    Deflater() = default;
    Deflater(const Deflater&) = delete;
    Deflater& operator=(const Deflater&) = delete;
    ~Deflater();

    // Compresses into `output`. The number of bytes made; 0 when they would not fit into
    // `capacity`. Throws std::bad_alloc when there is no memory for the compressor.
    std::size_t Deflate(std::int16_t level, const char* input, std::size_t count, char* output,
                        std::size_t capacity);

    // False when samples from all over the data hardly shrink, so that an attempt on the whole (an
    // archive, an office document, a film) would be wasted time. Small data is always worth it.
    bool IsWorthIt(const char* input, std::size_t count);

 private:
    libdeflate_compressor* Compressor(int library_level);

    std::array<libdeflate_compressor*, 13> compressors_{};
};

}  // namespace trevix::zip_engine
