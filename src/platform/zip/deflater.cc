#include "platform/zip/deflater.h"

#include <libdeflate.h>

#include <algorithm>
#include <new>
#include <vector>

namespace trevix::zip_engine {

int LibraryLevel(std::int16_t level) {
    constexpr std::array<int, 10> kLevels = {0, 1, 3, 4, 4, 5, 6, 7, 10, 12};
    return kLevels.at(static_cast<std::size_t>(std::clamp<std::int16_t>(level, 0, 9)));
}

Deflater::~Deflater() {
    for (libdeflate_compressor* compressor : compressors_) {
        if (compressor != nullptr) libdeflate_free_compressor(compressor);
    }
}

libdeflate_compressor* Deflater::Compressor(int library_level) {
    libdeflate_compressor*& compressor = compressors_.at(static_cast<std::size_t>(library_level));
    if (compressor == nullptr) compressor = libdeflate_alloc_compressor(library_level);
    if (compressor == nullptr) throw std::bad_alloc();
    return compressor;
}

std::size_t Deflater::Deflate(std::int16_t level, const char* input, std::size_t count,
                              char* output, std::size_t capacity) {
    return libdeflate_deflate_compress(Compressor(LibraryLevel(level)), input, count, output,
                                       capacity);
}

bool Deflater::IsWorthIt(const char* input, std::size_t count) {
    constexpr std::size_t kSmall = std::size_t{32} * 1024;
    constexpr std::size_t kLarge = std::size_t{512} * 1024;
    if (count < kSmall) return true;
    const std::size_t sample = count < kLarge ? std::size_t{6} * 1024 : std::size_t{16} * 1024;
    const std::size_t samples = count < kLarge ? 4 : 8;
    // Less than a fiftieth is what a container's own headers give; the rest is packed already.
    const std::size_t worth = sample - sample / 50;
    std::vector<char> output(worth);
    const std::size_t step = (count - sample) / (samples - 1);
    for (std::size_t i = 0; i < samples; ++i) {
        // The compressor gives up (0) when the output would not fit.
        const std::size_t made = libdeflate_deflate_compress(Compressor(1), input + i * step,
                                                             sample, output.data(), worth);
        if (made > 0) return true;
    }
    return false;
}

}  // namespace trevix::zip_engine
