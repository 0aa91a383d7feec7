#include "platform/mime/mail_messages.h"

#include <cstring>

#include "platform/mime/dates.h"
#include "platform/mime/entry_id.h"
#include "platform/mime/row_set.h"

namespace trevix::mime {
namespace {

// An entry ID that is made when somebody reads it: most rows of a table are never opened, and the
// digest is the dear part of the ID.
class LazyEntryId final : public Blob::Source {
 public:
    LazyEntryId(std::shared_ptr<const std::string> folder_id,
                std::shared_ptr<const FolderSummary> listing, std::size_t row)
        : folder_id_(std::move(folder_id)), listing_(std::move(listing)), row_(row) {}

    std::uint64_t size_bytes() const override { return 70; }

    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        const std::string id = MessageEntryId(
            *folder_id_, Digest16(listing_->messages[row_].entry.key), EntryKind::kMessage);
        std::memcpy(target, id.data() + offset, count);
        return {};
    }

 private:
    std::shared_ptr<const std::string> folder_id_;
    std::shared_ptr<const FolderSummary> listing_;
    std::size_t row_;
};

class MailRows final : public RowSet {
 public:
    MailRows(std::shared_ptr<OpenStore> store, const FolderNode& folder,
             std::shared_ptr<const FolderSummary> listing)
        : store_(std::move(store)),
          path_(folder.path),
          folder_id_(std::make_shared<const std::string>(folder.id)),
          listing_(std::move(listing)) {}

    std::size_t size() const override { return listing_->messages.size(); }

    Variant Cell(std::size_t row, PropertyTag tag) const override {
        const MessageSummary& message = listing_->messages[row];
        switch (CanonicalTag(tag)) {
            case kTagHasAttachments: return message.has_attachments;
            case kTagSubject: return message.subject;
            case kTagMessageClass: return message.message_class;
            case kTagLastModification: return DateFromUnixNs(ModifiedNs(message));
            case kTagDeliveryTime: return DateFromUnixNs(message.entry.received_ns);
            case kTagArticleNumber: return message.entry.number;
            case kTagEntryId:
            case kTagLongTermEntryId:
                return Blob(std::make_shared<LazyEntryId>(folder_id_, listing_, row));
            default: return ErrorValue{kNotFound};
        }
    }

    void Taken(const std::vector<std::uint32_t>& order) const override {
        store_->NoteRows(path_, listing_, order);
    }

 private:
    std::shared_ptr<OpenStore> store_;
    std::string path_;
    std::shared_ptr<const std::string> folder_id_;
    std::shared_ptr<const FolderSummary> listing_;
};

class MailMessages final : public RowMessages {
 public:
    MailMessages(std::shared_ptr<OpenStore> store, const FolderNode& folder,
                 std::shared_ptr<const FolderSummary> listing)
        : rows_(std::make_shared<const MailRows>(std::move(store), folder, std::move(listing))) {}

    // Mail comes by delivery.
    Result<std::unique_ptr<Message>> Add(const std::string&) override {
        return MessagingError(kNoAccess, "messages are not added to mail folders");
    }

 private:
    Result<std::shared_ptr<const RowSet>> AllRows() override {
        return std::shared_ptr<const RowSet>(rows_);
    }

    std::shared_ptr<const MailRows> rows_;
};

}  // namespace

Result<std::unique_ptr<Messages>> ListMailMessages(std::shared_ptr<OpenStore> store,
                                                   const FolderNode& folder) {
    std::shared_ptr<const FolderSummary> listing = std::make_shared<FolderSummary>();
    if (folder.holds_messages) {
        auto listed = store->State(folder.path).Refresh();
        if (!listed.ok()) return listed.error();
        listing = std::move(listed).value();
    }
    return std::unique_ptr<Messages>(
        std::make_unique<MailMessages>(std::move(store), folder, std::move(listing)));
}

PropertyFolder HiddenFolderOf(std::shared_ptr<OpenStores> session,
                              const std::shared_ptr<OpenStore>& store, const FolderNode& folder) {
    const bool is_inbox = folder.holds_messages && folder.path == store->mail().inbox_path();
    HiddenMailStore* mails = is_inbox ? &store->mail().Hidden() : nullptr;
    return {std::move(session), mails, folder.id};
}

}  // namespace trevix::mime
