// An attachment of a stored message: reads from the message, collects edits for its next Update().
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "platform/messaging.h"
#include "platform/mime/splice.h"

namespace trevix::mime {

// What a message knows of one of its attachments. The attachment objects that were handed out share
// it, so that they stay right when the message is saved and read anew.
struct AttachmentSlot {
    std::size_t index = 0;  // in MessageShape::attachments
    std::string name;
    std::string short_name;       // as set; else derived
    bool deleted = false;         // in this object, stored or not
    std::optional<Blob> data;     // new data that is not stored yet
    bool renamed = false;         // the name is not stored yet
    std::optional<Blob> decoded;  // what the stored data decodes to
};

using SlotList = std::vector<std::shared_ptr<AttachmentSlot>>;

// What an attachment needs of its message.
class AttachmentOwner {
 public:
    virtual ~AttachmentOwner() = default;
    virtual const ReadMessage& Content() = 0;
    // The content IDs that the HTML body shows. Read once.
    virtual const std::set<std::string>& ShownIds() = 0;
    // Why nothing may be written into the message at all; empty when it may. Asks the second
    // reader the first time.
    virtual Result<std::string> WriteDoubt() = 0;
    // Lets the second reader begin: the message is likely to be written to.
    virtual void ExpectWrite() = 0;
    virtual SlotList& Slots() = 0;
};

std::unique_ptr<Attachment> MakeMailAttachment(AttachmentOwner& owner,
                                               std::shared_ptr<AttachmentSlot> slot);

}  // namespace trevix::mime
