// Finishing what dead processes and cut connections left of their replacements.
#pragma once

#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/imap/link.h"

namespace trevix::imap {

// Finishes every replacement that the journals of dead processes hold of this store, and removes
// those journals. Never fails: what cannot be finished now stays, with its journal, for the next
// opening, and until then both messages of a replacement are there, each whole. What a person
// should know comes back, a sentence each.
std::vector<std::string> Recover(Link& link, const std::string& journal_directory,
                                 const std::string& store_address, Clock& clock);

}  // namespace trevix::imap
