// From the lists of a BODYSTRUCTURE to parts.
#pragma once

#include <string>

#include "platform/imap/body_structure.h"
#include "platform/imap/tokens.h"

namespace trevix::imap {

// Fills `part`. What is wrong with the value, in a few words; empty when nothing is. NIL stands for
// what is not known wherever that can be borne: a part without a type or a size is a part still.
std::string ParseStructure(const Value& value, BodyPart& part);

}  // namespace trevix::imap
