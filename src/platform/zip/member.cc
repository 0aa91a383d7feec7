#include "platform/zip/member.h"

#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace trevix::zip_engine {
namespace {

std::time_t LocalTime(int year, int month, int day, int hour, int minute, int second) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_sec = second;
    parts.tm_isdst = -1;
    return std::mktime(&parts);
}

// As many bytes as there are, at most `count`; -1 on failure.
ssize_t ReadUpTo(int descriptor, std::uint64_t offset, char* target, std::size_t count) {
    std::size_t done = 0;
    while (done < count) {
        const ssize_t got =
            ::pread(descriptor, target + done, count - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        done += static_cast<std::size_t>(got);
        // A regular file gives less than was asked for only at its end.
        if (got == 0 || done < count) break;
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

std::time_t ClampToEntryRange(std::time_t when) {
    constexpr std::time_t kWellAfterStart = 315'700'000;   // 1980-01-02 and some hours
    constexpr std::time_t kWellBeforeEnd = 4'354'700'000;  // 2107-12-30 and some hours
    if (when >= kWellAfterStart && when <= kWellBeforeEnd) return when;
    const std::time_t first = LocalTime(1980, 1, 1, 0, 0, 0);
    const std::time_t last = LocalTime(2107, 12, 31, 23, 59, 58);
    return std::clamp(when, first, last);
}

Code Member::TakeFile(const std::string& path, std::int16_t level, std::uint64_t may_hold,
                      Deflater& deflater) {
    const UniqueDescriptor file = OpenRegularFile(path, &identity_);
    if (!file.valid()) return kCannotOpenInput;
    date_ = ClampToEntryRange(identity_.modified_seconds);
    size_bytes_ = identity_.size_bytes;
    if (size_bytes_ > std::min(kWholeLimitBytes, may_hold)) {
        path_ = path;
        deflate_ = level > 0 && SamplesShrink(file.get(), size_bytes_, deflater);
        return kOk;
    }

    // One byte more than there should be shows a file that has grown.
    const auto count = static_cast<std::size_t>(size_bytes_);
    auto bytes = MakeHeapBytes(count + 1);
    const ssize_t got = ReadUpTo(file.get(), 0, bytes.get(), count + 1);
    if (got < 0 || static_cast<std::size_t>(got) != count) return kReadFailed;
    TakeBytes(std::move(bytes), count, level, deflater);
    return kOk;
}

void Member::TakeBytes(HeapBytes bytes, std::size_t count, std::int16_t level, Deflater& deflater) {
    if (date_ == 0) date_ = ClampToEntryRange(std::time(nullptr));
    size_bytes_ = count;
    crc32_ = libdeflate_crc32(0, bytes.get(), count);
    deflate_ = false;
    if (level > 0 && count > 1 && deflater.IsWorthIt(bytes.get(), count)) {
        // Room for one byte less: what does not shrink is stored.
        auto packed = MakeHeapBytes(count - 1);
        const std::size_t made =
            deflater.Deflate(level, bytes.get(), count, packed.get(), count - 1);
        if (made > 0) {
            deflate_ = true;
            data_ = std::move(packed);
            data_bytes_ = made;
            CutHeapBytes(data_, made);
            return;
        }
    }
    data_ = std::move(bytes);
    data_bytes_ = count;
}

void Member::TakeScratch(UniqueDescriptor file, std::uint64_t size_bytes, std::int16_t level,
                         Deflater& deflater) {
    date_ = ClampToEntryRange(std::time(nullptr));
    scratch_ = std::move(file);
    size_bytes_ = size_bytes;
    deflate_ = level > 0 && SamplesShrink(scratch_.get(), size_bytes, deflater);
}

bool Member::SamplesShrink(int descriptor, std::uint64_t size_bytes, Deflater& deflater) {
    // Joined samples are judged like one content.
    constexpr std::size_t kSample = std::size_t{128} * 1024;
    constexpr std::uint64_t kSamples = 8;
    auto joined = MakeHeapBytes(kSample * kSamples);
    if (size_bytes < kSample * kSamples) return true;
    const std::uint64_t step = (size_bytes - kSample) / (kSamples - 1);
    for (std::uint64_t i = 0; i < kSamples; ++i) {
        const ssize_t got = ReadUpTo(descriptor, i * step, joined.get() + i * kSample, kSample);
        // A failing read will show again, when it matters.
        if (got != static_cast<ssize_t>(kSample)) return true;
    }
    return deflater.IsWorthIt(joined.get(), kSample * kSamples);
}

zip_source_t* Member::MakeSource(zip_t* archive) {
    zip_error_init(&error_);
    return zip_source_function(archive, &Member::OnCommand, this);
}

zip_int64_t Member::OnCommand(void* self, void* data, zip_uint64_t length,
                              zip_source_cmd_t command) {
    auto* member = static_cast<Member*>(self);
    switch (command) {
        case ZIP_SOURCE_SUPPORTS:
            return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ,
                                                  ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                                  ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
        case ZIP_SOURCE_OPEN: return member->Open();
        case ZIP_SOURCE_READ:
            return member->Read(static_cast<char*>(data), static_cast<std::size_t>(length));
        case ZIP_SOURCE_CLOSE: member->open_.Reset(); return 0;
        case ZIP_SOURCE_STAT:
            if (length < sizeof(zip_stat_t)) return -1;
            member->DescribeTo(static_cast<zip_stat_t*>(data));
            return sizeof(zip_stat_t);
        case ZIP_SOURCE_ERROR: return zip_error_to_data(&member->error_, data, length);
        case ZIP_SOURCE_FREE: return 0;
        default: zip_error_set(&member->error_, ZIP_ER_OPNOTSUPP, 0); return -1;
    }
}

zip_int64_t Member::Fail(Code code, int system_error) {
    failure_ = code;
    zip_error_set(&error_, ZIP_ER_READ, system_error);
    return -1;
}

zip_int64_t Member::Open() {
    position_ = 0;
    if (!is_streamed() || scratch_.valid()) return 0;
    FileIdentity now;
    open_ = OpenRegularFile(path_, &now);
    if (!open_.valid()) return Fail(kCannotOpenInput, errno);
    if (!(now == identity_)) return Fail(kReadFailed, EIO);
    return 0;
}

zip_int64_t Member::Read(char* target, std::size_t count) {
    if (is_streamed()) return ReadFile(target, count);
    const std::size_t left = data_bytes_ - static_cast<std::size_t>(position_);
    count = std::min(count, left);
    if (count > 0) std::memcpy(target, data_.get() + position_, count);
    position_ += count;
    return static_cast<zip_int64_t>(count);
}

zip_int64_t Member::ReadFile(char* target, std::size_t count) {
    const int descriptor = scratch_.valid() ? scratch_.get() : open_.get();
    const std::uint64_t left = size_bytes_ - position_;
    if (left == 0) {
        // The end is believed only if the file still ends here.
        char beyond = 0;
        return ReadUpTo(descriptor, position_, &beyond, 1) == 0 ? 0 : Fail(kReadFailed, EIO);
    }
    count = static_cast<std::size_t>(std::min<std::uint64_t>(count, left));
    const ssize_t got = ReadUpTo(descriptor, position_, target, count);
    if (got < 0) return Fail(kReadFailed, errno);
    if (got == 0) return Fail(kReadFailed, EIO);
    position_ += static_cast<std::uint64_t>(got);
    return got;
}

void Member::DescribeTo(zip_stat_t* about) const {
    zip_stat_init(about);
    about->mtime = date_;
    about->size = size_bytes_;
    about->encryption_method = ZIP_EM_NONE;
    about->valid = ZIP_STAT_SIZE | ZIP_STAT_MTIME | ZIP_STAT_ENCRYPTION_METHOD;
    about->comp_method = ZIP_CM_STORE;
    about->valid |= ZIP_STAT_COMP_METHOD;
    if (is_streamed()) return;
    about->comp_method = deflate_ ? ZIP_CM_DEFLATE : ZIP_CM_STORE;
    about->comp_size = data_bytes_;
    about->crc = crc32_;
    about->valid |= ZIP_STAT_COMP_SIZE | ZIP_STAT_CRC;
}

}  // namespace trevix::zip_engine
