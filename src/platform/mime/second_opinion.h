// A second, independent reading of a message's structure, asked for before anything is written.
#pragma once

#include "platform/mime/part_tree.h"

namespace trevix::mime {

// Parses `message` with GMime and compares the parts and their ranges with `tree`. Empty when they
// agree; otherwise what is different, and then nobody may write into the message: if two careful
// readers see different parts, a mail program may see a third thing.
Result<std::string> DisagreementOn(const Blob& message, const PartTree& tree);

}  // namespace trevix::mime
