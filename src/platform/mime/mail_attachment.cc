#include "platform/mime/mail_attachment.h"

#include <algorithm>
#include <limits>

#include "platform/mime/ascii.h"
#include "platform/mime/attachment_name.h"
#include "platform/mime/dates.h"
#include "platform/mime/decoded_blob.h"
#include "platform/mime/file_copy.h"
#include "platform/mime/header_block.h"
#include "platform/mime/header_text.h"
#include "platform/mime/html_body.h"
#include "platform/mime/row_set.h"

namespace trevix::mime {
namespace {

Error Refused(const std::string& why) {
    return MessagingError(kNoAccess, why);
}

// Whether the link is a file on a named machine, which others can open too; any other path or
// address means something only to whoever wrote it.
bool IsOnFileServer(const MimePart& part) {
    if (AsciiLower(part.type.Parameter("access-type")) != "local-file") return false;
    const std::string path = part.type.Parameter("name");
    return path.starts_with("\\\\") || path.starts_with("//") ||
           !part.type.Parameter("site").empty();
}

class MailAttachment final : public Attachment {
 public:
    MailAttachment(AttachmentOwner& owner, std::shared_ptr<AttachmentSlot> slot)
        : owner_(owner), slot_(std::move(slot)) {}

    Result<int> Type() override {
        switch (Info().kind) {
            case AttachmentKind::kMessage: return kAttachmentEmbeddedMessage;
            case AttachmentKind::kLink: return kAttachmentFileLink;
            case AttachmentKind::kTnef: return kAttachmentOle;
            default: return kAttachmentFileData;
        }
    }

    Result<std::string> Name() override { return slot_->name; }

    Status SetName(const std::string& name) override {
        TREVIX_RETURN_IF_ERROR(CheckReplaceable());
        std::string safe = SafeAttachmentName(name);
        if (safe.empty()) return MessagingError(kInvalidParameter, "an empty attachment name");
        if (safe == slot_->name) return {};
        slot_->name = std::move(safe);
        slot_->renamed = true;
        return {};
    }

    Result<std::int32_t> Size() override {
        const Result<std::uint64_t> size = ExactSize();
        if (!size.ok()) return size.error();
        return static_cast<std::int32_t>(
            std::min<std::uint64_t>(size.value(), std::numeric_limits<std::int32_t>::max()));
    }

    Result<Variant> Field(PropertyTag tag) override {
        switch (CanonicalTag(tag)) {
            case kTagAttachmentData: {
                Result<Blob> data = Data();
                if (!data.ok()) return data.error();
                return Variant(std::move(data).value());
            }
            case kTagAttachmentSize: {
                const Result<std::int32_t> size = Size();
                if (!size.ok()) return size.error();
                return Variant(size.value());
            }
            case kTagAttachmentLongName: return Variant(slot_->name);
            case kTagAttachmentShortName:
                return Variant(slot_->short_name.empty() ? ShortNameOf(slot_->name)
                                                         : slot_->short_name);
            case kTagAttachmentExtension: return Variant(ExtensionOf(slot_->name));
            case kTagDisplayName: return Variant(DisplayName());
            case kTagAttachmentMethod: return Variant(std::int32_t{Method()});
            case kTagAttachmentContentId: return ContentId();
            case kTagLastModification: return ModificationDate();
            // MIME has no pictures of attachments.
            default: return MessagingError(kNotFound);
        }
    }

    Status SetField(PropertyTag tag, const Variant& value) override {
        switch (CanonicalTag(tag)) {
            case kTagAttachmentData: {
                const auto* data = std::get_if<Blob>(&value);
                if (data == nullptr) return MessagingError(kInvalidParameter);
                TREVIX_RETURN_IF_ERROR(CheckReplaceable());
                slot_->data = *data;
                return {};
            }
            case kTagAttachmentLongName: {
                const auto* name = std::get_if<std::string>(&value);
                if (name == nullptr) return MessagingError(kInvalidParameter);
                return SetName(*name);
            }
            case kTagAttachmentShortName: {
                const auto* name = std::get_if<std::string>(&value);
                if (name == nullptr) return MessagingError(kInvalidParameter);
                slot_->short_name = *name;
                return {};
            }
            // Derived from the name, or a picture: accepted and not kept.
            case kTagAttachmentExtension:
            case kTagAttachmentRendering: return {};
            default: return MessagingError(kNoSupport);
        }
    }

    Status WriteToFile(const std::string& path) override {
        const Result<Blob> data = Data();
        if (!data.ok()) return data.error();
        owner_.ExpectWrite();  // attachments are taken out to come back smaller
        return WriteNewFile(path, data.value());
    }

    Status Delete() override {
        if (slot_->deleted) return MessagingError(kObjectDeleted);
        const std::string why = DeleteRefusal(owner_.Content().tree, Info());
        if (!why.empty()) return Refused(why);
        TREVIX_RETURN_IF_ERROR(CheckDoubt());
        slot_->deleted = true;
        std::erase(owner_.Slots(), slot_);
        return {};
    }

    int Index() override {
        const SlotList& slots = owner_.Slots();
        const auto found = std::find(slots.begin(), slots.end(), slot_);
        return found == slots.end() ? 0 : static_cast<int>(found - slots.begin()) + 1;
    }

 private:
    const AttachmentPart& Info() { return owner_.Content().shape.attachments[slot_->index]; }
    const MimePart& Part() {
        return owner_.Content().tree.parts[static_cast<std::size_t>(Info().part)];
    }

    Status CheckDoubt() {
        const Result<std::string> doubt = owner_.WriteDoubt();
        if (!doubt.ok()) return doubt.error();
        if (!doubt.value().empty()) return Refused(doubt.value());
        return {};
    }

    Status CheckReplaceable() {
        if (slot_->deleted) return MessagingError(kObjectDeleted);
        const std::string why = ReplaceRefusal(owner_.Content().tree, Info());
        if (!why.empty()) return Refused(why);
        return CheckDoubt();
    }

    int Method() {
        switch (Info().kind) {
            case AttachmentKind::kMessage: return 5;
            case AttachmentKind::kLink: return IsOnFileServer(Part()) ? 2 : 4;
            case AttachmentKind::kTnef: return 6;
            default: return 1;
        }
    }

    Blob EncodedContent() {
        const MimePart& part = Part();
        return owner_.Content().bytes.Slice(part.content_begin,
                                            part.content_end - part.content_begin);
    }

    Result<Blob> Data() {
        if (slot_->data.has_value()) return *slot_->data;
        if (slot_->decoded.has_value()) return *slot_->decoded;
        Result<Blob> content = AttachmentContent(owner_.Content(), Info());
        if (content.ok()) slot_->decoded = content.value();
        return content;
    }

    Result<std::uint64_t> ExactSize() {
        const AttachmentPart& info = Info();
        if (slot_->data.has_value()) return slot_->data->size_bytes();
        if (info.kind == AttachmentKind::kLink) return std::uint64_t{0};
        if (info.kind == AttachmentKind::kProtectedMessage && Part().IsMultipart()) {
            const MimePart& part = Part();
            return part.content_end - part.content_begin;
        }
        const auto& known = owner_.Content().decoded_sizes;
        const auto told = known.find(slot_->index);
        if (told != known.end() && !slot_->decoded.has_value()) return told->second;
        // The size of what may not be read is no secret.
        const bool is_protected = !ProtectionOf(owner_.Content().tree, info.part).empty();
        const Result<Blob> data =
            is_protected ? DecodeBlob(EncodedContent(), Part().encoding) : Data();
        if (!data.ok()) return data.error();
        return data.value().size_bytes();
    }

    std::string DisplayName() {
        const std::string text = DecodeHeaderText(FirstField(Part().header, "Content-Description"));
        if (Info().kind == AttachmentKind::kLink) {
            std::string path = Part().type.Parameter("url");
            if (!path.empty()) return path;
        }
        return text.empty() ? slot_->name : text;
    }

    // Only what is really embedded has a content ID: many senders give one to every attachment.
    Result<Variant> ContentId() {
        const PartTree& tree = owner_.Content().tree;
        const MimePart& part = Part();
        std::string id = part.content_id;
        if (id.empty()) return MessagingError(kNotFound);
        const bool related =
            part.parent >= 0 &&
            tree.parts[static_cast<std::size_t>(part.parent)].IsType("multipart/related") &&
            RelatedRoot(tree, part.parent) != Info().part && !part.IsAttachmentByDisposition();
        if (related || owner_.ShownIds().contains(id)) return Variant(std::move(id));
        return MessagingError(kNotFound);
    }

    Result<Variant> ModificationDate() {
        const auto ns = ParseMailDate(Part().disposition.Parameter("modification-date"));
        if (!ns.has_value()) return MessagingError(kNotFound);
        return Variant(DateFromUnixNs(*ns));
    }

    AttachmentOwner& owner_;
    std::shared_ptr<AttachmentSlot> slot_;
};

}  // namespace

std::unique_ptr<Attachment> MakeMailAttachment(AttachmentOwner& owner,
                                               std::shared_ptr<AttachmentSlot> slot) {
    return std::make_unique<MailAttachment>(owner, std::move(slot));
}

}  // namespace trevix::mime
