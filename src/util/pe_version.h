// The file version that a program carries in its version resource.
#pragma once

#include <string>

#include "platform/blob.h"

namespace trevix {

// "major.minor.build.revision" of a PE image, 32 or 64 bit; empty for everything else, which
// includes an image without a version resource and a damaged one. Reads the few headers that lead
// to the version and nothing more, whatever the image claims.
std::string PeVersionText(const Blob& image);

}  // namespace trevix
