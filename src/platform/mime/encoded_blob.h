// Bytes as base64 text, encoded on reading.
#pragma once

#include "platform/blob.h"

namespace trevix::mime {

// Lines of 76 characters, parted by `newline` ("\n" or "\r\n"), none behind the last line: that one
// belongs to the boundary that follows.
Blob EncodeBlob(const Blob& plain, const std::string& newline);

}  // namespace trevix::mime
