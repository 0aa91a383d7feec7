// Deflater: bytes in memory to a raw deflate stream, with one compressor for each level kept.
//
// What is large is deflated in two halves at the same time, on two threads; what comes out is the
// same wherever it runs.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/helper_thread.h"

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
    // A compressor serves one thread, so each has its own.
    using Compressors = std::array<libdeflate_compressor*, 13>;
    static libdeflate_compressor* Get(Compressors& compressors, int library_level);

    std::size_t DeflateHalves(int library_level, const char* input, std::size_t count, char* output,
                              std::size_t capacity);

    Compressors own_{};
    Compressors helpers_{};
    HelperThread helper_;
};

}  // namespace trevix::zip_engine
