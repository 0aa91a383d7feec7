#include "platform/mime/read_message.h"

#include <utility>

#include "platform/errors.h"
#include "platform/mime/ascii.h"
#include "platform/mime/decoded_blob.h"
#include "platform/mime/header_block.h"

namespace trevix::mime {
namespace {

// Where a byte of the skeleton lies once the contents have taken their gaps' places.
class Stretch {
 public:
    explicit Stretch(const std::vector<MailOutline::Gap>& gaps) : gaps_(gaps) {}

    std::uint64_t operator()(std::uint64_t offset) const {
        std::uint64_t moved = offset;
        for (const MailOutline::Gap& gap : gaps_) {
            if (gap.offset >= offset) break;
            moved += gap.content.size_bytes() - 1;  // modulo 2^64, as an empty content needs it
        }
        return moved;
    }

    void Move(MimePart* part) const {
        for (std::uint64_t* offset :
             {&part->boundary_begin, &part->header_begin, &part->content_begin, &part->content_end,
              &part->next_boundary}) {
            *offset = (*this)(*offset);
        }
    }

 private:
    const std::vector<MailOutline::Gap>& gaps_;
};

// The leaf whose content is the gap's one byte; -1 when there is none.
int LeafAt(const PartTree& tree, std::uint64_t offset) {
    for (std::size_t i = 0; i < tree.parts.size(); ++i) {
        const MimePart& part = tree.parts[i];
        const bool here = part.content_begin == offset && part.content_end == offset + 1;
        if (here && !part.IsMultipart()) return static_cast<int>(i);
    }
    return -1;
}

Blob Filled(const MailOutline& outline) {
    std::vector<Blob> pieces;
    std::uint64_t offset = 0;
    for (const MailOutline::Gap& gap : outline.gaps) {
        pieces.push_back(outline.skeleton.Slice(offset, gap.offset - offset));
        pieces.push_back(gap.content);
        offset = gap.offset + 1;
    }
    pieces.push_back(outline.skeleton.Slice(offset, outline.skeleton.size_bytes() - offset));
    return Blob::Join(std::move(pieces));
}

// The file that stands for a document on a file server.
std::string ShortcutText(const MimePart& part) {
    std::string url = "ftp://" + part.type.Parameter("site") + "/";
    const std::string directory = part.type.Parameter("directory");
    if (!directory.empty()) url += directory + "/";
    url += part.type.Parameter("name");
    const std::string mode = AsciiLower(part.type.Parameter("mode"));
    if (mode == "ascii") url += ";type=a";
    if (mode == "image") url += ";type=i";
    return "[InternetShortcut]\r\nURL=" + url + "\r\n";
}

}  // namespace

Result<Blob> Held(const Blob& message) {
    constexpr std::uint64_t kOrdinaryBytes = std::uint64_t{8} * 1024 * 1024;
    if (message.size_bytes() > kOrdinaryBytes || message.in_memory() != nullptr) return message;
    Result<std::string> bytes = message.ToString();
    if (!bytes.ok()) return bytes.error();
    return Blob::FromString(std::move(bytes).value());
}

Result<ReadMessage> TakeApart(const Blob& message) {
    Result<PartTree> tree = ReadPartTree(message);
    if (!tree.ok()) return tree.error();
    ReadMessage read;
    read.bytes = message;
    read.tree = std::move(tree).value();
    read.shape = ShapeOf(read.tree);
    return read;
}

Result<ReadMessage> TakeApart(const MailOutline& outline) {
    Result<ReadMessage> read = TakeApart(outline.skeleton);
    if (!read.ok()) return read;
    ReadMessage& message = read.value();
    message.exact = outline.exact;
    if (outline.gaps.empty()) return read;

    std::map<int, std::uint64_t> sizes;
    for (const MailOutline::Gap& gap : outline.gaps) {
        const int leaf = LeafAt(message.tree, gap.offset);
        if (leaf < 0) return MessagingError(kCorruptData, "an outline that contradicts itself");
        if (gap.decoded_bytes.has_value()) sizes[leaf] = *gap.decoded_bytes;
    }
    const Stretch stretch(outline.gaps);
    for (MimePart& part : message.tree.parts)
        stretch.Move(&part);
    message.bytes = Filled(outline);
    for (std::size_t i = 0; i < message.shape.attachments.size(); ++i) {
        const AttachmentPart& attachment = message.shape.attachments[i];
        const bool is_content = attachment.kind != AttachmentKind::kShortcut &&
                                attachment.kind != AttachmentKind::kEntirePart;
        const auto size = sizes.find(attachment.part);
        if (is_content && size != sizes.end()) message.decoded_sizes[i] = size->second;
    }
    return read;
}

Result<Blob> AttachmentContent(const ReadMessage& message, const AttachmentPart& attachment) {
    const std::string protection = ProtectionOf(message.tree, attachment.part);
    if (!protection.empty()) return MessagingError(kNoAccess, protection);
    const MimePart& part = message.tree.parts[static_cast<std::size_t>(attachment.part)];
    const auto slice = [&](std::uint64_t begin) {
        return message.bytes.Slice(begin, part.content_end - begin);
    };
    switch (attachment.kind) {
        // A link has no data of its own.
        case AttachmentKind::kLink: return MessagingError(kNotFound);
        case AttachmentKind::kShortcut: return Blob::FromString(ShortcutText(part));
        case AttachmentKind::kEntirePart: return slice(part.header_begin);
        default: break;
    }
    // Two different encodings cannot both be right.
    if (AllFields(part.header, "Content-Transfer-Encoding").size() > 1) {
        return MessagingError(kCorruptData, "the transfer encoding is given twice");
    }
    return DecodeBlob(slice(part.content_begin), part.encoding);
}

void DecodeAhead(ReadMessage* message) {
    if (message->bytes.in_memory() == nullptr) return;
    for (std::size_t i = 0; i < message->shape.attachments.size(); ++i) {
        // What fails here fails again for whoever asks, and says why.
        Result<Blob> content = AttachmentContent(*message, message->shape.attachments[i]);
        if (content.ok()) message->decoded[i] = std::move(content).value();
    }
}

}  // namespace trevix::mime
