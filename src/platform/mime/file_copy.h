// Attachments to and from files.
#pragma once

#include <string>

#include "platform/blob.h"

namespace trevix::mime {

// Writes `bytes` to a new file: mode 0600, never through a link, never over anything. On any error
// no file is left. Errors of the file carry run-time numbers, errors of the bytes are passed on.
Status WriteNewFile(const std::string& path, const Blob& bytes);

// The whole file, read at once, at most 2 GiB.
Result<Blob> ReadWholeFile(const std::string& path);

}  // namespace trevix::mime
