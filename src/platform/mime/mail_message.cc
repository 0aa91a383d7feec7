#include "platform/mime/mail_message.h"

#include <algorithm>
#include <future>

#include "platform/mime/attachment_name.h"
#include "platform/mime/dates.h"
#include "platform/mime/entry_id.h"
#include "platform/mime/header_block.h"
#include "platform/mime/header_text.h"
#include "platform/mime/html_body.h"
#include "platform/mime/mail_attachment.h"
#include "platform/mime/people.h"
#include "platform/mime/row_set.h"
#include "platform/mime/second_opinion.h"

namespace trevix::mime {
namespace {

constexpr PropertyTag kTagDisplayBcc = 0x0E02001E;
constexpr PropertyTag kTagSenderName = 0x0C1A001E;
constexpr PropertyTag kTagSenderAddress = 0x0C1F001E;

class MailAttachments final : public Attachments {
 public:
    explicit MailAttachments(AttachmentOwner& owner) : owner_(owner) {}

    Result<std::int32_t> Count() override {
        return static_cast<std::int32_t>(owner_.Slots().size());
    }

    Result<std::unique_ptr<Attachment>> Item(std::int32_t position) override {
        const SlotList& slots = owner_.Slots();
        if (position < 1 || static_cast<std::size_t>(position) > slots.size()) {
            return MessagingError(kNotFound);
        }
        return MakeMailAttachment(owner_, slots[static_cast<std::size_t>(position) - 1]);
    }

    // Stored mail only ever loses attachments or gets smaller ones.
    Status Add(const std::string&, std::int32_t, int, const std::string&) override {
        return MessagingError(kNoAccess, "nothing is added to stored mail");
    }

 private:
    AttachmentOwner& owner_;
};

class MailMessage final : public Message, public AttachmentOwner {
 public:
    MailMessage(MailPlace place, MessageSummary summary, ReadMessage content)
        : place_(std::move(place)), summary_(std::move(summary)), content_(std::move(content)) {
        TakeSlots();
    }

    Result<std::string> Subject() override {
        return DecodeHeaderText(FirstField(Header(), "Subject"));
    }

    Status SetSubject(const std::string& subject) override {
        const Result<std::string> now = Subject();
        if (now.ok() && now.value() == subject) return {};
        return MessagingError(kNoAccess, "the subject of stored mail does not change");
    }

    Result<Variant> Field(PropertyTag tag) override {
        switch (CanonicalTag(tag)) {
            case kTagSubject: {
                const Result<std::string> subject = Subject();
                return Variant(subject.value());
            }
            case kTagMessageClass: return Variant(summary_.message_class);
            case kTagHasAttachments: return Variant(!content_.shape.attachments.empty());
            case kTagLastModification: return Variant(DateFromUnixNs(ModifiedNs(summary_)));
            case kTagDeliveryTime: return Variant(DateFromUnixNs(summary_.entry.received_ns));
            case kTagArticleNumber: return Variant(summary_.entry.number);
            case kTagEntryId:
            case kTagLongTermEntryId:
                return Variant(Blob::FromString(MessageEntryId(
                    place_.folder_id, Digest16(summary_.entry.key), EntryKind::kMessage)));
            case kTagDisplayTo: return Variant(DisplayNames(Header(), "To"));
            case kTagDisplayCc: return Variant(DisplayNames(Header(), "Cc"));
            case kTagDisplayBcc: return Variant(DisplayNames(Header(), "Bcc"));
            default: return PersonField(CanonicalTag(tag));
        }
    }

    Status SetField(PropertyTag tag, const Variant& value) override {
        const auto* text = std::get_if<std::string>(&value);
        if (CanonicalTag(tag) == kTagSubject && text != nullptr) return SetSubject(*text);
        return MessagingError(kNoAccess, "stored mail keeps its properties");
    }

    Result<PropertyTag> NamedProperty(const std::string& property_set, const std::string& name,
                                      std::uint16_t type) override {
        const auto tag = place_.session->names.TagOf(property_set, name, type);
        if (!tag.has_value()) return MessagingError(kNotEnoughMemory);
        return *tag;
    }

    Result<std::string> FormattedBody() override {
        return IsHtml() ? WrapHtmlInRtf(ReadHtml()) : std::string();
    }

    Result<std::string> SenderName() override {
        const std::unique_ptr<Recipient> sender = SenderOf(Header());
        return sender == nullptr ? std::string() : sender->Name();
    }
    Result<std::unique_ptr<Recipient>> Sender() override { return SenderOf(Header()); }
    Result<std::vector<std::unique_ptr<Recipient>>> Recipients() override {
        return RecipientsOf(Header());
    }

    Result<std::unique_ptr<Attachments>> AttachmentList() override {
        return std::unique_ptr<Attachments>(std::make_unique<MailAttachments>(*this));
    }

    Status Update() override {
        const std::vector<AttachmentEdit> edits = CollectEdits();
        // Nothing to change means that not a byte is written.
        if (edits.empty()) return {};
        const Result<std::string> doubt = WriteDoubt();
        if (!doubt.ok()) return doubt.error();
        if (!doubt.value().empty()) return MessagingError(kNoAccess, doubt.value());
        // WriteDoubt() has seen to it that this is the message itself, not an outline.

        const std::vector<Splice> splices = PlanSplices(content_, edits);
        const Blob composed = ApplySplices(content_.bytes, splices);
        MailStore& mail = place_.store->mail();
        Result<std::unique_ptr<StagedMail>> staged =
            mail.Stage(place_.folder, summary_.entry, composed);
        if (!staged.ok()) return staged.error();
        // From here on a failure drops the staged message, and the old one stands.
        Result<ReadMessage> now = ReadBackEdited(content_, edits, splices, composed,
                                                 staged.value()->content(), place_.session->helper);
        if (!now.ok()) return now.error();
        Result<MailEntry> entry = staged.value()->Commit();
        if (!entry.ok()) return entry.error();
        TakeSaved(std::move(now).value(), std::move(entry).value());
        return {};
    }

    // A mail store's messages are not ours to delete.
    Status Delete() override { return MessagingError(kNoAccess, "stored mail is not deleted"); }

 private:
    std::string_view Header() const { return content_.tree.parts.front().header; }

    bool IsHtml() const {
        return content_.shape.body >= 0 &&
               content_.tree.parts[static_cast<std::size_t>(content_.shape.body)].IsType(
                   "text/html");
    }

    Result<Variant> PersonField(PropertyTag tag) const {
        const bool known =
            tag == kTagSenderAddressType || tag == kTagSenderName || tag == kTagSenderAddress;
        const std::unique_ptr<Recipient> sender = known ? SenderOf(Header()) : nullptr;
        if (sender == nullptr) return MessagingError(kNotFound);
        if (tag == kTagSenderAddressType) return Variant(std::string("SMTP"));
        const Result<std::string> text = tag == kTagSenderName ? sender->Name() : sender->Address();
        return Variant(text.value());
    }

    // AttachmentOwner
    const ReadMessage& Content() override { return content_; }
    SlotList& Slots() override { return slots_; }

    std::string ReadHtml() const {
        return ReadTextPart(content_.bytes,
                            content_.tree.parts[static_cast<std::size_t>(content_.shape.body)]);
    }

    const std::set<std::string>& ShownIds() override {
        if (!shown_ids_.has_value()) {
            shown_ids_ = IsHtml() ? ReferencedContentIds(ReadHtml()) : std::set<std::string>();
        }
        return *shown_ids_;
    }

    Result<std::string> WriteDoubt() override {
        place_.store->NoteChange();
        if (write_doubt_.has_value()) return *write_doubt_;
        TREVIX_RETURN_IF_ERROR(BeginSecondOpinion());
        if (write_doubt_.has_value()) return *write_doubt_;
        Result<std::string> difference = second_opinion_.get();
        if (!difference.ok()) return difference.error();
        write_doubt_ = std::move(difference).value();
        return *write_doubt_;
    }

    void ExpectWrite() override {
        // A message in outline is read as a whole only when it is changed for certain: to save an
        // attachment is what an index run does, too. A failure shows when WriteDoubt() tries again.
        if (content_.exact) Drop(BeginSecondOpinion());
    }

    Status BeginSecondOpinion() {
        if (write_doubt_.has_value() || second_opinion_.valid()) return {};
        if (!content_.exact) TREVIX_RETURN_IF_ERROR(ReadWhole());
        if (write_doubt_.has_value()) return {};
        if (!content_.tree.doubt.empty()) {
            write_doubt_ = content_.tree.doubt;
            return {};
        }
        second_opinion_ =
            place_.session->helper.Run([message = content_.bytes, tree = content_.tree] {
                return DisagreementOn(message, tree);
            });
        return {};
    }

    // The message itself in the place of its outline. Where the two disagree on what is attached,
    // nothing is written.
    Status ReadWhole() {
        const Result<Blob> bytes = place_.store->mail().Read(place_.folder, summary_.entry);
        if (!bytes.ok()) return bytes.error();
        const Result<Blob> held = Held(bytes.value());
        if (!held.ok()) return held.error();
        Result<ReadMessage> whole = TakeApart(held.value());
        if (!whole.ok()) return whole.error();
        const auto same = [](const AttachmentPart& a, const AttachmentPart& b) {
            return a.part == b.part && a.kind == b.kind && a.name == b.name;
        };
        const auto& seen = content_.shape.attachments;
        const auto& there = whole.value().shape.attachments;
        if (!std::equal(seen.begin(), seen.end(), there.begin(), there.end(), same)) {
            write_doubt_ = "the server tells of other attachments than the message has";
            return {};
        }
        content_ = std::move(whole).value();
        shown_ids_.reset();
        return {};
    }

    void TakeSlots() {
        slots_.clear();
        all_slots_.clear();
        for (std::size_t i = 0; i < content_.shape.attachments.size(); ++i) {
            auto slot = std::make_shared<AttachmentSlot>();
            slot->index = i;
            slot->name = NameOf(content_.shape.attachments[i]);
            const auto decoded = content_.decoded.find(i);
            if (decoded != content_.decoded.end()) slot->decoded = decoded->second;
            all_slots_.push_back(slot);
        }
        slots_ = all_slots_;
    }

    // An attached message without a name of its own is called by its subject.
    std::string NameOf(const AttachmentPart& attachment) const {
        if (attachment.kind != AttachmentKind::kMessage) return attachment.name;
        const MimePart& part = content_.tree.parts[static_cast<std::size_t>(attachment.part)];
        const bool named = !part.type.Parameter("name").empty() ||
                           !part.disposition.Parameter("filename").empty() ||
                           !FirstField(part.header, "Content-Description").empty();
        if (named || part.encoding != TransferEncoding::kIdentity) return attachment.name;
        constexpr std::uint64_t kHeaderBytes = std::uint64_t{16} * 1024;
        const std::uint64_t size = std::min(part.content_end - part.content_begin, kHeaderBytes);
        const Result<std::string> head = content_.bytes.Slice(part.content_begin, size).ToString();
        if (!head.ok()) return attachment.name;
        const std::string subject =
            SafeAttachmentName(DecodeHeaderText(FirstField(head.value(), "Subject")));
        return subject.empty() ? attachment.name : subject + ".eml";
    }

    std::vector<AttachmentEdit> CollectEdits() const {
        std::vector<AttachmentEdit> edits;
        for (const std::shared_ptr<AttachmentSlot>& slot : all_slots_) {
            AttachmentEdit edit;
            edit.attachment = slot->index;
            edit.deleted = slot->deleted;
            edit.data = slot->data;
            if (slot->renamed) edit.name = slot->name;
            if (edit.deleted || edit.data.has_value() || edit.name.has_value()) {
                edits.push_back(std::move(edit));
            }
        }
        return edits;
    }

    // The object stands for the message as it is stored now. The proof has shown that the
    // attachments that stayed follow each other as before.
    void TakeSaved(ReadMessage now, MailEntry entry) {
        const std::string old_key = summary_.entry.key;
        content_ = std::move(now);
        shown_ids_.reset();
        write_doubt_ = std::string();  // the second reader has just agreed
        summary_.entry = std::move(entry);
        summary_.first_seen_ns = 0;  // it counts from its write
        summary_.own_write_ns = summary_.entry.changed_ns;
        FillSummary(content_, &summary_);

        std::erase_if(all_slots_, [](const auto& slot) { return slot->deleted; });
        for (std::size_t i = 0; i < all_slots_.size(); ++i) {
            AttachmentSlot& slot = *all_slots_[i];
            slot.index = i;
            slot.data.reset();
            slot.renamed = false;
            slot.decoded.reset();
        }
        slots_ = all_slots_;
        place_.store->State(place_.folder).Replaced(old_key, summary_);
    }

    MailPlace place_;
    MessageSummary summary_;
    ReadMessage content_;
    SlotList all_slots_;  // one for each attachment of the shape
    SlotList slots_;      // without the deleted ones
    std::optional<std::set<std::string>> shown_ids_;
    std::optional<std::string> write_doubt_;
    std::future<Result<std::string>> second_opinion_;  // on its way to write_doubt_
};

}  // namespace

Result<std::unique_ptr<Message>> OpenMailMessage(MailPlace place, const MessageSummary& summary) {
    Result<ReadMessage> content =
        place.store->Open(place.folder, summary.entry, place.session->helper);
    if (!content.ok()) {
        Error error = content.error();
        if (error.kind == ErrorKind::kChanged || error.kind == ErrorKind::kGone) {
            place.store->State(place.folder).Distrust(summary.entry.key);
        } else if (error.kind == ErrorKind::kMalformed) {
            // A message beyond the limits may have no subject to be known by.
            error.description = summary.entry.key + ": " + error.description;
        }
        return error;
    }
    MessageSummary own = summary;
    // The summary may stem from a time when the message could not be read.
    FillSummary(content.value(), &own);
    return std::unique_ptr<Message>(std::make_unique<MailMessage>(std::move(place), std::move(own),
                                                                  std::move(content).value()));
}

}  // namespace trevix::mime
