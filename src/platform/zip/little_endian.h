// Numbers as archives store them: little-endian, at any address.
#pragma once

#include <cstdint>

namespace trevix::zip_engine {

inline std::uint16_t Get16(const char* at) {
    const auto byte = [&](int i) {
        return static_cast<unsigned>(static_cast<unsigned char>(at[i]));
    };
    return static_cast<std::uint16_t>(byte(0) | (byte(1) << 8));
}

inline std::uint32_t Get32(const char* at) {
    return Get16(at) | (std::uint32_t{Get16(at + 2)} << 16);
}

inline std::uint64_t Get64(const char* at) {
    return Get32(at) | (std::uint64_t{Get32(at + 4)} << 32);
}

}  // namespace trevix::zip_engine
