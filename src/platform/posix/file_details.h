// Attributes and times of files.
//
// The bits that a POSIX file does not have are kept as text ("0x22") in the extended attribute
// "user.trevix.attributes".
#pragma once

#include <cstdint>
#include <string>

#include "platform/file_system.h"

namespace trevix::posix {

// The three as FileSystem says. Links are followed.
Result<FileDetails> ReadFileDetails(const std::string& path);
Status WriteFileAttributes(const std::string& path, std::int32_t attributes);
Status WriteFileTime(const std::string& path, FileTime which, std::int64_t unix_ns);

}  // namespace trevix::posix
