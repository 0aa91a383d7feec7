// What the parts of a message are: which one is its text, which ones are attachments, and which
// of those may be written.
#pragma once

#include <string>
#include <vector>

#include "platform/mime/part_tree.h"

namespace trevix::mime {

enum class AttachmentKind {
    kFile,             // an ordinary part
    kMessage,          // an attached message
    kShortcut,         // an external body on a file server: a shortcut file
    kLink,             // an external body that is a path or an address
    kEntirePart,       // any other external body: the part itself, header and all
    kTnef,             // a container that only its own kind of client can open
    kProtectedMessage  // a signed or encrypted message as a whole
};

struct AttachmentPart {
    int part = 0;  // the part that holds the data
    // The part that goes when the attachment is deleted; differs for a pair of Macintosh forks.
    int whole = 0;
    AttachmentKind kind = AttachmentKind::kFile;
    std::string name;
};

struct MessageShape {
    int body = -1;  // the leaf that is the text; -1 when there is none
    std::vector<AttachmentPart> attachments;
};

// `tree` has at least one part.
MessageShape ShapeOf(const PartTree& tree);

// Whether the message holds anything that Cryptographic Message Syntax or OpenPGP protects as a
// whole: the message is signed or encrypted at its top.
bool IsProtectedAtTop(const PartTree& tree);

// Why nothing inside this part may be read or written (it lies in a signed or encrypted part, or is
// one); empty when it is free.
std::string ProtectionOf(const PartTree& tree, int part);

// Why the part's data may not be replaced, or the attachment not deleted; empty when it may.
std::string ReplaceRefusal(const PartTree& tree, const AttachmentPart& attachment);
std::string DeleteRefusal(const PartTree& tree, const AttachmentPart& attachment);

// The first part of a multipart/related, or the one that its "start" parameter names; -1 when
// empty.
int RelatedRoot(const PartTree& tree, int related);

}  // namespace trevix::mime
