// The messages of a mail folder as a collection.
#pragma once

#include <memory>

#include "platform/messaging.h"
#include "platform/mime/open_stores.h"
#include "platform/mime/property_message.h"

namespace trevix::mime {

// Lists the folder; the collection is what was there at this moment. A folder that only holds other
// folders gives an empty one.
Result<std::unique_ptr<Messages>> ListMailMessages(std::shared_ptr<OpenStore> store,
                                                   const FolderNode& folder);

// Where the hidden messages of a folder are; only the Inbox has any.
PropertyFolder HiddenFolderOf(std::shared_ptr<OpenStores> session,
                              const std::shared_ptr<OpenStore>& store, const FolderNode& folder);

}  // namespace trevix::mime
