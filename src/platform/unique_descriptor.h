// An open file descriptor that closes itself. Part of the shared helper of the adapters: it needs
// POSIX, so only src/platform/<folder>/ may include it, never the core.
#pragma once

#include <unistd.h>

#include <utility>

namespace trevix {

class UniqueDescriptor {
 public:
    UniqueDescriptor() = default;
    explicit UniqueDescriptor(int descriptor) : descriptor_(descriptor) {}
    UniqueDescriptor(UniqueDescriptor&& other) noexcept
        : descriptor_(std::exchange(other.descriptor_, -1)) {}
    UniqueDescriptor& operator=(UniqueDescriptor&& other) noexcept {
        if (this != &other) Reset(std::exchange(other.descriptor_, -1));
        return *this;
    }
    ~UniqueDescriptor() { Reset(); }

    bool valid() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }
    int Release() { return std::exchange(descriptor_, -1); }

    // A failure to close is not reported: whoever needs durability has called fsync before.
    void Reset(int descriptor = -1) {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = descriptor;
    }

 private:
    int descriptor_ = -1;
};

}  // namespace trevix
