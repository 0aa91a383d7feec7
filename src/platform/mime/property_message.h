// A message that is a bag of properties and attachments: hidden messages and those of the Outbox.
#pragma once

#include <memory>

#include "platform/messaging.h"
#include "platform/mime/open_stores.h"
#include "platform/mime/row_set.h"

namespace trevix::mime {

// Where messages of this kind live.
struct PropertyFolder {
    std::shared_ptr<OpenStores> session;  // keeps the store and the names alive
    HiddenMailStore* mails = nullptr;     // null: a folder that cannot have any
    std::string folder_id;                // bytes
};

std::unique_ptr<Message> OpenPropertyMessage(PropertyFolder folder, HiddenMail mail);

// All messages of the folder; Add() makes new ones.
std::unique_ptr<Messages> ListPropertyMessages(PropertyFolder folder);

}  // namespace trevix::mime
