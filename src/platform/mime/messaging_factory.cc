#include "platform/mime/messaging_factory.h"

#include "platform/mime/entry_id.h"
#include "platform/mime/mail_folder.h"
#include "platform/mime/mail_message.h"
#include "platform/mime/mail_messages.h"
#include "platform/mime/message_table.h"
#include "platform/mime/open_stores.h"

namespace trevix::mime {
namespace {

// What the factory, its sessions and its utilities share.
struct World {
    MailStoreProvider& provider;
    SummaryCache& cache;
    Clock& clock;
    std::shared_ptr<OpenStores> open;  // of the last log-on; null after its log-off
};

// The store of an ID's text; the default one for an empty text.
Result<std::shared_ptr<OpenStore>> FindStore(const OpenStores& open, const std::string& store_id) {
    if (store_id.empty()) return open.default_store();
    const std::optional<std::string> bytes = FromHex(store_id);
    if (!bytes.has_value() || !ParseEntryId(*bytes).has_value()) {
        return MessagingError(kInvalidEntryId);
    }
    for (const std::shared_ptr<OpenStore>& store : open.stores) {
        if (store->id() == *bytes) return store;
    }
    return MessagingError(kNotFound);
}

Result<ParsedEntryId> ParseIdText(const std::string& text) {
    const std::optional<std::string> bytes = FromHex(text);
    const std::optional<ParsedEntryId> id = bytes.has_value() ? ParseEntryId(*bytes) : std::nullopt;
    if (!id.has_value()) return MessagingError(kInvalidEntryId);
    return *id;
}

class Session final : public MessagingSession {
 public:
    explicit Session(std::shared_ptr<World> world) : world_(std::move(world)) {}
    ~Session() override { CloseStores(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Status Logon(const LogonRequest& request) override {
        Result<OpenedProfile> opened =
            world_->provider.Open(request.profile_name, request.profile_info);
        if (!opened.ok()) return opened.error();
        OpenedProfile& profile = opened.value();
        if (profile.inbox_store >= profile.stores.size()) {
            return MessagingError(kFailOneProvider, "the profile has no store");
        }
        auto open = std::make_shared<OpenStores>();
        open->user_name = profile.user_name;
        open->inbox_store = profile.inbox_store;
        for (std::unique_ptr<MailStore>& store : profile.stores) {
            open->stores.push_back(
                std::make_shared<OpenStore>(std::move(store), world_->cache, world_->clock));
        }
        CloseStores();
        open_ = std::move(open);
        world_->open = open_;
        return {};
    }

    Status Logoff() override {
        TREVIX_RETURN_IF_ERROR(CheckLoggedOn());
        CloseStores();
        return {};
    }

    Result<std::string> CurrentUserName() override {
        return open_ == nullptr ? std::string() : open_->user_name;
    }

    Result<std::unique_ptr<Folder>> GetDefaultFolder(int which) override {
        TREVIX_RETURN_IF_ERROR(CheckLoggedOn());
        if (which == kOutboxFolder) return MakeOutbox(open_);
        if (which != kInboxFolder) return MessagingError(kNotFound);
        const auto tree = open_->default_store()->Tree(false);
        if (!tree.ok()) return tree.error();
        return MakeMailFolder(open_, open_->default_store(), 1);
    }

    Result<std::vector<std::unique_ptr<InfoStore>>> InfoStores() override {
        TREVIX_RETURN_IF_ERROR(CheckLoggedOn());
        std::vector<std::unique_ptr<InfoStore>> stores;
        for (const std::shared_ptr<OpenStore>& store : open_->stores) {
            stores.push_back(MakeInfoStore(open_, store));
        }
        return stores;
    }

    Result<std::unique_ptr<InfoStore>> GetInfoStore(const std::string& store_id) override {
        TREVIX_RETURN_IF_ERROR(CheckLoggedOn());
        const auto store = FindStore(*open_, store_id);
        if (!store.ok()) return store.error();
        return MakeInfoStore(open_, store.value());
    }

    Result<std::unique_ptr<Folder>> GetFolder(const std::string& folder_id,
                                              const std::string& store_id) override {
        TREVIX_RETURN_IF_ERROR(CheckLoggedOn());
        const auto store = FindStore(*open_, store_id);
        if (!store.ok()) return store.error();
        const Result<ParsedEntryId> id = ParseIdText(folder_id);
        if (!id.ok()) return id.error();
        if (id.value().kind != EntryKind::kFolder) return MessagingError(kInvalidEntryId);
        const auto position = store.value()->FindFolder(id.value().folder_id);
        if (!position.ok()) return position.error();
        if (!position.value().has_value()) return MessagingError(kNotFound);
        return MakeMailFolder(open_, store.value(), *position.value());
    }

 private:
    Status CheckLoggedOn() const {
        if (open_ == nullptr) return MessagingError(kNotInitialized);
        return {};
    }

    void CloseStores() {
        if (open_ == nullptr) return;
        for (const std::shared_ptr<OpenStore>& store : open_->stores)
            store->Settle();
        if (world_->open == open_) world_->open.reset();
        open_.reset();
    }

    std::shared_ptr<World> world_;
    std::shared_ptr<OpenStores> open_;
};

class UtilitiesObject final : public Utilities {
 public:
    explicit UtilitiesObject(std::shared_ptr<World> world) : world_(std::move(world)) {}

    Result<std::string> EntryIdText(const Variant& binary_id) override {
        const auto* blob = std::get_if<Blob>(&binary_id);
        if (blob == nullptr) return MessagingError(kInvalidParameter);
        const Result<std::string> bytes = blob->ToString();
        if (!bytes.ok()) return bytes.error();
        return ToHex(bytes.value());
    }

    Result<std::unique_ptr<Message>> OpenMessage(const std::string& entry_id,
                                                 const std::string& store_id) override {
        const std::shared_ptr<OpenStores> open = world_->open;
        if (open == nullptr) return MessagingError(kNotInitialized);
        const auto store = FindStore(*open, store_id);
        if (!store.ok()) return store.error();
        const Result<ParsedEntryId> id = ParseIdText(entry_id);
        if (!id.ok()) return id.error();
        if (id.value().kind == EntryKind::kHidden)
            return OpenHidden(open, store.value(), id.value());
        if (id.value().kind != EntryKind::kMessage) return MessagingError(kInvalidEntryId);
        return OpenMail(open, store.value(), id.value());
    }

    Result<std::unique_ptr<Messages>> HiddenItems(const std::string& folder_id) override {
        const std::shared_ptr<OpenStores> open = world_->open;
        if (open == nullptr) return MessagingError(kNotInitialized);
        const Result<ParsedEntryId> id = ParseIdText(folder_id);
        if (!id.ok()) return id.error();
        const std::shared_ptr<OpenStore>& store = open->default_store();
        const auto position = store->FindFolder(id.value().folder_id);
        if (!position.ok()) return position.error();
        if (!position.value().has_value()) return MessagingError(kNotFound);
        const auto tree = store->Tree(false);
        if (!tree.ok()) return tree.error();
        const auto at = static_cast<std::size_t>(*position.value());
        return ListPropertyMessages(HiddenFolderOf(open, store, (*tree.value())[at]));
    }

    Result<std::unique_ptr<MessageTable>> CreateTable() override { return MakeMessageTable(); }

    void Shutdown() override {}

 private:
    static Result<std::unique_ptr<Message>> OpenHidden(const std::shared_ptr<OpenStores>& open,
                                                       const std::shared_ptr<OpenStore>& store,
                                                       const ParsedEntryId& id) {
        // The messages of the Outbox have IDs of the same kind in a folder that no store has.
        const auto position = store->FindFolder(id.folder_id);
        if (!position.ok()) return position.error();
        HiddenMailStore& mails = position.value().has_value()
                                     ? store->mail().Hidden()
                                     : static_cast<HiddenMailStore&>(open->outbox);
        Result<HiddenMail> mail = mails.Read(id.key);
        if (!mail.ok()) return mail.error();
        return OpenPropertyMessage({open, &mails, id.folder_id}, std::move(mail).value());
    }

    static Result<std::unique_ptr<Message>> OpenMail(const std::shared_ptr<OpenStores>& open,
                                                     const std::shared_ptr<OpenStore>& store,
                                                     const ParsedEntryId& id) {
        const auto position = store->FindFolder(id.folder_id);
        if (!position.ok()) return position.error();
        if (position.value().has_value()) {
            const auto tree = store->Tree(false);
            if (!tree.ok()) return tree.error();
            const FolderNode node = (*tree.value())[static_cast<std::size_t>(*position.value())];
            if (node.holds_messages) {
                const auto found = store->State(node.path).Find(id.key);
                if (!found.ok()) return found.error();
                if (found.value().has_value()) {
                    auto message =
                        OpenMailMessage({open, store, node.path, node.id}, *found.value());
                    const bool moved =
                        !message.ok() && (message.error().kind == ErrorKind::kGone ||
                                          message.error().kind == ErrorKind::kNotFound);
                    if (!moved) return message;
                }
            }
        }
        const auto place = store->FindAnywhere(id.key);
        if (!place.ok()) return place.error();
        if (!place.value().has_value()) return MessagingError(kNotFound);
        const FolderNode& folder = place.value()->folder;
        return OpenMailMessage({open, store, folder.path, folder.id}, place.value()->message);
    }

    std::shared_ptr<World> world_;
};

class Factory final : public MessagingFactory {
 public:
    explicit Factory(std::shared_ptr<World> world) : world_(std::move(world)) {}

    Result<std::unique_ptr<MessagingSession>> CreateSession() override {
        return std::unique_ptr<MessagingSession>(std::make_unique<Session>(world_));
    }
    Result<std::unique_ptr<Utilities>> CreateUtilities() override {
        return std::unique_ptr<Utilities>(std::make_unique<UtilitiesObject>(world_));
    }

 private:
    std::shared_ptr<World> world_;
};

}  // namespace

std::unique_ptr<MessagingFactory> MessagingFactoryOver(MailStoreProvider& provider,
                                                       SummaryCache& cache, Clock& clock) {
    return std::make_unique<Factory>(
        std::make_shared<World>(World{provider, cache, clock, nullptr}));
}

}  // namespace trevix::mime
