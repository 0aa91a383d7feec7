// Editing a message by splicing: the new message is the old one's bytes with some ranges replaced.
//
// Nothing is parsed and printed again, so whatever is not edited stays byte for byte as it was,
// odd or wrong as it may be.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/blob.h"
#include "platform/helper_thread.h"
#include "platform/mime/read_message.h"

namespace trevix::mime {

// What is to happen to one attachment of the shape.
struct AttachmentEdit {
    std::size_t attachment = 0;  // position in MessageShape::attachments, from 0
    bool deleted = false;
    std::optional<Blob> data;
    std::optional<std::string> name;
};

// One replaced range of the old message.
struct Splice {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    Blob bytes;
};

// The ranges to replace, in order and apart from each other. The edits must be allowed
// (ReplaceRefusal, DeleteRefusal).
std::vector<Splice> PlanSplices(const ReadMessage& message,
                                const std::vector<AttachmentEdit>& edits);

Blob ApplySplices(const Blob& message, const std::vector<Splice>& splices);

// Reads `stored`, what the store holds of the composed bytes, and proves that it is the old message
// with exactly these edits: the same bytes as composed; the same parts at the places they must
// have, also in the eyes of the second reader; the new content decoding to what was given; the same
// body and the same attachments. What it read, or the reason why the message must not be
// replaced (kDenied), or a read error.
// The second reader reads on the helper thread meanwhile.
Result<ReadMessage> ReadBackEdited(const ReadMessage& old, const std::vector<AttachmentEdit>& edits,
                                   const std::vector<Splice>& splices, const Blob& composed,
                                   const Blob& stored, HelperThread& helper);

}  // namespace trevix::mime
