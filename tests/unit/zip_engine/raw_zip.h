// Archives made byte by byte, so that they can say whatever a hostile or an odd program would.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <string>
#include <vector>

namespace trevix::test {

struct RawEntry {
    std::string name = {};
    std::string data = {};  // as it lies in the archive

    // What the archive says about it. A stored entry of `data` unless told otherwise.
    std::uint16_t method = 0;
    std::uint16_t flags = 0;
    std::int64_t size = -1;
    std::int64_t crc = -1;
    std::uint8_t made_by = 3;
    std::uint32_t attributes = 0;
    std::string extra = {};
    std::uint16_t time = 0x6000;  // 12:00:00
    std::uint16_t date = 0x5A21;  // 2025-01-01
    std::string local_name = {};  // when it is to differ
};

inline std::string Le(std::uint64_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>((value >> (8 * i)) & 0xFF);
    return text;
}

inline std::uint32_t CrcOf(const std::string& bytes) {
    return static_cast<std::uint32_t>(
        ::crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

// A raw deflate stream.
inline std::string RawDeflate(const std::string& bytes) {
    std::string packed(::compressBound(static_cast<uLong>(bytes.size())) + 64, '\0');
    z_stream stream{};
    deflateInit2(&stream, 6, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    std::string input = bytes;
    stream.next_in = reinterpret_cast<Bytef*>(input.data());
    stream.avail_in = static_cast<uInt>(input.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

inline RawEntry Deflated(const std::string& name, const std::string& content) {
    RawEntry entry{.name = name, .data = RawDeflate(content), .method = 8};
    entry.size = static_cast<std::int64_t>(content.size());
    entry.crc = CrcOf(content);
    return entry;
}

inline std::string CommonFields(const RawEntry& entry) {
    const std::uint64_t size =
        entry.size >= 0 ? static_cast<std::uint64_t>(entry.size) : entry.data.size();
    const std::uint64_t crc =
        entry.crc >= 0 ? static_cast<std::uint64_t>(entry.crc) : CrcOf(entry.data);
    return Le(20, 2) + Le(entry.flags, 2) + Le(entry.method, 2) + Le(entry.time, 2) +
           Le(entry.date, 2) + Le(crc, 4) + Le(entry.data.size(), 4) + Le(size, 4);
}

inline std::string EndRecord(std::uint64_t count, std::uint64_t size, std::uint64_t offset,
                             const std::string& comment = {}) {
    return Le(0x06054B50, 4) + Le(0, 4) + Le(count, 2) + Le(count, 2) + Le(size, 4) +
           Le(offset, 4) + Le(comment.size(), 2) + comment;
}

inline std::string DirectoryRecord(const RawEntry& entry, std::uint64_t offset) {
    return Le(0x02014B50, 4) + Le(20, 1) + Le(entry.made_by, 1) + CommonFields(entry) +
           Le(entry.name.size(), 2) + Le(entry.extra.size(), 2) + Le(0, 2) + Le(0, 2) + Le(0, 2) +
           Le(entry.attributes, 4) + Le(offset, 4) + entry.name + entry.extra;
}

inline std::string RawZip(const std::vector<RawEntry>& entries, const std::string& comment = {}) {
    std::string bytes;
    std::string directory;
    for (const RawEntry& entry : entries) {
        const std::string& name = entry.local_name.empty() ? entry.name : entry.local_name;
        directory += DirectoryRecord(entry, bytes.size());
        bytes += Le(0x04034B50, 4) + CommonFields(entry) + Le(name.size(), 2) + Le(0, 2) + name +
                 entry.data;
    }
    return bytes + directory + EndRecord(entries.size(), directory.size(), bytes.size(), comment);
}

}  // namespace trevix::test
