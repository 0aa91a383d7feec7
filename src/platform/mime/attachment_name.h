// Names of attachments: found in the headers, made safe, shortened.
#pragma once

#include <string>
#include <string_view>

#include "platform/mime/message_shape.h"

namespace trevix::mime {

// The attachment's name: from the headers, or made up from its position and type, so that it is
// never empty and the same at each reading.
std::string AttachmentName(const PartTree& tree, const AttachmentPart& attachment, int position);

// A name that is one component of a path on any system: without folders, control characters and
// separators, at most 255 UTF-16 units, the extension kept. Empty when nothing is left.
std::string SafeAttachmentName(std::string_view name);

// The name in the form of 8 + 3 characters.
std::string ShortNameOf(std::string_view name);

// The last "." and what follows; empty without a ".".
std::string ExtensionOf(std::string_view name);

}  // namespace trevix::mime
