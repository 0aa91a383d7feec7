// The content of one entry of an archive that lies in a Blob, inflated while it is read, so that
// neither the archive nor the content needs a file.
#pragma once

#include <string>

#include "platform/blob.h"
#include "platform/result.h"

namespace trevix::cli {

// The first entry called `name`. It is meant to be read from the beginning to the end, and checks
// its size and CRC-32 when it comes there: kMalformed for what is damaged. kMalformed as well for
// an archive without that entry.
Result<Blob> OpenZipContent(const Blob& archive, const std::string& name);

}  // namespace trevix::cli
