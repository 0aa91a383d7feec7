// Message attachment indexing: the rows of one message. Of its attachments only names, sizes and
// times are read; an attached zip archive is saved for a moment, to list what is in it.
#include "index/attach_index.h"
#include "index/cindex.h"
#include "store/folder_record_set.h"
#include "store/store_helpers.h"
#include "util/convert.h"
#include "util/failure.h"
#include "util/file_name.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr const char* kProcedure = "SafeIndexAttachments";

// Attachment methods.
constexpr std::int32_t kByValue = 1;
constexpr std::int32_t kByReference = 2;
constexpr std::int32_t kByReferenceOnly = 4;

// How a store says that an attachment has no time of its own.
constexpr Date kNoTime{2};  // 1900-01-01

// A value of the object, or nothing. A failure that may be over next time is noted: what is read
// then may be another value.
template <typename Object>
Variant FieldOrEmpty(Object& object, PropertyTag tag, bool& failed) {
    Result<Variant> value = object.Field(tag);
    if (value.ok()) return std::move(value).value();
    if (!IsLasting(value.error())) failed = true;
    return {};
}

template <typename Object>
std::string TextOrEmpty(Object& object, PropertyTag tag, bool& failed) {
    PendingError pending;
    return pending.ValueOr(ToText(FieldOrEmpty(object, tag, failed)), std::string());
}

template <typename T>
T ValueOrEmpty(Result<T> value, bool& failed) {
    if (value.ok()) return std::move(value).value();
    if (!IsLasting(value.error())) failed = true;
    return {};
}

}  // namespace

CIndex::MessageRows CIndex::SafeIndexAttachments(Message& message, const std::string& entry_id,
                                                 const FolderScan& scan) {
    MessageRows rows;
    const std::string subject = ValueOrEmpty(message.Subject(), rows.failed);
    LogLine(kProcedure, "for " + subject, 12);
    std::unique_ptr<Attachments> attachments = ValueOrEmpty(message.AttachmentList(), rows.failed);
    const std::int32_t count =
        attachments == nullptr ? 0 : ValueOrEmpty(attachments->Count(), rows.failed);
    if (cancel_ || count == 0) return rows;
    LogLine(kProcedure, "Attachment count for '" + subject + "'=" + std::to_string(count), 12);

    AttachedTo about = DescribeMessage(message, entry_id, scan, rows.failed);
    about.subject = subject;
    if (!IsOpen(state_.gAttachRST)) {
        // Whoever closed it took the rows of this run along: what is gathered now is not the index.
        run_.index_lost = true;
        if (!InitIndexRST()) {
            const Error missing = RuntimeError(kObjectNotSet);
            LogLine(kProcedure, std::to_string(missing.number) + "error:" + missing.description, 1);
            rows.failed = true;
            return rows;
        }
    }
    for (std::int32_t i = 1; i <= count; ++i) {
        if (cancel_) {
            LogLine(kProcedure, " user Cancel", 2);
            break;
        }
        // Listing a zip attachment serves the loop, and with it whoever closes the index.
        if (!IsOpen(state_.gAttachRST)) {
            run_.index_lost = true;
            rows.failed = true;
            break;
        }
        const auto attachment = ValueOrEmpty(attachments->Item(i), rows.failed);
        if (attachment != nullptr) IndexAttachment(*attachment, about, rows);
    }
    return rows;
}

AttachedTo CIndex::DescribeMessage(Message& message, const std::string& entry_id,
                                   const FolderScan& scan, bool& failed) {
    AttachedTo about;
    about.entry_id = entry_id;
    if (scan.store_id != state_.gStoreID) about.store_id = scan.store_id;
    about.folder = scan.folder_text;
    about.folder_key = scan.key;
    const Variant received = FieldOrEmpty(message, kTagDeliveryTime, failed);
    if (std::holds_alternative<Date>(received)) about.received = received;
    about.from = SenderAddress(message, &failed);
    about.sender = SenderDisplayAddress(message, &failed);
    if (ContainsNoCase(TextOrEmpty(message, kTagMessageClass, failed), "IPM.Note")) {
        about.to = RecipientAddressList(message, &failed);
        about.display_to = TextOrEmpty(message, kTagDisplayTo, failed);
        const std::string copies = TextOrEmpty(message, kTagDisplayCc, failed);
        if (!copies.empty()) about.display_to += "; " + copies;
    }
    return about;
}

void CIndex::IndexAttachment(Attachment& attachment, const AttachedTo& about, MessageRows& rows) {
    PendingError pending;
    const Variant method = FieldOrEmpty(attachment, kTagAttachmentMethod, rows.failed);
    std::string name;
    switch (pending.ValueOr(ToLong(method), 0)) {
        case kByValue:
            name = ValueOrEmpty(attachment.Name(), rows.failed);
            if (name.empty()) name = TextOrEmpty(attachment, kTagAttachmentShortName, rows.failed);
            if (EqualsNoCase(Extension(name), "zip")) {
                ListZipAttachment(attachment, name, about, rows);
            } else {
                AddWholeAttachment(attachment, name, kByValueRow, about, rows);
            }
            break;
        case kByReference:
            name = TextOrEmpty(attachment, kTagDisplayName, rows.failed);
            AddWholeAttachment(attachment, name, kByReferenceRow, about, rows);
            break;
        case kByReferenceOnly:
            name = TextOrEmpty(attachment, kTagDisplayName, rows.failed);
            AddWholeAttachment(attachment, name, kByReferenceOnlyRow, about, rows);
            break;
        default: break;
    }
}

// Without a name there is no row.
void CIndex::AddWholeAttachment(Attachment& attachment, const std::string& name,
                                std::int32_t zip_index, const AttachedTo& about,
                                MessageRows& rows) {
    if (name.empty()) return;
    AttachedFile file;
    file.file_name = name;
    file.zip_index = zip_index;
    file.file_size = ValueOrEmpty(attachment.Size(), rows.failed);
    file.file_date = FieldOrEmpty(attachment, kTagLastModification, rows.failed);
    const Date* time = std::get_if<Date>(&file.file_date);
    // The message's own time is when it came: that of its last change moves with every flag.
    if (time == nullptr || *time == kNoTime) file.file_date = about.received;

    const Status added =
        AddAttachmentRow(*state_.gAttachRST, file, about, {state_.log, "CIndex", kProcedure});
    if (added.ok()) {
        ++rows.added;
    } else if (!IsLasting(added.error())) {
        rows.failed = true;
    }
}

void CIndex::ListZipAttachment(Attachment& attachment, const std::string& name,
                               const AttachedTo& about, MessageRows& rows) {
    FileSystem& files = state_.ports.files;
    PendingError pending;
    std::unique_ptr<StagingDirectory> staging;
    if (!pending.Assign(staging, files.MakeStaging(state_.gZipTemp))) {
        LogLine(kProcedure, " no directory to list '" + name + "' in " + pending.description(), 1);
        rows.failed = true;
        return;
    }
    const std::string path = staging->path() + SafeFileComponent(name);
    const Status written = attachment.WriteToFile(path);
    if (!written.ok()) {
        LogLine(kProcedure,
                " unable to save '" + name + "' on '" + about.subject +
                    "': " + written.error().description,
                8);
        if (!IsLasting(written.error())) rows.failed = true;
        return;
    }
    const std::int64_t before = state_.gAttachRST->RecordCount();
    zip_.GetZIPContent(path, name, about, state_.gAttachRST, state_.ports.loop);
    if (zip_.LastListing() == ZipListing::kFailed) rows.failed = true;
    if (IsOpen(state_.gAttachRST)) {
        rows.added += static_cast<std::int32_t>(state_.gAttachRST->RecordCount() - before);
    } else {
        run_.index_lost = true;
    }
    // A file that stays behind goes with its directory.
    Drop(files.Delete(path));
}

}  // namespace trevix
