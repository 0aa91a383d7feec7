#include "platform/mime/property_message.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "platform/mime/attachment_name.h"
#include "platform/mime/dates.h"
#include "platform/mime/entry_id.h"
#include "platform/mime/file_copy.h"
#include "platform/mime/value_conversion.h"

namespace trevix::mime {
namespace {

using Part = HiddenMail::Part;
using PartList = std::vector<std::shared_ptr<Part>>;

std::int32_t CappedSize(std::uint64_t size) {
    return static_cast<std::int32_t>(
        std::min<std::uint64_t>(size, std::numeric_limits<std::int32_t>::max()));
}

class PropertyAttachment final : public Attachment {
 public:
    PropertyAttachment(PartList& list, std::shared_ptr<Part> part)
        : list_(list), part_(std::move(part)) {}

    Result<int> Type() override {
        return part_->method == 5 ? kAttachmentEmbeddedMessage : part_->method;
    }
    Result<std::string> Name() override { return part_->name; }
    Status SetName(const std::string& name) override {
        part_->name = name;
        return {};
    }
    Result<std::int32_t> Size() override { return CappedSize(part_->content.size_bytes()); }

    Result<Variant> Field(PropertyTag tag) override {
        switch (CanonicalTag(tag)) {
            case kTagAttachmentData: return Variant(part_->content);
            case kTagAttachmentSize: return Variant(CappedSize(part_->content.size_bytes()));
            case kTagAttachmentLongName:
            case kTagDisplayName: return Variant(part_->name);
            case kTagAttachmentShortName: return Variant(ShortNameOf(part_->name));
            case kTagAttachmentExtension: return Variant(ExtensionOf(part_->name));
            case kTagAttachmentMethod: return Variant(std::int32_t{part_->method});
            // Nobody draws pictures of attachments here, so an attachment's picture is empty.
            case kTagAttachmentRendering: return Variant(Blob());
            default: return MessagingError(kNotFound);
        }
    }

    Status SetField(PropertyTag tag, const Variant& value) override {
        switch (CanonicalTag(tag)) {
            case kTagAttachmentData:
                if (!std::holds_alternative<Blob>(value)) return MessagingError(kInvalidParameter);
                part_->content = std::get<Blob>(value);
                return {};
            case kTagAttachmentLongName:
                if (!std::holds_alternative<std::string>(value)) {
                    return MessagingError(kInvalidParameter);
                }
                return SetName(std::get<std::string>(value));
            // Derived from the name, or a picture: accepted and not kept.
            case kTagAttachmentExtension:
            case kTagAttachmentShortName:
            case kTagAttachmentRendering: return {};
            default: return MessagingError(kNoSupport);
        }
    }

    Status WriteToFile(const std::string& path) override {
        return WriteNewFile(path, part_->content);
    }

    Status Delete() override {
        if (std::erase(list_, part_) == 0) return MessagingError(kObjectDeleted);
        return {};
    }

    int Index() override {
        const auto found = std::find(list_.begin(), list_.end(), part_);
        return found == list_.end() ? 0 : static_cast<int>(found - list_.begin()) + 1;
    }

 private:
    PartList& list_;
    std::shared_ptr<Part> part_;
};

class PropertyAttachments final : public Attachments {
 public:
    explicit PropertyAttachments(PartList& list) : list_(list) {}

    Result<std::int32_t> Count() override { return static_cast<std::int32_t>(list_.size()); }

    Result<std::unique_ptr<Attachment>> Item(std::int32_t position) override {
        if (position < 1 || static_cast<std::size_t>(position) > list_.size()) {
            return MessagingError(kNotFound);
        }
        return std::unique_ptr<Attachment>(std::make_unique<PropertyAttachment>(
            list_, list_[static_cast<std::size_t>(position) - 1]));
    }

    Status Add(const std::string& name, std::int32_t position, int type,
               const std::string& source) override {
        if (type != kAttachmentFileData) return MessagingError(kNoSupport);
        Result<Blob> content = ReadWholeFile(source);
        if (!content.ok()) return content.error();
        const std::string own_name = source.substr(source.rfind('/') + 1);
        auto part = std::make_shared<Part>(
            Part{name.empty() ? own_name : name, 1, std::move(content).value()});
        const bool inside = position >= 1 && static_cast<std::size_t>(position) <= list_.size();
        list_.insert(inside ? list_.begin() + (position - 1) : list_.end(), std::move(part));
        return {};
    }

 private:
    PartList& list_;
};

// "001A001E": how a plain tag is kept among the named properties.
std::string TagName(PropertyTag tag) {
    char text[9];
    std::snprintf(text, sizeof text, "%08X", CanonicalTag(tag));
    return text;
}

class PropertyMessage final : public Message {
 public:
    PropertyMessage(PropertyFolder folder, HiddenMail mail)
        : folder_(std::move(folder)), mail_(std::move(mail)) {
        for (Part& part : mail_.attachments) {
            parts_.push_back(std::make_shared<Part>(std::move(part)));
        }
        mail_.attachments.clear();
    }

    Result<std::string> Subject() override { return mail_.subject; }
    Status SetSubject(const std::string& subject) override {
        mail_.subject = subject;
        return {};
    }

    Result<Variant> Field(PropertyTag tag) override {
        switch (CanonicalTag(tag)) {
            case kTagSubject: return Variant(mail_.subject);
            case kTagMessageClass: return Variant(mail_.message_class);
            case kTagHasAttachments: return Variant(!parts_.empty());
            case kTagLastModification:
                if (mail_.revision == 0) return MessagingError(kNotFound);
                return Variant(DateFromUnixNs(mail_.modified_ns));
            case kTagEntryId:
            case kTagLongTermEntryId:
                if (mail_.revision == 0) return MessagingError(kNotFound);
                return Variant(Blob::FromString(
                    MessageEntryId(folder_.folder_id, mail_.id, EntryKind::kHidden)));
            default: break;
        }
        const HiddenMail::Property* property = Find(tag);
        if (property == nullptr) return MessagingError(kNotFound);
        return ConvertTo(property->value, static_cast<std::uint16_t>(tag & 0xFFFFU));
    }

    Status SetField(PropertyTag tag, const Variant& value) override {
        switch (CanonicalTag(tag)) {
            case kTagSubject:
            case kTagMessageClass: {
                const auto* text = std::get_if<std::string>(&value);
                if (text == nullptr) return MessagingError(kInvalidParameter);
                (CanonicalTag(tag) == kTagSubject ? mail_.subject : mail_.message_class) = *text;
                return {};
            }
            case kTagHasAttachments:
            case kTagLastModification:
            case kTagEntryId:
            case kTagLongTermEntryId: return MessagingError(kComputed);
            default: break;
        }
        const auto [set, name] = KeyOf(tag);
        for (HiddenMail::Property& property : mail_.properties) {
            if (CanonicalPropertySet(property.set) == set && property.name == name) {
                property.value = value;
                return {};
            }
        }
        mail_.properties.push_back({set, name, value});
        return {};
    }

    Result<PropertyTag> NamedProperty(const std::string& property_set, const std::string& name,
                                      std::uint16_t type) override {
        const auto tag = folder_.session->names.TagOf(property_set, name, type);
        if (!tag.has_value()) return MessagingError(kNotEnoughMemory);
        return *tag;
    }

    Result<std::string> FormattedBody() override { return std::string(); }
    Result<std::string> SenderName() override { return std::string(); }
    Result<std::unique_ptr<Recipient>> Sender() override { return std::unique_ptr<Recipient>(); }
    Result<std::vector<std::unique_ptr<Recipient>>> Recipients() override {
        return std::vector<std::unique_ptr<Recipient>>();
    }

    Result<std::unique_ptr<Attachments>> AttachmentList() override {
        return std::unique_ptr<Attachments>(std::make_unique<PropertyAttachments>(parts_));
    }

    Status Update() override {
        HiddenMail mail = mail_;
        for (const std::shared_ptr<Part>& part : parts_)
            mail.attachments.push_back(*part);
        TREVIX_RETURN_IF_ERROR(folder_.mails->Write(mail));
        mail_.id = mail.id;
        mail_.revision = mail.revision;
        mail_.modified_ns = mail.modified_ns;
        return {};
    }

    Status Delete() override {
        // One that was never stored is gone with this object.
        if (mail_.revision == 0) return {};
        TREVIX_RETURN_IF_ERROR(folder_.mails->Remove(mail_.id));
        return {};
    }

 private:
    std::pair<std::string, std::string> KeyOf(PropertyTag tag) const {
        const NamedProperties::Name* name = folder_.session->names.NameOf(tag);
        if (name != nullptr) return {name->set, name->name};
        return {std::string(), TagName(tag)};
    }

    const HiddenMail::Property* Find(PropertyTag tag) const {
        const auto [set, name] = KeyOf(tag);
        for (const HiddenMail::Property& property : mail_.properties) {
            if (CanonicalPropertySet(property.set) == set && property.name == name) {
                return &property;
            }
        }
        return nullptr;
    }

    PropertyFolder folder_;
    HiddenMail mail_;  // without its attachments
    PartList parts_;
};

class PropertyRows final : public RowSet {
 public:
    PropertyRows(std::string folder_id, std::vector<HiddenMail> mails)
        : folder_id_(std::move(folder_id)), mails_(std::move(mails)) {}

    std::size_t size() const override { return mails_.size(); }

    Variant Cell(std::size_t row, PropertyTag tag) const override {
        const HiddenMail& mail = mails_[row];
        switch (CanonicalTag(tag)) {
            case kTagSubject: return mail.subject;
            case kTagMessageClass: return mail.message_class;
            case kTagLastModification: return DateFromUnixNs(mail.modified_ns);
            case kTagEntryId:
            case kTagLongTermEntryId:
                return Blob::FromString(MessageEntryId(folder_id_, mail.id, EntryKind::kHidden));
            default: return ErrorValue{kNotFound};
        }
    }

 private:
    std::string folder_id_;
    std::vector<HiddenMail> mails_;
};

class PropertyMessages final : public RowMessages {
 public:
    explicit PropertyMessages(PropertyFolder folder) : folder_(std::move(folder)) {}

    Result<std::unique_ptr<Message>> Add(const std::string& message_class) override {
        if (folder_.mails == nullptr) return MessagingError(kNoSupport);
        HiddenMail mail;
        mail.message_class = message_class;
        return OpenPropertyMessage(folder_, std::move(mail));
    }

 private:
    Result<std::shared_ptr<const RowSet>> AllRows() override {
        std::vector<HiddenMail> mails;
        if (folder_.mails != nullptr) {
            Result<std::vector<HiddenMail>> list = folder_.mails->List();
            if (!list.ok()) return list.error();
            mails = std::move(list).value();
        }
        return std::shared_ptr<const RowSet>(
            std::make_shared<const PropertyRows>(folder_.folder_id, std::move(mails)));
    }

    PropertyFolder folder_;
};

}  // namespace

std::unique_ptr<Message> OpenPropertyMessage(PropertyFolder folder, HiddenMail mail) {
    return std::make_unique<PropertyMessage>(std::move(folder), std::move(mail));
}

std::unique_ptr<Messages> ListPropertyMessages(PropertyFolder folder) {
    return std::make_unique<PropertyMessages>(std::move(folder));
}

}  // namespace trevix::mime
