#include "fakes/fake_messaging.h"

#include <algorithm>

#include "util/convert.h"
#include "util/text.h"

namespace trevix::fakes {
namespace {

Variant Text(const std::string& text) {
    return text;
}

std::string BytesOfHex(const std::string& hex) {
    return hex;
}  // an ID's bytes are its own text

class FakeAttachment final : public Attachment {
 public:
    FakeAttachment(MessagingState& state, MessageData& message, std::size_t at)
        : state_(state), message_(message), at_(at) {}

    Result<int> Type() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachment.Type"));
        return data().type;
    }
    Result<std::string> Name() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachment.Name"));
        return data().name;
    }
    Status SetName(const std::string& name) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachment.SetName"));
        data().name = name;
        return {};
    }
    Result<std::int32_t> Size() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachment.Size"));
        return data().Size();
    }
    Result<Variant> Field(PropertyTag tag) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachment.Field"));
        switch (tag) {
            case kTagAttachmentContentId: return Text(data().content_id);
            case kTagAttachmentSize: return Variant(data().Size());
            case kTagAttachmentMethod: return Variant(data().Method());
            case kTagAttachmentShortName: return Text(data().short_name);
            case kTagDisplayName: return Text(data().display_name);
            case kTagLastModification:
                if (data().modified == Date{}) return MessagingError(kNotFound);
                return Variant(data().modified);
            case kTagAttachmentRendering: return Variant(Blob::FromString(data().rendering));
            case kTagAttachmentData:
                if (data().refuses_reading) return MessagingError(kCorruptData);
                return Variant(Blob::FromString(data().data));
            default: return MessagingError(kNotFound);
        }
    }
    Status SetField(PropertyTag tag, const Variant& value) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachment.SetField"));
        if (data().refuses_writing) return MessagingError(kNoAccess);
        if (const Blob* bytes = std::get_if<Blob>(&value)) {
            auto text = bytes->ToString();
            if (!text.ok()) return text.error();
            (tag == kTagAttachmentData ? data().data : data().rendering) = text.value();
            if (tag == kTagAttachmentData) data().size_bytes = -1;
            return {};
        }
        const std::string text = std::get<std::string>(value);
        if (tag == kTagAttachmentExtension) data().extension = text;
        if (tag == kTagAttachmentLongName) data().long_name = text;
        if (tag == kTagAttachmentShortName) data().short_name = text;
        return {};
    }
    Status WriteToFile(const std::string& path) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachment.WriteToFile"));
        if (data().refuses_reading) return MessagingError(kCorruptData);
        if (state_.files.files.contains(path)) return RuntimeError(kFileExists, path);
        state_.files.files[path] = data().data;
        return {};
    }
    Status Delete() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachment.Delete"));
        if (data().refuses_deleting) return MessagingError(kNoAccess);
        state_.deleted_attachments.push_back(data().name);
        message_.attachments.erase(message_.attachments.begin() + static_cast<std::ptrdiff_t>(at_));
        return {};
    }
    int Index() override { return static_cast<int>(at_) + 1; }

 private:
    AttachmentData& data() { return message_.attachments.at(at_); }

    MessagingState& state_;
    MessageData& message_;
    std::size_t at_;
};

class FakeAttachments final : public Attachments {
 public:
    FakeAttachments(MessagingState& state, MessageData& message)
        : state_(state), message_(message) {}

    Result<std::int32_t> Count() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachments.Count"));
        return static_cast<std::int32_t>(message_.attachments.size());
    }
    Result<std::unique_ptr<Attachment>> Item(std::int32_t position) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachments.Item"));
        const auto at = static_cast<std::size_t>(position) - 1;
        if (at >= message_.attachments.size()) return MessagingError(kNotFound);
        return std::unique_ptr<Attachment>(std::make_unique<FakeAttachment>(state_, message_, at));
    }
    Status Add(const std::string& name, std::int32_t /*position*/, int type,
               const std::string& source) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("attachments.Add"));
        const auto file = state_.files.files.find(source);
        if (file == state_.files.files.end()) return RuntimeError(kFileNotFound, source);
        AttachmentData added;
        added.name = name;
        added.data = file->second;
        added.type = type;
        added.rendering = "picture";
        message_.attachments.push_back(added);
        return {};
    }

 private:
    MessagingState& state_;
    MessageData& message_;
};

class FakeRecipient final : public Recipient {
 public:
    FakeRecipient(int type, std::string address) : type_(type), address_(std::move(address)) {}
    int Type() override { return type_; }
    Result<std::string> Name() override { return address_; }
    Result<std::string> Address() override { return address_; }
    Result<Variant> Field(PropertyTag tag) override {
        if (tag != kTagSmtpAddress) return MessagingError(kNotFound);
        return Text("smtp-of-" + address_);
    }

 private:
    int type_;
    std::string address_;
};

class FakeMessage final : public Message {
 public:
    // `collection` is where an Update stores the message when it is new.
    FakeMessage(MessagingState& state, MessageData data, std::vector<MessageData>* collection)
        : state_(state), data_(std::move(data)), collection_(collection) {}

    Result<std::string> Subject() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.Subject"));
        return data_.subject;
    }
    Status SetSubject(const std::string& subject) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.SetSubject"));
        data_.subject = subject;
        return {};
    }
    Result<Variant> Field(PropertyTag tag) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.Field"));
        if (tag == kTagMessageClass) return Text(data_.message_class);
        if (tag == kTagSenderAddressType) return Text(data_.sender_type);
        if (tag == kTagDisplayTo) return Text(data_.display_to);
        if (tag == kTagDisplayCc) return Text(data_.display_cc);
        if (tag == kTagDeliveryTime && data_.received != Date{}) return Variant(data_.received);
        if ((tag >> 16) >= 0x8000) {
            const Variant* value = data_.Find(names_.at((tag >> 16) - 0x8000));
            if (value != nullptr) return *value;
        }
        return MessagingError(kNotFound);
    }
    Status SetField(PropertyTag tag, const Variant& value) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.SetField"));
        if ((tag >> 16) < 0x8000) return MessagingError(kComputed);
        const std::string& name = names_.at((tag >> 16) - 0x8000);
        for (MessageData::Named& property : data_.named) {
            if (property.name != name) continue;
            property.value = value;
            return {};
        }
        data_.named.push_back({name, value});
        return {};
    }
    Result<PropertyTag> NamedProperty(const std::string& property_set, const std::string& name,
                                      std::uint16_t type) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.NamedProperty"));
        if (property_set != kPublicStrings) return MessagingError(kInvalidParameter);
        auto at = std::find(names_.begin(), names_.end(), name);
        if (at == names_.end()) at = names_.insert(names_.end(), name);
        const auto id = static_cast<std::uint32_t>(0x8000 + (at - names_.begin()));
        return (id << 16) | type;
    }
    Result<std::string> FormattedBody() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.FormattedBody"));
        return data_.formatted_body;
    }
    Result<std::string> SenderName() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.SenderName"));
        return data_.sender_name;
    }
    Result<std::unique_ptr<Recipient>> Sender() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.Sender"));
        if (data_.sender_address.empty()) return std::unique_ptr<Recipient>();
        return std::unique_ptr<Recipient>(std::make_unique<FakeRecipient>(0, data_.sender_address));
    }
    Result<std::vector<std::unique_ptr<Recipient>>> Recipients() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.Recipients"));
        std::vector<std::unique_ptr<Recipient>> list;
        for (const auto& [type, address] : data_.recipients) {
            list.push_back(std::make_unique<FakeRecipient>(type, address));
        }
        return list;
    }
    Result<std::unique_ptr<Attachments>> AttachmentList() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.AttachmentList"));
        return std::unique_ptr<Attachments>(std::make_unique<FakeAttachments>(state_, data_));
    }
    Status Update() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.Update"));
        if (data_.revision == 0) {
            data_.revision = 1;
            data_.updates = 1;
            data_.modified = state_.clock.utc;
            collection_->push_back(data_);
            return {};
        }
        MessageData* stored = state_.FindMessage(data_.id);
        if (stored == nullptr) return MessagingError(kObjectDeleted);
        if (stored->revision != data_.revision) return MessagingError(kObjectChanged);
        ++data_.revision;
        ++data_.updates;
        data_.modified = state_.clock.utc;
        *stored = data_;
        return {};
    }
    Status Delete() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("message.Delete"));
        if (!state_.RemoveMessage(data_.id)) return MessagingError(kObjectDeleted);
        return {};
    }

 private:
    MessagingState& state_;
    MessageData data_;
    std::vector<MessageData>* collection_;
    std::vector<std::string> names_;
};

class FakeMessages final : public Messages {
 public:
    FakeMessages(MessagingState& state, std::vector<MessageData>& messages, const char* kind)
        : state_(state), messages_(messages), kind_(kind) {}

    Status AddFilter(PropertyTag tag, const Variant& /*value*/) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("messages.AddFilter"));
        if (tag != kTagHasAttachments) return MessagingError(kTooComplex);
        only_with_attachments_ = true;
        return {};
    }
    Status ClearFilter() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("messages.ClearFilter"));
        only_with_attachments_ = false;
        return {};
    }
    Status Sort(int order, PropertyTag /*tag*/) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("messages.Sort"));
        order_ = order;
        return {};
    }
    Result<std::int32_t> Count() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("messages.Count"));
        return static_cast<std::int32_t>(Shown().size());
    }
    Result<std::unique_ptr<Message>> Add(const std::string& message_class) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("messages.Add"));
        MessageData data;
        data.message_class = message_class;
        data.id = "00" + std::string(kind_) + std::to_string(++state_.next_id);
        return std::unique_ptr<Message>(
            std::make_unique<FakeMessage>(state_, std::move(data), &messages_));
    }

    std::vector<const MessageData*> Shown() const {
        std::vector<const MessageData*> shown;
        for (const MessageData& message : messages_) {
            if (!only_with_attachments_ || !message.attachments.empty()) shown.push_back(&message);
        }
        if (order_ != kSortNone) {
            std::stable_sort(shown.begin(), shown.end(), [&](auto* left, auto* right) {
                return order_ == kSortDescending ? right->modified < left->modified
                                                 : left->modified < right->modified;
            });
        }
        return shown;
    }

 private:
    MessagingState& state_;
    std::vector<MessageData>& messages_;
    const char* kind_;
    bool only_with_attachments_ = false;
    int order_ = kSortNone;
};

class FakeTable final : public MessageTable {
 public:
    explicit FakeTable(MessagingState& state) : state_(state) {}

    Status SetSource(Messages& messages) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("table.SetSource"));
        rows_ = static_cast<FakeMessages&>(messages).Shown();
        return {};
    }
    Status SetColumns(const std::vector<PropertyTag>& tags) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("table.SetColumns"));
        tags_ = tags;
        return {};
    }
    Status Restrict(PropertyTag tag, const Variant& value) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("table.Restrict"));
        if (tag != kTagMessageClass) return MessagingError(kTooComplex);
        std::erase_if(rows_, [&](const MessageData* row) {
            return !EqualsNoCase(row->message_class, std::get<std::string>(value));
        });
        return {};
    }
    Status Sort(int order, PropertyTag /*tag*/) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("table.Sort"));
        std::stable_sort(rows_.begin(), rows_.end(), [&](auto* left, auto* right) {
            return order == kSortDescending ? right->modified < left->modified
                                            : left->modified < right->modified;
        });
        return {};
    }
    Result<std::int32_t> RowCount() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("table.RowCount"));
        return static_cast<std::int32_t>(rows_.size());
    }
    Result<std::vector<std::vector<Variant>>> GetRows(std::int32_t count) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("table.GetRows"));
        std::vector<std::vector<Variant>> rows;
        for (const MessageData* message : rows_) {
            if (static_cast<std::int32_t>(rows.size()) == count) break;
            std::vector<Variant> row;
            for (const PropertyTag tag : tags_)
                row.push_back(Cell(*message, tag));
            rows.push_back(std::move(row));
        }
        return rows;
    }

 private:
    static Variant Cell(const MessageData& message, PropertyTag tag) {
        switch (tag) {
            case kTagLongTermEntryId:
                if (!message.long_term_id) return ErrorValue{kNotFound};
                return Blob::FromString(BytesOfHex(message.id));
            case kTagEntryId: return Blob::FromString(BytesOfHex(message.id));
            case kTagLastModification: return message.modified;
            case kTagSubject: return Text(message.subject);
            case kTagMessageClass: return Text(message.message_class);
            case kTagArticleNumber: return message.number;
            default: return ErrorValue{kNotFound};
        }
    }

    MessagingState& state_;
    std::vector<const MessageData*> rows_;
    std::vector<PropertyTag> tags_;
};

class FakeFolder final : public Folder {
 public:
    FakeFolder(MessagingState& state, FolderData& data, std::string store_id)
        : state_(state), data_(data), store_id_(std::move(store_id)) {}

    Result<std::string> Name() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.Name"));
        return data_.name;
    }
    Result<std::string> Id() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.Id"));
        return data_.id;
    }
    Result<std::string> StoreId() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.StoreId"));
        return store_id_;
    }
    Result<std::string> FolderId() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.FolderId"));
        if (data_.parent == nullptr) return MessagingError(kNotFound);
        return data_.parent->id;
    }
    Result<Variant> Field(PropertyTag tag) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.Field"));
        if (tag != kTagContainerClass) return MessagingError(kNotFound);
        return Text(data_.container_class);
    }
    Result<std::unique_ptr<Messages>> MessageList() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.MessageList"));
        return std::unique_ptr<Messages>(
            std::make_unique<FakeMessages>(state_, data_.messages, "AA"));
    }
    Result<std::unique_ptr<Messages>> HiddenMessages() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.HiddenMessages"));
        return std::unique_ptr<Messages>(
            std::make_unique<FakeMessages>(state_, state_.hidden, "BB"));
    }
    Result<std::int32_t> FolderCount() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.FolderCount"));
        return static_cast<std::int32_t>(data_.folders.size());
    }
    Result<std::vector<std::unique_ptr<Folder>>> Folders() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.Folders"));
        std::vector<std::unique_ptr<Folder>> list;
        for (const auto& folder : data_.folders) {
            list.push_back(std::make_unique<FakeFolder>(state_, *folder, store_id_));
        }
        return list;
    }
    Result<bool> IsSameAs(Folder& other) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("folder.IsSameAs"));
        return &static_cast<FakeFolder&>(other).data_ == &data_;
    }

 private:
    MessagingState& state_;
    FolderData& data_;
    std::string store_id_;
};

class FakeInfoStore final : public InfoStore {
 public:
    FakeInfoStore(MessagingState& state, StoreData& data) : state_(state), data_(data) {}
    Result<std::string> Name() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("store.Name"));
        return data_.name;
    }
    Result<std::string> Id() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("store.Id"));
        return data_.id;
    }
    Result<std::unique_ptr<Folder>> RootFolder() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("store.RootFolder"));
        if (data_.root_fails) return MessagingError(kFailOneProvider);
        return std::unique_ptr<Folder>(std::make_unique<FakeFolder>(state_, data_.root, data_.id));
    }

 private:
    MessagingState& state_;
    StoreData& data_;
};

class FakeSession final : public MessagingSession {
 public:
    explicit FakeSession(MessagingState& state) : state_(state) {}

    Status Logon(const LogonRequest& request) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("session.Logon"));
        state_.logons.push_back(request);
        const bool known =
            request.profile_name.empty() || request.profile_name == state_.accepted_profile;
        if (!known) return MessagingError(kLogonFailed);
        state_.logged_on = true;
        return {};
    }
    Status Logoff() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("session.Logoff"));
        state_.logged_on = false;
        return {};
    }
    Result<std::string> CurrentUserName() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("session.CurrentUserName"));
        return state_.logged_on ? state_.user_name : std::string();
    }
    Result<std::unique_ptr<Folder>> GetDefaultFolder(int which) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("session.GetDefaultFolder"));
        if (which == kOutboxFolder) return Open(&state_.outbox, state_.stores.front()->id);
        if (which != kInboxFolder) return MessagingError(kNotFound);
        return Open(state_.FindFolder(state_.inbox_id, &state_.stores.front()->root),
                    state_.stores.front()->id);
    }
    Result<std::vector<std::unique_ptr<InfoStore>>> InfoStores() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("session.InfoStores"));
        std::vector<std::unique_ptr<InfoStore>> list;
        for (const auto& store : state_.stores) {
            list.push_back(std::make_unique<FakeInfoStore>(state_, *store));
        }
        return list;
    }
    Result<std::unique_ptr<InfoStore>> GetInfoStore(const std::string& store_id) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("session.GetInfoStore"));
        StoreData* store = state_.FindStore(store_id);
        if (store == nullptr) return MessagingError(kNotFound);
        return std::unique_ptr<InfoStore>(std::make_unique<FakeInfoStore>(state_, *store));
    }
    Result<std::unique_ptr<Folder>> GetFolder(const std::string& folder_id,
                                              const std::string& store_id) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("session.GetFolder"));
        return Open(state_.FindFolder(store_id, folder_id), store_id);
    }

 private:
    Result<std::unique_ptr<Folder>> Open(FolderData* folder, const std::string& store_id) {
        if (folder == nullptr) return MessagingError(kNotFound);
        return std::unique_ptr<Folder>(std::make_unique<FakeFolder>(state_, *folder, store_id));
    }

    MessagingState& state_;
};

class FakeUtilities final : public Utilities {
 public:
    explicit FakeUtilities(MessagingState& state) : state_(state) {}

    Result<std::string> EntryIdText(const Variant& binary_id) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("utils.EntryIdText"));
        const Blob* bytes = std::get_if<Blob>(&binary_id);
        if (bytes == nullptr) return MessagingError(kInvalidEntryId);
        return bytes->ToString();
    }
    Result<std::unique_ptr<Message>> OpenMessage(const std::string& entry_id,
                                                 const std::string& /*store_id*/) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("utils.OpenMessage"));
        MessageData* message = state_.FindMessage(entry_id);
        if (message == nullptr) return MessagingError(kNotFound);
        if (message->revision == 0) message->revision = 1;
        state_.opened.push_back(entry_id);
        return std::unique_ptr<Message>(std::make_unique<FakeMessage>(state_, *message, nullptr));
    }
    Result<std::unique_ptr<Messages>> HiddenItems(const std::string& /*folder_id*/) override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("utils.HiddenItems"));
        return std::unique_ptr<Messages>(
            std::make_unique<FakeMessages>(state_, state_.hidden, "BB"));
    }
    Result<std::unique_ptr<MessageTable>> CreateTable() override {
        TREVIX_RETURN_IF_ERROR(state_.plan.Enter("utils.CreateTable"));
        return std::unique_ptr<MessageTable>(std::make_unique<FakeTable>(state_));
    }
    void Shutdown() override { state_.utilities_shut_down = true; }

 private:
    MessagingState& state_;
};

}  // namespace

FolderData* MessagingState::FindFolder(const std::string& id, FolderData* below) {
    if (below->id == id) return below;
    for (const auto& folder : below->folders) {
        if (FolderData* found = FindFolder(id, folder.get())) return found;
    }
    return nullptr;
}

FolderData* MessagingState::FindFolder(const std::string& store_id, const std::string& id) {
    StoreData* store = FindStore(store_id);
    return store == nullptr ? nullptr : FindFolder(id, &store->root);
}

StoreData* MessagingState::FindStore(const std::string& id) {
    for (const auto& store : stores) {
        if (id.empty() || store->id == id) return store.get();
    }
    return nullptr;
}

namespace {

std::vector<MessageData>* CollectionBelow(FolderData& folder, const std::string& id) {
    for (const MessageData& message : folder.messages) {
        if (message.id == id) return &folder.messages;
    }
    for (const auto& child : folder.folders) {
        if (auto* found = CollectionBelow(*child, id)) return found;
    }
    return nullptr;
}

}  // namespace

std::vector<MessageData>* MessagingState::CollectionOf(const std::string& id) {
    for (const MessageData& message : hidden) {
        if (message.id == id) return &hidden;
    }
    if (auto* found = CollectionBelow(outbox, id)) return found;
    for (const auto& store : stores) {
        if (auto* found = CollectionBelow(store->root, id)) return found;
    }
    return nullptr;
}

MessageData* MessagingState::FindMessage(const std::string& id) {
    std::vector<MessageData>* collection = CollectionOf(id);
    if (collection == nullptr) return nullptr;
    for (MessageData& message : *collection) {
        if (message.id == id) return &message;
    }
    return nullptr;
}

bool MessagingState::RemoveMessage(const std::string& id) {
    std::vector<MessageData>* collection = CollectionOf(id);
    return collection != nullptr &&
           std::erase_if(*collection, [&](const MessageData& m) { return m.id == id; }) > 0;
}

Result<std::unique_ptr<MessagingSession>> FakeMessaging::CreateSession() {
    TREVIX_RETURN_IF_ERROR(state.plan.Enter("messaging.CreateSession"));
    return std::unique_ptr<MessagingSession>(std::make_unique<FakeSession>(state));
}

Result<std::unique_ptr<Utilities>> FakeMessaging::CreateUtilities() {
    TREVIX_RETURN_IF_ERROR(state.plan.Enter("messaging.CreateUtilities"));
    return std::unique_ptr<Utilities>(std::make_unique<FakeUtilities>(state));
}

}  // namespace trevix::fakes
