// Any bytes as a message: its structure, its attachments, and edits of them. Whatever an edit does,
// the parts that it does not concern keep their bytes.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/mime/decoded_blob.h"
#include "platform/mime/message_class.h"
#include "platform/mime/second_opinion.h"
#include "platform/mime/splice.h"

namespace trevix::mime {
namespace {

void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

void CheckRanges(const PartTree& tree, std::uint64_t size) {
    for (const MimePart& part : tree.parts) {
        Require(part.header_begin <= part.content_begin, "header before content");
        Require(part.content_begin <= part.content_end, "content is a range");
        Require(part.content_end <= part.next_boundary, "boundary behind content");
        Require(part.next_boundary <= size, "inside the message");
        std::uint64_t at = part.content_begin;
        for (const int child : part.children) {
            const MimePart& inner = tree.parts[static_cast<std::size_t>(child)];
            Require(inner.boundary_begin >= at, "children in order");
            Require(inner.content_end <= part.next_boundary, "children inside");
            at = inner.content_end;
        }
    }
}

std::string ContentOf(const ReadMessage& message, const AttachmentPart& attachment) {
    const MimePart& part = message.tree.parts[static_cast<std::size_t>(attachment.part)];
    return message.bytes.Slice(part.content_begin, part.content_end - part.content_begin)
        .ToString()
        .value();
}

void DecodeAll(const ReadMessage& message) {
    for (const AttachmentPart& attachment : message.shape.attachments) {
        const MimePart& part = message.tree.parts[static_cast<std::size_t>(attachment.part)];
        const Result<Blob> data = DecodeBlob(
            message.bytes.Slice(part.content_begin, part.content_end - part.content_begin),
            part.encoding);
        if (data.ok()) Require(data.value().ToString().ok(), "what decodes once decodes again");
        Require(!attachment.name.empty(), "attachments have names");
        Require(attachment.name.find('/') == std::string::npos, "names are no paths");
    }
}

void Edit(const ReadMessage& message, std::uint32_t choice) {
    std::vector<AttachmentEdit> edits;
    std::vector<std::string> untouched;
    for (std::size_t i = 0; i < message.shape.attachments.size(); ++i) {
        const AttachmentPart& attachment = message.shape.attachments[i];
        const std::uint32_t what = choice >> (2 * (i % 16)) & 3U;
        AttachmentEdit edit;
        edit.attachment = i;
        if (what == 1 && ReplaceRefusal(message.tree, attachment).empty()) {
            edit.data = Blob::FromString(std::string(i * 40 + 3, 'z'));
            edit.name = "new.zip";
        } else if (what == 2 && DeleteRefusal(message.tree, attachment).empty()) {
            edit.deleted = true;
        } else if (what == 3 && ReplaceRefusal(message.tree, attachment).empty()) {
            edit.name = "new.name";
        } else {
            untouched.push_back(ContentOf(message, attachment));
            continue;
        }
        edits.push_back(edit);
    }
    if (edits.empty()) return;
    const std::vector<Splice> splices = PlanSplices(message, edits);
    for (std::size_t i = 1; i < splices.size(); ++i) {
        Require(splices[i - 1].end <= splices[i].begin, "splices are apart");
    }
    const Blob composed = ApplySplices(message.bytes, splices);
    HelperThread helper;
    const Result<ReadMessage> now =
        ReadBackEdited(message, edits, splices, composed, composed, helper);
    if (!now.ok()) return;
    std::vector<std::string> kept;
    std::size_t next_edit = 0;
    std::size_t at = 0;
    for (std::size_t i = 0; i < message.shape.attachments.size(); ++i) {
        const bool edited = next_edit < edits.size() && edits[next_edit].attachment == i;
        const bool deleted = edited && edits[next_edit].deleted;
        if (edited) ++next_edit;
        if (deleted) continue;
        const std::string content = ContentOf(now.value(), now.value().shape.attachments[at++]);
        if (!edited) kept.push_back(content);
    }
    Require(kept == untouched, "untouched attachments keep their bytes");
}

void TryMessage(const std::uint8_t* data, std::size_t size) {
    std::uint32_t choice = 0x1B;
    for (std::size_t i = 0; i < size; ++i)
        choice = choice * 31 + data[i];
    ReadMessage message;
    message.bytes = Blob::FromString(std::string(reinterpret_cast<const char*>(data), size));
    Result<PartTree> tree = ReadPartTree(message.bytes);
    if (!tree.ok()) return;
    message.tree = std::move(tree).value();
    CheckRanges(message.tree, size);
    message.shape = ShapeOf(message.tree);
    Require(!MessageClassOf(message.bytes, message.tree, message.shape).empty(), "has a class");
    DecodeAll(message);
    if (!message.tree.doubt.empty()) return;
    const Result<std::string> difference = DisagreementOn(message.bytes, message.tree);
    if (difference.ok() && difference.value().empty()) Edit(message, choice);
}

}  // namespace
}  // namespace trevix::mime

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    trevix::mime::TryMessage(data, size);
    return 0;
}
