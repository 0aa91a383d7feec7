// Files and directories as the core uses them.
//
// Paths are UTF-8 and '/' separated; directory paths that the component keeps end in "/".
// Errors carry run-time numbers (errors.h): 53 no such file, 57 device, 61 disk full, 67 too many
// files, 70 no permission, 75 path/file access, 76 no such directory.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/blob.h"
#include "platform/result.h"

namespace trevix {

// A directory of one message's temporary files: empty at first, mode 0700, nobody else's. All that
// is in it is removed when this object goes; the directory itself with the file system object at
// the latest.
class StagingDirectory {
 public:
    virtual ~StagingDirectory() = default;
    virtual const std::string& path() const = 0;  // ends in "/"
};

// Attributes of a file.
inline constexpr std::int32_t kAttributeReadOnly = 1;
inline constexpr std::int32_t kAttributeHidden = 2;
inline constexpr std::int32_t kAttributeSystem = 4;
inline constexpr std::int32_t kAttributeDirectory = 16;
inline constexpr std::int32_t kAttributeArchive = 32;

enum class FileTime { kCreated, kAccessed, kModified };

// What the file system says of one file or directory.
struct FileDetails {
    std::string name;             // without its directory, as the file system spells it
    std::int32_t attributes = 0;  // kAttribute...
    std::uint64_t size_bytes = 0;
    std::int64_t created_ns = 0;  // nanoseconds since 1970-01-01 UTC, as are the next two
    std::int64_t accessed_ns = 0;
    std::int64_t modified_ns = 0;
};

class FileSystem {
 public:
    virtual ~FileSystem() = default;

    // Anything of that name that is (not) a directory. A path that cannot be examined is absent.
    virtual bool FileExists(const std::string& path) = 0;
    virtual bool DirectoryExists(const std::string& path) = 0;

    virtual Result<std::uint64_t> FileSize(const std::string& path) = 0;

    // A file or directory; a path that ends in "/" names neither: 53.
    virtual Result<FileDetails> FindFile(const std::string& path) = 0;

    // Read-only is the permission to write. The bits hidden, system and archive are kept beside the
    // file where its file system can; where it cannot, storing others than it has is kUnsupported
    // and changes nothing. All other bits are ignored. A name that begins with "." is hidden
    // always, a file that was never given attributes has the archive bit.
    virtual Status SetAttributes(const std::string& path, std::int32_t attributes) = 0;

    // Sets one of the three times and leaves the others. kUnsupported for a time that the file
    // system gives to a file once and for all (often the time of its creation).
    virtual Status SetTime(const std::string& path, FileTime which, std::int64_t unix_ns) = 0;

    // The bytes of a file as they are now, read on demand; the file may be deleted afterwards.
    virtual Result<Blob> OpenBlob(const std::string& path) = 0;

    virtual Result<std::string> ReadText(const std::string& path) = 0;

    // Replaces the file's content, creating it (mode 0600) when it is missing.
    virtual Status WriteText(const std::string& path, const std::string& text) = 0;

    // The same, but the text goes behind what is there. Creates an empty file for an empty text.
    virtual Status AppendText(const std::string& path, const std::string& text) = 0;

    virtual Status Delete(const std::string& path) = 0;

    // One level, mode 0700. 75 when it exists, 76 when its parent does not.
    virtual Status MakeDirectory(const std::string& path) = 0;

    // A private directory for this user below the system's temporary path, ending in "/"; made on
    // the first call. Empty when it cannot be made or is not safely ours: 70 or 76 from the calls
    // that then follow say so.
    virtual std::string TemporaryPath() = 0;

    // Where the files installed beside the program lie, without a final separator.
    virtual std::string InstallationDirectory() = 0;

    // A new staging directory below `parent` (which exists). Its files are created exclusively and
    // without following links, by whoever writes them.
    virtual Result<std::unique_ptr<StagingDirectory>> MakeStaging(const std::string& parent) = 0;

    // Removes the staging directories below `parent` whose process is dead. Failures are of no
    // consequence: what could not be removed is never used again.
    virtual void SweepStaging(const std::string& parent) = 0;
};

}  // namespace trevix
