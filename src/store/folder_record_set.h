// The folder record set: one row a folder, telling when it was last treated. It travels with the
// store as "txfolders.zip" on the results message.
#pragma once

#include <string>

#include "shell/bas_ci.h"

namespace trevix {

// Makes sure that the state's gFolderRST is open: from the results message, from a file left in the
// index directory, or new and empty. False when it cannot be opened; it is then closed or null.
bool GetFolderRST(BasCI& state);

// Replaces gFolderRST by a new, empty, open record set. Null when none can be made.
void ResetFolderRST(BasCI& state);

// Zips an ".adtg" file into the same path with ".zip" in place of ".adtg", replacing a file that
// is there. Returns the zip's path, made or not.
std::string ZipRST(BasCI& state, const std::string& adtg_path);

// Whether the state's record set is there and open.
bool IsOpen(const std::unique_ptr<RecordSet>& record_set);

// Makes the folder's record current in an open record set: the one with this FolderID, or, when
// `add` is set, a new one (not yet updated) with the next FolderKey. False when there is none.
bool FindFolderRecord(RecordSet& record_set, const std::string& folder_id, bool add);

}  // namespace trevix
