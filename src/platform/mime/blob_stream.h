// A Blob as a GMime stream, so that GMime reads messages of any size from any source.
#pragma once

#include <gmime/gmime.h>

#include "platform/blob.h"

namespace trevix::mime {

// The caller owns the reference. A read error ends the stream; BlobStreamFailed() tells.
GMimeStream* NewBlobStream(const Blob& blob);
bool BlobStreamFailed(GMimeStream* stream);

}  // namespace trevix::mime
