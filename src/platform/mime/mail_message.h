// A stored mail message as a messaging object.
#pragma once

#include <memory>

#include "platform/messaging.h"
#include "platform/mime/open_stores.h"
#include "platform/mime/splice.h"

namespace trevix::mime {

// Where a message lies, and the open store behind it.
struct MailPlace {
    std::shared_ptr<OpenStores> session;  // keeps the store alive
    std::shared_ptr<OpenStore> store;
    std::string folder;     // path
    std::string folder_id;  // bytes
};

// Reads and parses the message. kGone when it is not there any more, kMalformed (8004011B) with the
// reason for one that passes a limit.
Result<std::unique_ptr<Message>> OpenMailMessage(MailPlace place, const MessageSummary& summary);

}  // namespace trevix::mime
