// Programs made byte by byte: the headers, a resource directory and a version, nothing that runs.
#pragma once

#include <cstdint>
#include <string>

namespace trevix::test {

struct PeOptions {
    bool wide = false;  // 64 bit
    std::uint32_t most = 0x00050001;
    std::uint32_t least = 0x0A280000;

    std::uint32_t named_types = 0;  // resources with names, in front of the version
    std::uint32_t other_types = 0;  // and with other numbers
    std::uint32_t version_type = 16;
    std::uint32_t directories = 16;  // as the optional header counts them
    std::uint32_t fixed_signature = 0xFEEF04BD;
    std::uint32_t fixed_bytes = 52;
    std::uint32_t resource_bytes = 92;
    std::uint32_t length = 92;           // as the resource itself says it
    bool language_is_directory = false;  // one level too many
    bool type_is_data = false;           // two levels too few
    std::string tail = {};               // behind the image
};

struct PeImage {
    std::string bytes;
    std::size_t version_end = 0;  // behind the last byte that tells the version
};

inline void PutNumber(std::string& bytes, std::uint64_t value, int width) {
    for (int i = 0; i < width; ++i)
        bytes += static_cast<char>((value >> (8 * i)) & 0xFF);
}

inline void PadTo(std::string& bytes, std::size_t size) {
    bytes.resize(size, '\0');
}

// A table of `named` + `others` entries that lead nowhere and one, `number`, that leads to
// `target`.
inline std::string ResourceDirectory(std::uint32_t named, std::uint32_t others,
                                     std::uint32_t number, std::uint32_t target) {
    std::string bytes(12, '\0');
    PutNumber(bytes, named, 2);
    PutNumber(bytes, others + 1, 2);
    for (std::uint32_t i = 0; i < named + others; ++i) {
        PutNumber(bytes, i < named ? 0x80000000U + i : 100 + i, 4);
        PutNumber(bytes, 0xFFFFFFFF, 4);
    }
    PutNumber(bytes, number, 4);
    PutNumber(bytes, target, 4);
    return bytes;
}

inline std::string VersionResource(const PeOptions& options) {
    std::string bytes;
    PutNumber(bytes, options.length, 2);
    PutNumber(bytes, options.fixed_bytes, 2);
    PutNumber(bytes, 0, 2);
    for (const char c : std::string("VS_VERSION_INFO\0", 16))
        PutNumber(bytes, static_cast<unsigned char>(c), 2);
    PadTo(bytes, 40);
    PutNumber(bytes, options.fixed_signature, 4);
    PutNumber(bytes, 0x00010000, 4);
    PutNumber(bytes, options.most, 4);
    PutNumber(bytes, options.least, 4);
    PadTo(bytes, 92);
    return bytes;
}

// The resource section, which is loaded at `address`.
inline std::string ResourceSection(const PeOptions& options, std::uint32_t address) {
    constexpr std::uint32_t kDirectory = 0x80000000;
    const std::uint32_t names_at = 24 + 8 * (options.named_types + options.other_types);
    const std::uint32_t languages_at = names_at + 24;
    const std::uint32_t entry_at = languages_at + 24;
    const std::uint32_t data_at = entry_at + 16;
    std::string bytes =
        ResourceDirectory(options.named_types, options.other_types, options.version_type,
                          (options.type_is_data ? 0 : kDirectory) | names_at);
    bytes += ResourceDirectory(0, 0, 1, kDirectory | languages_at);
    bytes +=
        ResourceDirectory(0, 0, 0x409, (options.language_is_directory ? kDirectory : 0) | entry_at);
    PutNumber(bytes, address + data_at, 4);
    PutNumber(bytes, options.resource_bytes, 4);
    PadTo(bytes, data_at);
    return bytes + VersionResource(options);
}

inline void PutSection(std::string& bytes, const std::string& name, std::uint32_t address,
                       std::uint32_t size_bytes, std::uint32_t offset) {
    const std::size_t start = bytes.size();
    bytes += name;
    PadTo(bytes, start + 8);
    PutNumber(bytes, size_bytes, 4);
    PutNumber(bytes, address, 4);
    PutNumber(bytes, size_bytes, 4);
    PutNumber(bytes, offset, 4);
    PadTo(bytes, start + 40);
}

inline PeImage MakePeImage(const PeOptions& options = {}) {
    constexpr std::uint32_t kCodeAddress = 0x1000;
    constexpr std::uint32_t kResourceAddress = 0x2000;
    constexpr std::uint32_t kCodeAt = 0x200;
    constexpr std::uint32_t kResourcesAt = 0x220;
    const std::string resources = ResourceSection(options, kResourceAddress);

    std::string bytes = "MZ";
    PadTo(bytes, 0x3C);
    PutNumber(bytes, 0x40, 4);
    bytes += std::string("PE\0\0", 4);
    PutNumber(bytes, options.wide ? 0x8664 : 0x014C, 2);
    PutNumber(bytes, 2, 2);
    PadTo(bytes, 0x40 + 20);
    PutNumber(bytes, options.wide ? 240 : 224, 2);
    PutNumber(bytes, 0x0102, 2);

    const std::size_t optional_at = bytes.size();
    PutNumber(bytes, options.wide ? 0x20B : 0x10B, 2);
    PadTo(bytes, optional_at + (options.wide ? 108 : 92));
    PutNumber(bytes, options.directories, 4);
    PadTo(bytes, bytes.size() + 16);
    PutNumber(bytes, kResourceAddress, 4);
    PutNumber(bytes, resources.size(), 4);
    PadTo(bytes, optional_at + (options.wide ? 240 : 224));

    PutSection(bytes, ".text", kCodeAddress, 16, kCodeAt);
    PutSection(bytes, ".rsrc", kResourceAddress, static_cast<std::uint32_t>(resources.size()),
               kResourcesAt);
    PadTo(bytes, kResourcesAt);
    bytes += resources;
    const std::size_t version_end = bytes.size() - 92 + 40 + 16;
    return {bytes + options.tail, version_end};
}

}  // namespace trevix::test
