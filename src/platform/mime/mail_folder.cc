#include "platform/mime/mail_folder.h"

#include "platform/mime/entry_id.h"
#include "platform/mime/mail_messages.h"
#include "platform/mime/property_message.h"
#include "platform/mime/row_set.h"

namespace trevix::mime {
namespace {

constexpr const char* kMailContainer = "IPF.Note";

class MailFolderObject final : public Folder {
 public:
    MailFolderObject(std::shared_ptr<OpenStores> session, std::shared_ptr<OpenStore> store,
                     FolderNode node, std::string parent_id)
        : session_(std::move(session)),
          store_(std::move(store)),
          node_(std::move(node)),
          parent_id_(std::move(parent_id)) {}

    Result<std::string> Name() override { return node_.name; }
    Result<std::string> Id() override { return ToHex(node_.id); }
    Result<std::string> StoreId() override { return ToHex(store_->id()); }

    Result<std::string> FolderId() override {
        if (parent_id_.empty()) return MessagingError(kNotFound);
        return ToHex(parent_id_);
    }

    Result<Variant> Field(PropertyTag tag) override {
        switch (CanonicalTag(tag)) {
            case kTagContainerClass: return Variant(std::string(kMailContainer));
            case kTagDisplayName: return Variant(node_.name);
            case kTagEntryId:
            case kTagLongTermEntryId: return Variant(Blob::FromString(node_.id));
            default: return MessagingError(kNotFound);
        }
    }

    Result<std::unique_ptr<Messages>> MessageList() override {
        return ListMailMessages(store_, node_);
    }

    Result<std::unique_ptr<Messages>> HiddenMessages() override {
        return ListPropertyMessages(HiddenFolderOf(session_, store_, node_));
    }

    Result<std::int32_t> FolderCount() override {
        const auto tree = store_->Tree(IsRoot());
        if (!tree.ok()) return tree.error();
        if (IsRoot()) node_ = tree.value()->front();
        return static_cast<std::int32_t>(node_.children.size());
    }

    Result<std::vector<std::unique_ptr<Folder>>> Folders() override {
        std::vector<std::unique_ptr<Folder>> folders;
        const auto tree = store_->Tree(IsRoot());
        if (!tree.ok()) return tree.error();
        for (const FolderNode& child : *tree.value()) {
            const bool mine =
                child.parent >= 0 &&
                (*tree.value())[static_cast<std::size_t>(child.parent)].id == node_.id;
            if (!mine) continue;
            folders.push_back(
                std::make_unique<MailFolderObject>(session_, store_, child, node_.id));
        }
        return folders;
    }

    Result<bool> IsSameAs(Folder& other) override {
        const Result<std::string> other_id = other.Id();
        if (!other_id.ok()) return other_id.error();
        return other_id.value() == ToHex(node_.id);
    }

 private:
    // A walk lists what is below the root first, so this is where new folders come to light.
    bool IsRoot() const { return parent_id_.empty(); }

    std::shared_ptr<OpenStores> session_;
    std::shared_ptr<OpenStore> store_;
    FolderNode node_;
    std::string parent_id_;  // empty for the root
};

// The Outbox has a place in the IDs of its store, under a name that no folder can have.
constexpr std::string_view kOutboxPath = "\x01outbox";

class OutboxFolder final : public Folder {
 public:
    explicit OutboxFolder(std::shared_ptr<OpenStores> session)
        : session_(std::move(session)),
          id_(FolderEntryId(session_->default_store()->address(), kOutboxPath)) {}

    Result<std::string> Name() override { return std::string("Outbox"); }
    Result<std::string> Id() override { return ToHex(id_); }
    Result<std::string> StoreId() override { return ToHex(session_->default_store()->id()); }
    Result<std::string> FolderId() override {
        return ToHex(FolderEntryId(session_->default_store()->address(), kRootFolder));
    }
    Result<Variant> Field(PropertyTag tag) override {
        if (CanonicalTag(tag) == kTagContainerClass) return Variant(std::string(kMailContainer));
        return MessagingError(kNotFound);
    }
    Result<std::unique_ptr<Messages>> MessageList() override {
        return ListPropertyMessages({session_, &session_->outbox, id_});
    }
    Result<std::unique_ptr<Messages>> HiddenMessages() override {
        return ListPropertyMessages({session_, nullptr, id_});
    }
    Result<std::int32_t> FolderCount() override { return 0; }
    Result<std::vector<std::unique_ptr<Folder>>> Folders() override {
        return std::vector<std::unique_ptr<Folder>>();
    }
    Result<bool> IsSameAs(Folder& other) override {
        const Result<std::string> other_id = other.Id();
        if (!other_id.ok()) return other_id.error();
        return other_id.value() == ToHex(id_);
    }

 private:
    std::shared_ptr<OpenStores> session_;
    std::string id_;
};

class MailInfoStore final : public InfoStore {
 public:
    MailInfoStore(std::shared_ptr<OpenStores> session, std::shared_ptr<OpenStore> store)
        : session_(std::move(session)), store_(std::move(store)) {}

    Result<std::string> Name() override { return store_->mail().display_name(); }
    Result<std::string> Id() override { return ToHex(store_->id()); }
    Result<std::unique_ptr<Folder>> RootFolder() override {
        return MakeMailFolder(session_, store_, 0);
    }

 private:
    std::shared_ptr<OpenStores> session_;
    std::shared_ptr<OpenStore> store_;
};

}  // namespace

Result<std::unique_ptr<Folder>> MakeMailFolder(std::shared_ptr<OpenStores> session,
                                               std::shared_ptr<OpenStore> store, int position) {
    const auto tree = store->Tree(false);
    if (!tree.ok()) return tree.error();
    const FolderNode& node = (*tree.value())[static_cast<std::size_t>(position)];
    const std::string parent_id =
        node.parent < 0 ? std::string() : (*tree.value())[static_cast<std::size_t>(node.parent)].id;
    return std::unique_ptr<Folder>(
        std::make_unique<MailFolderObject>(std::move(session), std::move(store), node, parent_id));
}

std::unique_ptr<Folder> MakeOutbox(std::shared_ptr<OpenStores> session) {
    return std::make_unique<OutboxFolder>(std::move(session));
}

std::unique_ptr<InfoStore> MakeInfoStore(std::shared_ptr<OpenStores> session,
                                         std::shared_ptr<OpenStore> store) {
    return std::make_unique<MailInfoStore>(std::move(session), std::move(store));
}

}  // namespace trevix::mime
