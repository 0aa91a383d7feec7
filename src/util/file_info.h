// CFileInfo: one file's names, type, sizes, times, attributes and version.
//
// Setting FullPathName reads everything at once; the properties then answer from what was read. A
// file that is not there has empty names, no sizes and the zero date. Nothing fails visibly: a time
// or an attribute that cannot be written leaves the file as it is.
//
// What this system does not have reads as the nearest that it has: short names are the long ones,
// the compressed size is the size, there is no icon, the type is told by the extension. A name
// begins behind the last "/".
#pragma once

#include <cstdint>
#include <string>

#include "platform/clock.h"
#include "platform/file_system.h"
#include "platform/variant.h"

namespace trevix {

class CFileInfo {
 public:
    CFileInfo(FileSystem& files, Clock& clock) : files_(files), clock_(clock) {}

    const std::string& FullPathName() const { return full_path_name_; }
    void FullPathName(const std::string& path);

    // Reads the file anew.
    void Refresh();

    const std::string& FileName() const { return details_.name; }
    const std::string& FilePath() const { return file_path_; }  // ends in "/"
    std::string FileExtension() const;                          // empty for a name without "."
    std::string ShortPathName() const { return file_path_ + details_.name; }
    const std::string& ShortName() const { return FileName(); }
    const std::string& ShortPath() const { return FilePath(); }
    const std::string& DisplayName() const { return FileName(); }
    std::string TypeName() const;  // "TXT File"

    bool FileExists() const { return file_exists_; }
    bool PathExists() const { return path_exists_; }

    // The lower and the upper half of a 64-bit number; the lower one is negative from 2 GB on.
    std::int32_t FileSize() const;
    std::int32_t FileSizeHigh() const;
    std::int32_t CompressedFileSize() const { return FileSize(); }
    std::int32_t CompressedFileSizeHigh() const { return FileSizeHigh(); }

    // Local time in whole seconds, by the difference to UTC that holds now, whatever held then.
    Date CreationTime() const { return LocalTime(details_.created_ns); }
    Date LastAccessTime() const { return LocalTime(details_.accessed_ns); }
    Date ModifyTime() const { return LocalTime(details_.modified_ns); }
    void CreationTime(Date time) { SetTime(FileTime::kCreated, time, details_.created_ns); }
    void LastAccessTime(Date time) { SetTime(FileTime::kAccessed, time, details_.accessed_ns); }
    void ModifyTime(Date time) { SetTime(FileTime::kModified, time, details_.modified_ns); }

    // Writing them reads the file anew.
    std::int32_t Attributes() const { return details_.attributes; }
    void Attributes(std::int32_t attributes);

    // One bit each. Writing keeps the other bits as they were read last.
    bool attrReadOnly() const { return HasBit(kAttributeReadOnly); }
    bool attrHidden() const { return HasBit(kAttributeHidden); }
    bool attrSystem() const { return HasBit(kAttributeSystem); }
    bool attrArchive() const { return HasBit(kAttributeArchive); }
    bool attrTemporary() const { return HasBit(kTemporary); }
    bool attrCompressed() const { return HasBit(kCompressed); }
    void attrReadOnly(bool on) { SetBit(kAttributeReadOnly, on); }
    void attrHidden(bool on) { SetBit(kAttributeHidden, on); }
    void attrSystem(bool on) { SetBit(kAttributeSystem, on); }
    void attrArchive(bool on) { SetBit(kAttributeArchive, on); }

    // Accepted and deliberately without effect: these two are for the file system to decide.
    void attrTemporary(bool /*on*/) {}
    void attrCompressed(bool /*on*/) {}

    std::int32_t hIcon() const { return 0; }

    // "5.1.2600.0", the file version of a program's version resource; empty when there is none.
    const std::string& VersionNumber() const { return version_number_; }

    // "Friday, October 5, 2007 3:04:05 PM"
    static std::string FormatFileDate(Date date);

    // "512 bytes", "1.50KB (1,536 bytes)"
    static std::string FormatFileSize(std::int32_t size_bytes);

 private:
    static constexpr std::int32_t kTemporary = 256;
    static constexpr std::int32_t kCompressed = 2048;

    bool HasBit(std::int32_t bit) const { return (details_.attributes & bit) != 0; }
    void SetBit(std::int32_t bit, bool on);
    std::int64_t SecondsAheadOfUtc() const;
    Date LocalTime(std::int64_t unix_ns) const;
    void SetTime(FileTime which, Date time, std::int64_t& kept_ns);

    FileSystem& files_;
    Clock& clock_;
    std::string full_path_name_;
    std::string file_path_;
    FileDetails details_;
    bool file_exists_ = false;
    bool path_exists_ = false;
    std::string version_number_;
};

}  // namespace trevix
