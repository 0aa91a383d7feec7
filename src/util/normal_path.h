// The normal form of a folder's path: each name as the file system spells it.
#pragma once

#include <functional>
#include <string>

#include "platform/file_system.h"
#include "platform/result.h"

namespace trevix {

// Looks one file or directory up, as FileSystem::FindFile does.
using FindFile = std::function<Result<FileDetails>(const std::string& path)>;

// `path` without its final separator, each component looked up and replaced by the name found. The
// walk ends at the first one that is missing or no directory, and the result is what lies before.
// Kept as they are: a server and its share ("\\server\share"). With the separator "\", where case
// means nothing, a drive letter, a drive root ("c:\", which keeps its separator) and a path of one
// component come back in upper case without a look. No component is looked up twice.
std::string NormalizePath(const std::string& path, char separator, const FindFile& find);

}  // namespace trevix
