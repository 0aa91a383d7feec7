#include "platform/zip/entry_reader.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <string>

#include "platform/zip/little_endian.h"

namespace trevix::zip_engine {
namespace {

constexpr std::uint32_t kHeaderSignature = 0x04034B50;
constexpr std::size_t kHeaderBytes = 30;
constexpr std::uint16_t kSizesFollow = 1U << 3;

// Entries up to here are inflated in one go, which is more than twice as fast.
constexpr std::uint64_t kWholeLimit = std::uint64_t{4} * 1024 * 1024;
constexpr std::size_t kPiece = std::size_t{128} * 1024;

bool HeaderAgrees(ArchiveBytes& archive, const DirectoryEntry& entry, const char* header) {
    const std::uint16_t flags = Get16(header + 6);
    std::string name(Get16(header + 26), '\0');
    if (archive.ReadAt(entry.header_offset + kHeaderBytes, name.data(), name.size()) != kOk) {
        return false;
    }
    if (name != entry.stored_name || flags != entry.flags) return false;
    if ((flags & kSizesFollow) != 0) return true;
    const auto agrees = [](std::uint32_t stated, std::uint64_t value) {
        return stated == value || stated == 0xFFFFFFFF;
    };
    return Get32(header + 14) == entry.crc32 &&
           agrees(Get32(header + 18), entry.compressed_bytes) &&
           agrees(Get32(header + 22), entry.size_bytes);
}

// Ends the stream of zlib on every way out.
class ZlibStream {
 public:
    ZlibStream() { ready_ = ::inflateInit2(&stream_, -MAX_WBITS) == Z_OK; }
    ZlibStream(const ZlibStream&) = delete;
    ZlibStream& operator=(const ZlibStream&) = delete;
    ~ZlibStream() {
        if (ready_) ::inflateEnd(&stream_);
    }
    bool ready() const { return ready_; }
    z_stream& get() { return stream_; }

 private:
    z_stream stream_{};
    bool ready_ = false;
};

}  // namespace

struct EntryReader::Inflater {
    libdeflate_decompressor* decompressor = nullptr;
    std::string input;
    std::string output;
};

EntryReader::EntryReader() : inflater_(std::make_unique<Inflater>()) {}

EntryReader::~EntryReader() {
    if (inflater_->decompressor != nullptr) {
        libdeflate_free_decompressor(inflater_->decompressor);
    }
}

Code EntryReader::FindContent(ArchiveBytes& archive, const DirectoryEntry& entry, HeaderCheck check,
                              std::uint64_t* offset) {
    std::array<char, kHeaderBytes> header{};
    const Code code = archive.ReadAt(entry.header_offset, header.data(), header.size());
    if (code != kOk) return code;
    if (Get32(header.data()) != kHeaderSignature) return kStructure;
    if ((Get16(header.data() + 6) & 1U) != 0) return kCannotComplete;
    if (Get16(header.data() + 8) != entry.method) return kStructure;
    if (check == HeaderCheck::kStrict && !HeaderAgrees(archive, entry, header.data())) {
        return kStructure;
    }
    *offset =
        entry.header_offset + kHeaderBytes + Get16(header.data() + 26) + Get16(header.data() + 28);
    const std::uint64_t size = archive.size_bytes();
    if (*offset > size || entry.compressed_bytes > size - *offset) return kStructure;
    return kOk;
}

Code EntryReader::Read(ArchiveBytes& archive, const DirectoryEntry& entry, HeaderCheck check,
                       const Sink& sink) {
    if (entry.encrypted()) return kCannotComplete;
    if (entry.method != kMethodStored && entry.method != kMethodDeflated) return kCannotComplete;
    std::uint64_t offset = 0;
    if (const Code code = FindContent(archive, entry, check, &offset); code != kOk) return code;

    std::uint32_t crc = 0;
    const Sink counting = [&](const char* bytes, std::size_t count) {
        crc = libdeflate_crc32(crc, bytes, count);
        return sink(bytes, count);
    };
    Code code = kOk;
    if (entry.method == kMethodStored) {
        code = ReadStored(archive, offset, entry, counting);
    } else if (entry.size_bytes <= kWholeLimit && entry.compressed_bytes <= kWholeLimit) {
        code = InflateWhole(archive, offset, entry, counting);
    } else {
        code = InflateStream(archive, offset, entry, counting);
    }
    if (code != kOk) return code;
    return crc == entry.crc32 ? kOk : kStructure;
}

Code EntryReader::ReadStored(ArchiveBytes& archive, std::uint64_t offset,
                             const DirectoryEntry& entry, const Sink& sink) {
    if (entry.size_bytes != entry.compressed_bytes) return kStructure;
    std::string& buffer = inflater_->input;
    for (std::uint64_t left = entry.size_bytes; left > 0;) {
        buffer.resize(static_cast<std::size_t>(std::min<std::uint64_t>(left, kPiece)));
        const Code read = archive.ReadAt(offset, buffer.data(), buffer.size());
        if (read != kOk) return read;
        if (const Code code = sink(buffer.data(), buffer.size()); code != kOk) return code;
        offset += buffer.size();
        left -= buffer.size();
    }
    return kOk;
}

Code EntryReader::InflateWhole(ArchiveBytes& archive, std::uint64_t offset,
                               const DirectoryEntry& entry, const Sink& sink) {
    std::string& input = inflater_->input;
    std::string& output = inflater_->output;
    input.resize(static_cast<std::size_t>(entry.compressed_bytes));
    if (const Code code = archive.ReadAt(offset, input.data(), input.size()); code != kOk) {
        return code;
    }
    // Never without an address to write to, also for an empty entry.
    output.resize(static_cast<std::size_t>(entry.size_bytes) + 1);
    if (inflater_->decompressor == nullptr) {
        inflater_->decompressor = libdeflate_alloc_decompressor();
        if (inflater_->decompressor == nullptr) return kNoMemory;
    }
    std::size_t consumed = 0;
    std::size_t made = 0;
    const libdeflate_result result = libdeflate_deflate_decompress_ex(
        inflater_->decompressor, input.data(), input.size(), output.data(),
        static_cast<std::size_t>(entry.size_bytes), &consumed, &made);
    const bool exact = result == LIBDEFLATE_SUCCESS && consumed == input.size() &&
                       made == static_cast<std::size_t>(entry.size_bytes);
    if (!exact) return kStructure;
    return made == 0 ? kOk : sink(output.data(), made);
}

Code EntryReader::InflateStream(ArchiveBytes& archive, std::uint64_t offset,
                                const DirectoryEntry& entry, const Sink& sink) {
    ZlibStream zlib;
    if (!zlib.ready()) return kNoMemory;
    z_stream& stream = zlib.get();
    std::string& input = inflater_->input;
    std::string& output = inflater_->output;
    output.resize(kPiece);
    std::uint64_t unread = entry.compressed_bytes;
    std::uint64_t expected = entry.size_bytes;
    for (int state = Z_OK; state != Z_STREAM_END;) {
        if (stream.avail_in == 0 && unread > 0) {
            input.resize(static_cast<std::size_t>(std::min<std::uint64_t>(unread, kPiece)));
            const Code code = archive.ReadAt(offset, input.data(), input.size());
            if (code != kOk) return code;
            offset += input.size();
            unread -= input.size();
            stream.next_in = reinterpret_cast<Bytef*>(input.data());
            stream.avail_in = static_cast<uInt>(input.size());
        }
        stream.next_out = reinterpret_cast<Bytef*>(output.data());
        stream.avail_out = static_cast<uInt>(output.size());
        state = ::inflate(&stream, Z_NO_FLUSH);
        if (state == Z_MEM_ERROR) return kNoMemory;
        if (state != Z_OK && state != Z_STREAM_END && state != Z_BUF_ERROR) return kStructure;
        const std::size_t made = output.size() - stream.avail_out;
        // Without input, inflate still hands out what it holds; after that the stream is cut off.
        const bool stuck = state == Z_BUF_ERROR && made == 0 && unread == 0;
        if (stuck || made > expected) return kStructure;
        expected -= made;
        if (made > 0) {
            if (const Code code = sink(output.data(), made); code != kOk) return code;
        }
    }
    return expected == 0 && unread == 0 && stream.avail_in == 0 ? kOk : kStructure;
}

}  // namespace trevix::zip_engine
