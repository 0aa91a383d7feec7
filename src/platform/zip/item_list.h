// The item list of the zip engine, and the entry names made from it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/zip/error_codes.h"

namespace trevix::zip_engine {

// Names in double quotes, separated by blanks; text without any quote is one name. A missing
// closing quote is forgiven. kNothingToDo for no name at all, kBadCommand for an empty name among
// others, a NUL, or text that stands outside quotes.
Code ParseItemList(std::string_view list, std::vector<std::string>* names);

// The name of the entry for an item: its base name, or its whole path without the leading "/". A
// "\" becomes "_", because other systems would take it for a folder. kBadCommand when no name
// remains that can be extracted safely.
Code EntryNameOf(const std::string& item, bool keep_folders, std::string* name);

}  // namespace trevix::zip_engine
