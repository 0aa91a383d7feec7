#include "util/pe_version.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace trevix {
namespace {

// What no sound image exceeds; more is looked at no further.
constexpr std::uint32_t kMostSections = 1024;
constexpr std::uint32_t kMostResources = 4096;  // in one directory

constexpr std::uint32_t kVersionType = 16;
constexpr std::uint32_t kHighBit = 0x80000000;

// Little-endian numbers at an offset of a file. A place outside the file has none.
class Numbers {
 public:
    explicit Numbers(const Blob& blob) : blob_(blob) {}

    std::optional<std::uint32_t> At16(std::uint64_t offset) const { return At(offset, 2); }
    std::optional<std::uint32_t> At32(std::uint64_t offset) const { return At(offset, 4); }

    // Whether 16-bit number at `offset` is `wanted`; the same for 32 bits.
    bool Is16(std::uint64_t offset, std::uint32_t wanted) const { return At16(offset) == wanted; }
    bool Is32(std::uint64_t offset, std::uint32_t wanted) const { return At32(offset) == wanted; }

 private:
    std::optional<std::uint32_t> At(std::uint64_t offset, std::size_t width) const {
        std::array<char, 4> bytes{};
        if (!blob_.ReadAt(offset, bytes.data(), width).ok()) return std::nullopt;
        std::uint32_t number = 0;
        for (std::size_t i = width; i-- > 0;)
            number = (number << 8) | static_cast<unsigned char>(bytes.at(i));
        return number;
    }

    const Blob& blob_;
};

// Where the headers lead.
struct Image {
    std::uint64_t sections = 0;  // of the section table, in the file
    std::uint32_t section_count = 0;
    std::uint32_t resources = 0;  // address of the resource directory
};

std::optional<Image> ReadHeaders(const Numbers& file) {
    constexpr std::uint32_t kDosSignature = 0x5A4D;     // "MZ"
    constexpr std::uint32_t kPeSignature = 0x00004550;  // "PE"
    constexpr std::uint64_t kOptionalAt = 24;           // behind the signature and the file header
    if (!file.Is16(0, kDosSignature)) return std::nullopt;
    const auto header = file.At32(0x3C);
    if (!header || !file.Is32(*header, kPeSignature)) return std::nullopt;
    const std::uint64_t pe = *header;
    const auto section_count = file.At16(pe + 6);
    const auto optional_bytes = file.At16(pe + 20);
    const auto magic = file.At16(pe + kOptionalAt);
    if (!section_count || !optional_bytes || !magic) return std::nullopt;

    // Only the numbers before the table of directories differ in width.
    constexpr std::uint32_t kNarrow = 0x10B;
    constexpr std::uint32_t kWide = 0x20B;
    if (*magic != kNarrow && *magic != kWide) return std::nullopt;
    const std::uint32_t count_at = *magic == kNarrow ? 92 : 108;
    const std::uint32_t resources_at = count_at + 4 + 2 * 8;  // the third directory
    const auto directories = file.At32(pe + kOptionalAt + count_at);
    const auto resources = file.At32(pe + kOptionalAt + resources_at);
    if (!directories || *directories < 3 || !resources || *resources == 0) return std::nullopt;
    return Image{pe + kOptionalAt + *optional_bytes, std::min(*section_count, kMostSections),
                 *resources};
}

// Where in the file `address` of the loaded image comes from.
std::optional<std::uint64_t> OffsetOf(const Numbers& file, const Image& image,
                                      std::uint32_t address) {
    constexpr std::uint64_t kSectionBytes = 40;
    for (std::uint32_t i = 0; i < image.section_count; ++i) {
        const std::uint64_t section = image.sections + i * kSectionBytes;
        const auto start = file.At32(section + 12);
        const auto bytes = file.At32(section + 16);
        const auto offset = file.At32(section + 20);
        if (!start || !bytes || !offset) return std::nullopt;
        if (address >= *start && address - *start < *bytes) {
            return std::uint64_t{*offset} + (address - *start);
        }
    }
    return std::nullopt;
}

// The target of one entry of the resource directory at `directory`: of the one with the number
// `wanted`, or of the first one. Its high bit tells a directory from data.
std::optional<std::uint32_t> FindResource(const Numbers& file, std::uint64_t directory,
                                          std::optional<std::uint32_t> wanted) {
    constexpr std::uint64_t kHeaderBytes = 16;
    constexpr std::uint64_t kEntryBytes = 8;
    const auto named = file.At16(directory + 12);
    const auto numbered = file.At16(directory + 14);
    if (!named || !numbered) return std::nullopt;
    const std::uint32_t count = std::min(*named + *numbered, kMostResources);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint64_t entry = directory + kHeaderBytes + i * kEntryBytes;
        if (!wanted || file.Is32(entry, *wanted)) return file.At32(entry + 4);
    }
    return std::nullopt;
}

// The address of the first version resource, in its first language, and its size.
struct Resource {
    std::uint32_t address = 0;
    std::uint32_t size_bytes = 0;
};

std::optional<Resource> FindVersion(const Numbers& file, std::uint64_t resources) {
    // Three levels, no more and no less: type, name, language.
    std::uint64_t directory = resources;
    const std::array<std::optional<std::uint32_t>, 3> path{kVersionType, std::nullopt,
                                                           std::nullopt};
    for (std::size_t level = 0; level < path.size(); ++level) {
        const auto target = FindResource(file, directory, path.at(level));
        const bool is_last = level + 1 == path.size();
        if (!target || ((*target & kHighBit) != 0) == is_last) return std::nullopt;
        directory = resources + (*target & ~kHighBit);
    }
    const auto address = file.At32(directory);
    const auto size_bytes = file.At32(directory + 4);
    if (!address || !size_bytes) return std::nullopt;
    return Resource{*address, *size_bytes};
}

// The two words of the file version from a version resource.
std::optional<std::array<std::uint32_t, 2>> ReadFixedInfo(const Numbers& file, std::uint64_t offset,
                                                          std::uint32_t size_bytes) {
    constexpr std::uint32_t kFixedAt = 40;  // behind three numbers and "VS_VERSION_INFO"
    constexpr std::uint32_t kFixedBytes = 52;
    constexpr std::uint32_t kFixedSignature = 0xFEEF04BD;
    const auto length = file.At16(offset);
    const auto value_length = file.At16(offset + 2);
    if (!length || !value_length) return std::nullopt;
    const std::uint32_t needed = kFixedAt + kFixedBytes;
    if (size_bytes < needed || *length < needed || *value_length < kFixedBytes) return std::nullopt;
    if (!file.Is32(offset + kFixedAt, kFixedSignature)) return std::nullopt;
    const auto most = file.At32(offset + kFixedAt + 8);
    const auto least = file.At32(offset + kFixedAt + 12);
    if (!most || !least) return std::nullopt;
    return std::array<std::uint32_t, 2>{*most, *least};
}

}  // namespace

std::string PeVersionText(const Blob& image) {
    const Numbers file(image);
    const auto headers = ReadHeaders(file);
    if (!headers) return {};
    const auto resources = OffsetOf(file, *headers, headers->resources);
    if (!resources) return {};
    const auto version = FindVersion(file, *resources);
    if (!version) return {};
    const auto offset = OffsetOf(file, *headers, version->address);
    if (!offset) return {};
    const auto words = ReadFixedInfo(file, *offset, version->size_bytes);
    if (!words) return {};

    std::string text;
    for (const std::uint32_t word : *words) {
        if (!text.empty()) text += '.';
        text += std::to_string(word >> 16) + "." + std::to_string(word & 0xFFFF);
    }
    return text;
}

}  // namespace trevix
