// HeapBytes: a buffer that starts uninitialised and can be cut to what was used without a copy.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace trevix::zip_engine {

struct FreeHeapBytes {
    void operator()(char* bytes) const { std::free(bytes); }
};

using HeapBytes = std::unique_ptr<char[], FreeHeapBytes>;

// At least `count` bytes, and never null. Throws std::bad_alloc.
inline HeapBytes MakeHeapBytes(std::size_t count) {
    HeapBytes bytes(static_cast<char*>(std::malloc(count > 0 ? count : 1)));
    if (bytes == nullptr) throw std::bad_alloc();
    return bytes;
}

// Gives back what lies behind the first `count` bytes. Without this, buffers that hold little
// would keep the memory of their worst case.
inline void CutHeapBytes(HeapBytes& bytes, std::size_t count) {
    char* const whole = bytes.release();
    void* const cut = std::realloc(whole, count > 0 ? count : 1);
    bytes.reset(cut != nullptr ? static_cast<char*>(cut) : whole);
}

}  // namespace trevix::zip_engine
