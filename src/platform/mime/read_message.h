// A message taken apart: its bytes, its parts and what they are.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/blob.h"
#include "platform/mail_store.h"
#include "platform/mime/message_shape.h"
#include "platform/result.h"

namespace trevix::mime {

struct ReadMessage {
    Blob bytes;
    PartTree tree;
    MessageShape shape;

    // False when the store gave an outline: `bytes` then serve for reading the parts' fields and
    // contents, and must not be written back.
    bool exact = true;

    // What is known of attachments' contents without reading them, by their position in the shape.
    std::map<std::size_t, std::uint64_t> decoded_sizes;
    std::map<std::size_t, Blob> decoded;
};

// The bytes of a message of ordinary size, read into memory once; a bigger one stays where it is.
Result<Blob> Held(const Blob& message);

// Takes the message apart. Errors are those of reading and ReadPartTree()'s.
Result<ReadMessage> TakeApart(const Blob& message);
Result<ReadMessage> TakeApart(const MailOutline& outline);

// The data of an attachment that has some of its own in the message. Errors are kDenied for what
// lies in signed or encrypted mail, kNotFound for a link, kMalformed (8004011B) when the transfer
// encoding is damaged.
Result<Blob> AttachmentContent(const ReadMessage& message, const AttachmentPart& attachment);

// Decodes all attachments of a message that lies in memory, for whoever will want them next.
void DecodeAhead(ReadMessage* message);

}  // namespace trevix::mime
