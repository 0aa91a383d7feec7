#include "platform/zip/deflater.h"

#include <libdeflate.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <vector>

#include "platform/zip/heap_bytes.h"
#include "platform/zip/stream_join.h"

namespace trevix::zip_engine {
namespace {

// Smaller contents would lose more by the cut (the second half cannot refer to the first) than
// the time is worth.
constexpr std::size_t kHalvedBytes = std::size_t{128} * 1024;

// The first half is smaller: opening its stream takes a pass over it.
constexpr std::size_t kFirstTwentieths = 9;

struct Half {
    HeapBytes bytes;
    std::size_t count = 0;
};

}  // namespace

int LibraryLevel(std::int16_t level) {
    constexpr std::array<int, 10> kLevels = {0, 1, 3, 4, 4, 5, 6, 7, 10, 12};
    return kLevels.at(static_cast<std::size_t>(std::clamp<std::int16_t>(level, 0, 9)));
}

Deflater::~Deflater() {
    for (const Compressors& compressors : {own_, helpers_}) {
        for (libdeflate_compressor* compressor : compressors) {
            if (compressor != nullptr) libdeflate_free_compressor(compressor);
        }
    }
}

libdeflate_compressor* Deflater::Get(Compressors& compressors, int library_level) {
    libdeflate_compressor*& compressor = compressors.at(static_cast<std::size_t>(library_level));
    if (compressor == nullptr) compressor = libdeflate_alloc_compressor(library_level);
    if (compressor == nullptr) throw std::bad_alloc();
    return compressor;
}

std::size_t Deflater::Deflate(std::int16_t level, const char* input, std::size_t count,
                              char* output, std::size_t capacity) {
    const int library_level = LibraryLevel(level);
    if (count >= kHalvedBytes) return DeflateHalves(library_level, input, count, output, capacity);
    return libdeflate_deflate_compress(Get(own_, library_level), input, count, output, capacity);
}

std::size_t Deflater::DeflateHalves(int library_level, const char* input, std::size_t count,
                                    char* output, std::size_t capacity) {
    const std::size_t first = count / 20 * kFirstTwentieths;
    auto opened = helper_.Run([this, library_level, input, first] {
        libdeflate_compressor* const compressor = Get(helpers_, library_level);
        const std::size_t bound = libdeflate_deflate_compress_bound(compressor, first);
        Half half{MakeHeapBytes(bound + kJoinBytes), 0};
        const std::size_t made =
            libdeflate_deflate_compress(compressor, input, first, half.bytes.get(), bound);
        if (made > 0) half.count = OpenStream(half.bytes.get(), made);
        return half;
    });
    std::exception_ptr failure;
    Half last;
    try {
        libdeflate_compressor* const compressor = Get(own_, library_level);
        const std::size_t bound = libdeflate_deflate_compress_bound(compressor, count - first);
        last.bytes = MakeHeapBytes(bound);
        last.count = libdeflate_deflate_compress(compressor, input + first, count - first,
                                                 last.bytes.get(), bound);
    } catch (...) {
        failure = std::current_exception();
    }
    // The helper reads the caller's bytes, so it is waited for whatever has happened here.
    const Half begin = opened.get();
    if (failure) std::rethrow_exception(failure);
    if (begin.count == 0 || last.count == 0 || begin.count + last.count > capacity) return 0;
    std::memcpy(output, begin.bytes.get(), begin.count);
    std::memcpy(output + begin.count, last.bytes.get(), last.count);
    return begin.count + last.count;
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
        const std::size_t made = libdeflate_deflate_compress(Get(own_, 1), input + i * step, sample,
                                                             output.data(), worth);
        if (made > 0) return true;
    }
    return false;
}

}  // namespace trevix::zip_engine
