// The decoded content of a part as a Blob that decodes on reading.
#pragma once

#include "platform/blob.h"
#include "platform/mime/transfer_codec.h"

namespace trevix::mime {

// Reads `encoded` once, to prove that it decodes exactly and to learn its size. What comes from
// memory is decoded into memory; of anything else nothing is held but one offset for each 64 KiB.
// kMalformed (8004011B) when it does not decode exactly.
Result<Blob> DecodeBlob(const Blob& encoded, TransferEncoding encoding);

}  // namespace trevix::mime
