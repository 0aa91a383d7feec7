// Stationery images are removed from messages; the picture of a zip attachment is had once a run.
#include "manage/cmanage.h"
#include "util/convert.h"
#include "util/pending_error.h"

namespace trevix {
namespace {

constexpr const char* kDeleteStationery = "DeleteStationery";
constexpr const char* kRenderProcedure = "GetZipAttachRender";

std::string ContentIdOf(Attachment& attachment) {
    PendingError pending;
    const Variant value = pending.ValueOr(attachment.Field(kTagAttachmentContentId), Variant());
    return pending.ValueOr(ToText(value), std::string());
}

// A temporary message of the Outbox; deleted with the guard.
class TemporaryMessage {
 public:
    explicit TemporaryMessage(std::unique_ptr<Message> message) : message_(std::move(message)) {}
    TemporaryMessage(const TemporaryMessage&) = delete;
    TemporaryMessage& operator=(const TemporaryMessage&) = delete;
    ~TemporaryMessage() {
        // One that stays behind lies in a scratch folder that ends with the process.
        if (message_ != nullptr) Drop(message_->Delete());
    }
    Message* get() const { return message_.get(); }

 private:
    std::unique_ptr<Message> message_;
};

std::unique_ptr<Message> AddToOutbox(BasCI& state, PendingError& pending) {
    std::unique_ptr<Folder> outbox;
    pending.Assign(outbox, On(state.gMAPISession, [](MessagingSession& session) {
                       return session.GetDefaultFolder(kOutboxFolder);
                   }));
    std::unique_ptr<Messages> messages;
    pending.Assign(messages, On(outbox, [](Folder& folder) { return folder.MessageList(); }));
    std::unique_ptr<Message> message;
    pending.Assign(message, On(messages, [](Messages& list) { return list.Add("IPM.Note"); }));
    return message;
}

}  // namespace

void CManage::DeleteStationery(Message* message, const std::string& attachment_id) {
    PendingError pending;
    std::string subject;
    if (!pending.Assign(subject, On(message, [](Message& opened) { return opened.Subject(); }))) {
        // A message is never saved under a subject that could not be read.
        LogLine(kDeleteStationery,
                " unable to read the message of " + attachment_id + ": " + pending.description(),
                2);
        NoteUnopened({pending.kind(), pending.number(), pending.description()});
        return;
    }
    std::unique_ptr<Attachment> found;
    std::unique_ptr<Attachments> attachments;
    if (!cancel_) {
        pending.Assign(attachments,
                       On(message, [](Message& opened) { return opened.AttachmentList(); }));
    }
    const std::int32_t count =
        pending.ValueOr(On(attachments, [](Attachments& list) { return list.Count(); }), 0);
    for (std::int32_t i = 1; i <= count && found == nullptr; ++i) {
        std::unique_ptr<Attachment> attachment;
        if (!pending.Assign(attachment, attachments->Item(i))) continue;
        const std::string content_id = ContentIdOf(*attachment);
        LogLine(kDeleteStationery, " for " + subject + " strAttachID=" + content_id, 8);
        if (content_id == attachment_id) found = std::move(attachment);
    }
    if (found == nullptr) {
        LogLine(kDeleteStationery, " unable to locate " + attachment_id + " on " + subject, 2);
        if (pending.failed()) {
            NoteUnopened({pending.kind(), pending.number(), pending.description()});
        }
        return;
    }

    // Counted before the delete, so a failed one counts too.
    pending.Step(AddLong(state_.gDeletedStationery, 1));
    pending.Clear();
    const Status deleted = found->Delete();
    if (!pending.Step(deleted)) {
        LogLine(
            kDeleteStationery,
            " error deleting " + attachment_id + " from " + subject + " " + pending.description(),
            1);
        NoteFailure(deleted.error());
        return;
    }
    LogLine(kDeleteStationery, " deleted " + attachment_id + " from " + subject, 8);
    pending.Step(message->SetSubject(subject));
    if (!pending.Step(message->Update())) {
        LogLine(kDeleteStationery, " err at save for " + subject + " " + pending.description(), 1);
        message_failed_ = true;
        return;
    }
    message_changed_ = true;
    ++summary_.stationery_removed;
}

Blob CManage::ReadFileBinary(const std::string& path) {
    PendingError pending;
    const std::uint64_t size = pending.ValueOr(state_.ports.files.FileSize(path), std::uint64_t{0});
    Blob bytes;
    if (size > 0) pending.Assign(bytes, state_.ports.files.OpenBlob(path));
    if (pending.failed()) {
        LogLine("ReadFileBinary",
                " error " + std::to_string(pending.number()) + " " + pending.description(), 1);
    } else {
        const auto upper_bound = static_cast<std::int64_t>(bytes.size_bytes()) - 1;
        LogLine("ReadFileBinary", " for " + path + "; len=" + std::to_string(upper_bound), 8);
    }
    return bytes;
}

void CManage::GetZipAttachRender() {
    PendingError pending;
    const TemporaryMessage message(AddToOutbox(state_, pending));

    std::unique_ptr<StagingDirectory> staging;
    pending.Assign(staging, state_.ports.files.MakeStaging(state_.gZipTemp));
    if (staging != nullptr) {
        const std::string zip_path = staging->path() + "TrevixTb.zip";
        const std::string source = state_.ports.files.InstallationDirectory() + "/TrevixTb.htm";
        zip_.ZIPAttach(zip_path, source, state_.Level);

        std::unique_ptr<Attachments> attachments;
        pending.Assign(attachments,
                       On(message.get(), [](Message& opened) { return opened.AttachmentList(); }));
        pending.Step(On(attachments, [&](Attachments& list) {
            return list.Add("TrevixTb.zip", 0, kAttachmentFileData, zip_path);
        }));
        pending.Step(On(message.get(), [](Message& opened) { return opened.Update(); }));

        std::unique_ptr<Attachment> first;
        pending.Assign(first, On(attachments, [](Attachments& list) { return list.Item(1); }));
        const Variant rendering = pending.ValueOr(
            On(first, [](Attachment& added) { return added.Field(kTagAttachmentRendering); }),
            Variant());
        if (const Blob* bytes = std::get_if<Blob>(&rendering)) rendering_ = *bytes;
        pending.Step(state_.ports.files.Delete(zip_path));
    }
    if (pending.failed()) {
        LogLine(kRenderProcedure,
                " error " + std::to_string(pending.number()) + " " + pending.description(), 1);
    }
}

}  // namespace trevix
