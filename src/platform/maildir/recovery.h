// Finishing what dead processes left of their replacements.
#pragma once

#include "platform/maildir/folder_tree.h"

namespace trevix::maildir {

// Replays and removes every journal in the root whose process is dead, and sweeps its files from
// the folders' tmp directories. Never fails: what cannot be finished now stays, with its journal,
// for the next opening, and until then both files of a replacement are there, each whole.
void Recover(int root, const FolderTree& tree);

// Whether the root holds any journal at all.
bool HasJournals(int root);

}  // namespace trevix::maildir
