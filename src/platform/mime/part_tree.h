// The structure of a message: a flat list of parts with their exact byte ranges.
//
// The first part is the message itself; parents come before their children, children in document
// order. A message/rfc822 part is a leaf: what is inside is that message's own affair.
//
//     "--b" line | header block [header_begin, content_begin) | content [content_begin,
//     content_end)
//
// The content ends before the line end that precedes the next boundary line, which belongs to the
// boundary.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/blob.h"
#include "platform/mime/parameters.h"
#include "platform/mime/transfer_codec.h"

namespace trevix::mime {

// The parent of the message itself.
inline constexpr int kNoParent = -1;

struct MimePart {
    int parent = kNoParent;
    std::vector<int> children;

    std::uint64_t boundary_begin = 0;  // of the boundary line before; the header's for part 0
    std::uint64_t header_begin = 0;
    std::uint64_t content_begin = 0;
    std::uint64_t content_end = 0;
    std::uint64_t next_boundary = 0;  // the boundary line that ended the part, or the input's end
    bool ended_by_boundary = false;
    // That line belonged to the parent, so a sibling or the parent's end follows it.
    bool ended_by_parent = false;
    bool closed = false;  // a multipart whose closing boundary line was found

    std::string header;        // the block's bytes, blank line included
    bool header_ended = true;  // the blank line was found

    Parameterized type;         // never empty: the default of the place when none is given
    bool has_type = false;      // a usable Content-Type was given
    Parameterized disposition;  // empty word when none was given
    std::string encoding_name;
    TransferEncoding encoding = TransferEncoding::kIdentity;
    std::string boundary;    // of a multipart that was taken apart
    std::string content_id;  // without its angle brackets; empty when there is none

    bool IsMultipart() const { return !boundary.empty(); }
    bool IsType(std::string_view word) const { return type.word == word; }
    bool IsText() const { return type.word.starts_with("text/"); }
    // Any disposition word but "inline" means an attachment.
    bool IsAttachmentByDisposition() const {
        return !disposition.word.empty() && disposition.word != "inline";
    }
};

struct PartTree {
    std::vector<MimePart> parts;

    // Why another program may see other parts than these; empty when there is no doubt. A doubtful
    // message is read but never written.
    std::string doubt;
};

struct PartLimits {
    int depth = 100;  // multiparts around a part
    std::size_t parts = 10'000;
    std::uint64_t header_bytes = std::uint64_t{50} * 1024 * 1024;
};

// Reads the message once, front to back. A message without multiparts is read no further than its
// header. kMalformed (8004011B) with a reason when a limit is passed: nobody writes such mail, and
// it must not cost the run its memory.
Result<PartTree> ReadPartTree(const Blob& message, const PartLimits& limits = {});

}  // namespace trevix::mime
