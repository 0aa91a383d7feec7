#include "util/file_info.h"

#include <cmath>
#include <cstdint>
#include <utility>

#include "util/file_name.h"
#include "util/format.h"
#include "util/normal_path.h"
#include "util/pe_version.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr std::int64_t kNanosecondsOfSecond = 1000000000;

std::int64_t WholeSeconds(std::int64_t unix_ns) {
    const std::int64_t seconds = unix_ns / kNanosecondsOfSecond;
    return unix_ns % kNanosecondsOfSecond < 0 ? seconds - 1 : seconds;
}

// Up to and including the last separator; empty for a bare name.
std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

}  // namespace

void CFileInfo::FullPathName(const std::string& path) {
    full_path_name_ = path;
    Refresh();
}

void CFileInfo::Refresh() {
    details_ = FileDetails();
    file_path_.clear();
    version_number_.clear();
    const std::string folder = FolderOf(full_path_name_);
    path_exists_ = files_.DirectoryExists(folder.empty() ? "." : folder);

    Result<FileDetails> found = files_.FindFile(full_path_name_);
    file_exists_ = found.ok();
    if (!file_exists_) return;
    details_ = std::move(found).value();
    if (!folder.empty()) {
        file_path_ = NormalizePath(
            folder, '/', [this](const std::string& path) { return files_.FindFile(path); });
        file_path_ += '/';
    }
    const Result<Blob> content = files_.OpenBlob(full_path_name_);
    if (content.ok()) version_number_ = PeVersionText(content.value());
}

std::string CFileInfo::FileExtension() const {
    return FileName().find('.') == std::string::npos ? std::string() : Extension(FileName());
}

std::string CFileInfo::TypeName() const {
    if (!file_exists_) return {};
    const std::string extension = FileExtension();
    return extension.empty() ? "File" : ToUpper(extension) + " File";
}

std::int32_t CFileInfo::FileSize() const {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(details_.size_bytes));
}

std::int32_t CFileInfo::FileSizeHigh() const {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(details_.size_bytes >> 32));
}

// The two looks at the clock may fall into different seconds; no zone is off by less than minutes.
std::int64_t CFileInfo::SecondsAheadOfUtc() const {
    const double days = clock_.NowLocal().days - clock_.NowUtc().days;
    return std::llround(days * 24 * 60) * 60;
}

Date CFileInfo::LocalTime(std::int64_t unix_ns) const {
    if (!file_exists_) return Date();
    return DateFromUnixSeconds(WholeSeconds(unix_ns) + SecondsAheadOfUtc());
}

void CFileInfo::SetTime(FileTime which, Date time, std::int64_t& kept_ns) {
    // From the year 1601, where file times begin, to what nanoseconds can count.
    constexpr std::int64_t kFirst = -11644473600;
    constexpr std::int64_t kLast = INT64_MAX / kNanosecondsOfSecond;
    if (!file_exists_ || !IsValidDate(time)) return;
    const std::int64_t seconds = UnixSecondsFromDate(time) - SecondsAheadOfUtc();
    if (seconds < kFirst || seconds > kLast) return;
    const std::int64_t unix_ns = seconds * kNanosecondsOfSecond;
    if (files_.SetTime(full_path_name_, which, unix_ns).ok()) kept_ns = unix_ns;
}

void CFileInfo::Attributes(std::int32_t attributes) {
    // Deliberately without report: what was stored shows in what is read now.
    Drop(files_.SetAttributes(full_path_name_, attributes));
    Refresh();
}

void CFileInfo::SetBit(std::int32_t bit, bool on) {
    Attributes(on ? details_.attributes | bit : details_.attributes & ~bit);
}

std::string CFileInfo::FormatFileDate(Date date) {
    return FormatLongDate(date);
}

std::string CFileInfo::FormatFileSize(std::int32_t size_bytes) {
    return SizeText(size_bytes);
}

}  // namespace trevix
