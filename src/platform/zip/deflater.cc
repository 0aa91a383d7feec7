#include "platform/zip/deflater.h"

#include <libdeflate.h>

#include <algorithm>
#include <new>
#include <vector>

namespace trevix::zip_engine {

int LibraryLevel(std::int16_t level) {
    constexpr std::array<int, 10> kLevels = {0, 1, 3, 4, 5, 6, 6, 7, 10, 12};
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
    constexpr std::size_t kSmall = std::size_t{1024} * 1024;
    constexpr std::size_t kSample = std::size_t{16} * 1024;
    constexpr std::size_t kSamples = 8;
    if (count < kSmall) return true;
    std::vector<char> output(kSample);
    const std::size_t step = (count - kSample) / (kSamples - 1);
    for (std::size_t i = 0; i < kSamples; ++i) {
        // The compressor gives up (0) when not even one byte is saved.
        const std::size_t made = libdeflate_deflate_compress(Compressor(1), input + i * step,
                                                             kSample, output.data(), kSample - 1);
        if (made > 0) return true;
    }
    return false;
}

}  // namespace trevix::zip_engine
