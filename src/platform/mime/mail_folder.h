// Folders and info stores as messaging objects.
#pragma once

#include <memory>

#include "platform/messaging.h"
#include "platform/mime/open_stores.h"

namespace trevix::mime {

// The folder at this position of the store's tree, as the tree is now.
Result<std::unique_ptr<Folder>> MakeMailFolder(std::shared_ptr<OpenStores> session,
                                               std::shared_ptr<OpenStore> store, int position);

// The folder of temporary messages.
std::unique_ptr<Folder> MakeOutbox(std::shared_ptr<OpenStores> session);

std::unique_ptr<InfoStore> MakeInfoStore(std::shared_ptr<OpenStores> session,
                                         std::shared_ptr<OpenStore> store);

}  // namespace trevix::mime
