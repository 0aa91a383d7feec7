// The class of a message, from its structure.
#pragma once

#include <string>

#include "platform/blob.h"
#include "platform/mime/message_shape.h"

namespace trevix::mime {

// Never empty. Reads the beginning of a report's or a calendar's content, nothing else.
std::string MessageClassOf(const Blob& message, const PartTree& tree, const MessageShape& shape);

}  // namespace trevix::mime
