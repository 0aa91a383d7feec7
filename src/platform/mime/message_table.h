// A table over a message collection.
#pragma once

#include <memory>

#include "platform/messaging.h"

namespace trevix::mime {

std::unique_ptr<MessageTable> MakeMessageTable();

}  // namespace trevix::mime
