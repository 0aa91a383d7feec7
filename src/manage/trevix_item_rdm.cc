// The message pass: qualifying attachments of one message become zip archives, each its own or all
// together in one that takes the place of the first.
//
// An attachment's bytes leave the message only after the archive that holds them was opened anew
// and compared, and a message is saved whole or not at all; whatever goes wrong before that leaves
// the stored message as it was.
#include "manage/cmanage.h"
#include "util/convert.h"
#include "util/file_name.h"
#include "util/pending_error.h"
#include "util/text.h"

namespace trevix {
namespace {

constexpr const char* kProcedure = "TrevixItemRDM";
constexpr const char* kLogName = "trevix.log";

// The text of a field; empty when there is none. An object may lack a field, but one that cannot be
// read must not pass for one that is missing: much depends on what is missing here.
Result<std::string> FieldText(Result<Variant> field) {
    if (field.ok()) return ToText(field.value());
    if (field.error().kind == ErrorKind::kNotFound) return std::string();
    return field.error();
}

// Lists are lower-case extensions, each with its dot, separated by ":".
bool ListHolds(const std::string& list, const std::string& extension) {
    return (list + ":").find("." + extension + ":") != std::string::npos;
}

// The 8.3 name of an archive.
std::string ShortName(const std::string& archive_name) {
    constexpr std::size_t kLongest = 12;
    constexpr std::size_t kKept = 6;
    if (Utf16Length(archive_name) <= kLongest) return ToUpper(archive_name);
    return ToUpper(Utf16Left(archive_name, kKept)) + "~1.ZIP";
}

// The zip engine's memory input serves all bytes but the last of what it is given, so data that
// must arrive whole is handed over one byte longer.
Blob WithSpareByte(const Blob& data) {
    return Blob::Join({data, Blob::FromString("\n")});
}

}  // namespace

struct CManage::MessageWork {
    Message* message = nullptr;
    std::string subject;
    bool rollup = false;
    std::int32_t rollup_index = 0;
    std::string rollup_name;
    std::string rollup_path;
    std::vector<std::int32_t> rollup_list;
    std::vector<Blob> rollup_contents;  // of the attachments that really are in the archive
    bool first_is_added = false;
    Blob rollup_archive;

    // Private directories of this message: saved attachments and finished archives lie apart, so
    // that an attachment can never be named like an archive.
    std::unique_ptr<StagingDirectory> extracts;
    std::unique_ptr<StagingDirectory> archives;

    // The attachment at hand.
    std::int32_t position = 0;
    std::unique_ptr<Attachment> attachment;
    std::string name;
    bool is_log = false;
    std::int32_t size_bytes = 0;
    Blob content;
    std::string extract_path;

    bool abandoned = false;  // changed in part and not to be saved any more
};

void CManage::TrevixItemRDM(std::unique_ptr<Message>& message, bool custom_items) {
    if (message == nullptr) return;
    PendingError pending;
    std::unique_ptr<Attachments> attachments;
    pending.Assign(attachments, message->AttachmentList());
    const std::int32_t count =
        pending.ValueOr(On(attachments, [](Attachments& list) { return list.Count(); }), 0);
    const std::string subject = pending.ValueOr(message->Subject(), std::string());
    if (pending.failed()) {
        // Too deep, too large or not to be read: the reason is the store's.
        LogLine(kProcedure, " left '" + subject + "': " + pending.description(), 2);
        NoteUnopened({pending.kind(), pending.number(), pending.description()});
        return;
    }
    if (count == 0) return;
    if (cancel_) {
        LogLine(kProcedure, "user Cancel; exiting at head of procedure", 2);
        message.reset();
        return;
    }
    if (!IsTreatedMessage(*message, subject, custom_items)) return;

    MessageWork work;
    work.message = message.get();
    work.subject = subject;
    work.rollup = state_.CombineCompress;
    for (std::int32_t i = 1; i <= count && !work.abandoned; ++i) {
        if (cancel_) {
            LogLine(kProcedure, "user cancel, exiting For loop", 2);
            attachments.reset();
            work.attachment.reset();
            message.reset();
            return;
        }
        TreatAttachment(work, i);
    }

    work.attachment.reset();
    if (cancel_) {
        LogLine(kProcedure, "user cancel after final attachment", 2);
        attachments.reset();
        message.reset();
        return;
    }
    if (work.rollup && work.rollup_index >= 1 && !work.abandoned) FinishRollup(work);
}

bool CManage::IsTreatedMessage(Message& message, const std::string& subject, bool custom_items) {
    const Result<std::string> field = FieldText(message.Field(kTagMessageClass));
    if (!field.ok()) {
        LogLine(kProcedure, " left '" + subject + "': " + field.error().description, 2);
        NoteUnopened(field.error());
        return false;
    }
    const std::string& message_class = field.value();
    for (const char* kind : {"IPM.Note", "IPM.Post", "IPM.Appointment", "IPM.Contact",
                             "IPM.DistList", "IPM.Task", "IPM.Activity"}) {
        if (!ContainsNoCase(message_class, kind)) continue;
        const std::string text = kind;
        if (message_class.size() <= text.size() || custom_items) return true;
        if (text == "IPM.Note" && EqualsNoCase(message_class, "IPM.Note.MIME.multipart.mixed")) {
            return true;
        }
        const std::string line =
            "skipping " + subject + "; excluded message class:" + message_class;
        LogLine(kProcedure, line, 8);
        // Posts are deliberately reported twice: readers of the log know them by the pair.
        if (text == "IPM.Post") LogLine(kProcedure, line, 8);
        return false;
    }
    LogLine(kProcedure, "skipping " + subject + "; excluded message class:" + message_class, 8);
    return false;
}

void CManage::TreatAttachment(MessageWork& work, std::int32_t position) {
    work.position = position;
    work.attachment.reset();
    work.extract_path.clear();
    work.content = Blob();
    PendingError pending;
    std::unique_ptr<Attachments> attachments;
    pending.Assign(attachments, work.message->AttachmentList());
    pending.Assign(work.attachment,
                   On(attachments, [&](Attachments& list) { return list.Item(position); }));
    work.name = "attachment " + std::to_string(position);
    if (work.attachment != nullptr) pending.Assign(work.name, work.attachment->Name());
    if (pending.failed()) {
        LeaveUnread(work, {pending.kind(), pending.number(), pending.description()});
        return;
    }
    work.is_log = ToLower(work.name) == kLogName;
    LogLine(kProcedure, " for " + work.name + " on " + work.subject, 8);
    if (!Qualifies(work) || !MakeStaging(work) || !Extract(work)) return;

    if (work.rollup && work.rollup_path.empty()) {
        work.rollup_name = BaseName(work.name) + ".zip";
        work.rollup_path = work.archives->path() + SafeFileComponent(work.rollup_name);
        work.rollup_index = position;
        work.rollup_list = {position};
    }
    if (work.rollup) {
        AddToRollup(work);
    } else {
        CompressSeparately(work);
    }
    if (!work.is_log && state_.ports.files.FileExists(work.extract_path)) {
        // A file that stays behind goes with its directory.
        Drop(state_.ports.files.Delete(work.extract_path));
    }
}

bool CManage::Qualifies(MessageWork& work) {
    const Result<int> type = work.attachment->Type();
    if (!type.ok()) return LeaveUnread(work, type.error());
    if (type.value() != kAttachmentFileData) {
        LogLine(kProcedure, " no compression, wrong file type for " + work.name, 8);
        return false;
    }
    const Result<std::string> content_id =
        FieldText(work.attachment->Field(kTagAttachmentContentId));
    if (!content_id.ok()) return LeaveUnread(work, content_id.error());
    if (!content_id.value().empty()) {
        LogLine(kProcedure, " skipping " + work.name + ": embedded image", 8);
        return false;
    }
    const std::string extension = ToLower(Extension(work.name));
    if (ListHolds(exclude_compress_, extension)) {
        LogLine(kProcedure, " skipping " + work.name + ": excluded file type", 4);
        return false;
    }
    if (ListHolds(block_, extension)) {
        LogLine(kProcedure, " skipping " + work.name + " - excluded file type", 4);
        return false;
    }
    return IsLargeEnough(work);
}

bool CManage::IsLargeEnough(MessageWork& work) {
    PendingError pending;
    // What cannot be decoded has no size; it is not small but damaged.
    const Variant size = pending.ValueOr(work.attachment->Field(kTagAttachmentSize), Variant());
    pending.Assign(work.size_bytes, ToLong(size));
    if (pending.failed()) {
        return LeaveUnread(work, {pending.kind(), pending.number(), pending.description()});
    }
    if (work.size_bytes < state_.ZipBytesCompress) {
        LogLine(kProcedure,
                " skipping " + work.name + "; size of " +
                    std::to_string(pending.ValueOr(work.attachment->Size(), work.size_bytes)) +
                    "<" + std::to_string(state_.ZipBytesCompress),
                4);
        return false;
    }
    return true;
}

// Says why the attachment at hand stays as it is. Always false.
bool CManage::LeaveUnread(const MessageWork& work, const Error& why) {
    LogLine(kProcedure, " unable to read " + work.name + ": " + why.description, 2);
    NoteFailure(why);
    return false;
}

bool CManage::MakeStaging(MessageWork& work) {
    if (work.extracts != nullptr && work.archives != nullptr) return true;
    PendingError pending;
    pending.Assign(work.extracts, state_.ports.files.MakeStaging(state_.gZipTemp));
    pending.Assign(work.archives, state_.ports.files.MakeStaging(state_.gZipTemp));
    if (!pending.failed()) return true;
    LogLine(kProcedure,
            " no private directory in " + state_.gZipTemp + " for " + work.name + ": " +
                pending.description(),
            1);
    message_failed_ = true;
    work.extracts.reset();
    work.archives.reset();
    return false;
}

// Takes the attachment's data and writes it to its extract file, unless it is named like our own
// log. One that cannot be had exactly as it was sent is left alone, and the message's others are
// treated.
bool CManage::Extract(MessageWork& work) {
    work.extract_path = work.extracts->path() + SafeFileComponent(work.name);
    const Result<Variant> data = work.attachment->Field(kTagAttachmentData);
    if (!data.ok()) return LeaveUnread(work, data.error());
    const Blob* content = std::get_if<Blob>(&data.value());
    if (content == nullptr) return LeaveUnread(work, RuntimeError(kTypeMismatch, work.name));
    work.content = *content;
    if (work.is_log) return true;
    const Status written = work.attachment->WriteToFile(work.extract_path);
    if (written.ok()) return true;
    Error why = written.error();
    // What is denied here is denied to our own work file: the message is tried again.
    if (why.kind == ErrorKind::kDenied) why.kind = ErrorKind::kOther;
    return LeaveUnread(work, why);
}

// Makes or extends an archive with the attachment at hand: from memory for a trevix.log, whose file
// name belongs to our own log, else from its extract file. The engine does not say why it failed;
// the message is tried again.
bool CManage::MakeArchive(MessageWork& work, const std::string& archive_path) {
    std::int16_t code = 0;
    if (work.is_log) {
        std::string entry_name = SafeFileComponent(work.name);
        code = zip_.ZipMemToFileStream(WithSpareByte(work.content), entry_name, archive_path,
                                       state_.Level);
    } else {
        code = zip_.ZIPAttach(archive_path, work.extract_path, state_.Level);
    }
    if (code != 0) message_failed_ = true;
    return code == 0;
}

void CManage::AddToRollup(MessageWork& work) {
    LogLine(kProcedure, " adding " + work.name + " to rollup", 8);
    if (!MakeArchive(work, work.rollup_path)) {
        LogLine(kProcedure, " failed to add " + work.name + " to " + work.rollup_path, 2);
        return;
    }
    if (work.position == work.rollup_index) {
        work.first_is_added = true;
    } else {
        work.rollup_list.push_back(work.position);
    }
    work.rollup_contents.push_back(work.content);
    PendingError pending;
    pending.Step(AddLong(folder_original_bytes_, work.size_bytes));
    pending.Step(AddLong(folder_compressed_count_, 1));
    LogLine(kProcedure, " added " + work.name + " to " + work.rollup_path, 8);
}

void CManage::CompressSeparately(MessageWork& work) {
    LogLine(kProcedure, " separate compression for " + work.name + "; compress in place", 8);
    const std::string archive_name = BaseName(work.name) + ".zip";
    const std::string archive_path = work.archives->path() + SafeFileComponent(archive_name);
    // A failed archive writes no line of its own; the engine has written one.
    if (!MakeArchive(work, archive_path)) return;
    const Blob archive = ReadFileBinary(archive_path);
    if (!ProveArchive(archive_path, archive, {work.content}, work.name)) return;
    PendingError pending;
    pending.Step(state_.ports.files.Delete(archive_path));
    pending.Step(AddLong(folder_original_bytes_, work.size_bytes));
    pending.Step(AddLong(folder_compressed_bytes_, CapLong(archive.size_bytes())));
    pending.Step(AddLong(folder_compressed_count_, 1));
    if (!WriteArchiveProperties(work, *work.attachment, archive, archive_name, work.name)) return;
    pending.Step(work.message->SetSubject(work.subject));
    if (cancel_) return;
    const std::uint64_t original_bytes = work.content.size_bytes();
    if (!SaveMessage(work, work.name)) return;
    ++summary_.attachments_zipped;
    summary_.original_bytes += static_cast<std::int64_t>(original_bytes);
    summary_.compressed_bytes += static_cast<std::int64_t>(archive.size_bytes());
}

void CManage::FinishRollup(MessageWork& work) {
    LogLine(kProcedure, " RollupIndex=" + std::to_string(work.rollup_index), 8);
    PendingError pending;
    std::unique_ptr<Attachments> attachments;
    pending.Assign(attachments, work.message->AttachmentList());
    std::unique_ptr<Attachment> first;
    pending.Assign(
        first, On(attachments, [&](Attachments& list) { return list.Item(work.rollup_index); }));
    if (first == nullptr) {
        LogLine(kProcedure, " unable to retrieve indexed attachment " + pending.description(), 1);
        message_failed_ = true;
        return;
    }
    LogLine(kProcedure, " rollup attachment= " + std::to_string(first->Index()), 8);
    if (!state_.ports.files.FileExists(work.rollup_path)) {
        LogLine(kProcedure, " missing rollup " + work.rollup_path, 1);
        message_failed_ = true;
        return;
    }
    if (!work.first_is_added) {
        // The archive would take the place of an attachment that it does not hold.
        LogLine(kProcedure,
                " rollup " + work.rollup_path + " lacks its first attachment; message left", 1);
        return;
    }
    work.rollup_archive = ReadFileBinary(work.rollup_path);
    if (!ProveArchive(work.rollup_path, work.rollup_archive, work.rollup_contents,
                      work.rollup_name)) {
        return;
    }
    if (!ReplaceByRollup(work, *first)) return;

    pending.Step(work.message->SetSubject(work.subject));
    if (cancel_) return;
    std::uint64_t original_bytes = 0;
    for (const Blob& content : work.rollup_contents)
        original_bytes += content.size_bytes();
    const Blob archive = work.rollup_archive;
    if (!SaveMessage(work, work.rollup_name)) return;
    summary_.attachments_zipped += static_cast<std::int64_t>(work.rollup_contents.size());
    summary_.original_bytes += static_cast<std::int64_t>(original_bytes);
    summary_.compressed_bytes += static_cast<std::int64_t>(archive.size_bytes());
}

// Puts the archive in the place of the first attachment and deletes the others. False when the
// message refused any of it; it must not be saved then.
bool CManage::ReplaceByRollup(MessageWork& work, Attachment& first) {
    PendingError pending;
    pending.Step(AddLong(folder_compressed_bytes_, CapLong(work.rollup_archive.size_bytes())));
    const std::string first_name = pending.ValueOr(first.Name(), work.rollup_name);
    const bool written =
        WriteArchiveProperties(work, first, work.rollup_archive, work.rollup_name, first_name);
    pending.Step(state_.ports.files.Delete(work.rollup_path));
    if (!written) return false;

    // From the highest position down, so that those still to be deleted keep their meaning.
    for (std::size_t i = work.rollup_list.size() - 1; i >= 1; --i) {
        PendingError failed;
        std::unique_ptr<Attachments> attachments;
        failed.Assign(attachments, work.message->AttachmentList());
        std::unique_ptr<Attachment> other;
        failed.Assign(other, On(attachments,
                                [&](Attachments& list) { return list.Item(work.rollup_list[i]); }));
        failed.Step(On(other, [](Attachment& attachment) { return attachment.Delete(); }));
        if (failed.failed()) {
            LogLine(kProcedure,
                    " err at delete for " + work.rollup_name + " " + failed.description(), 2);
            NoteFailure({failed.kind(), failed.number(), failed.description()});
            return false;
        }
    }
    return true;
}

bool CManage::WriteArchiveProperties(MessageWork& work, Attachment& attachment, const Blob& archive,
                                     const std::string& archive_name, const std::string& name) {
    PendingError pending;
    if (pending.Step(attachment.SetField(kTagAttachmentData, archive))) {
        // New data under the old name must not be saved, not with a later attachment either.
        work.abandoned = !pending.Step(attachment.SetName(archive_name));
    }
    if (pending.failed()) {
        // Signed, encrypted or not certain where it begins and ends: the store refuses the change.
        LogLine(kProcedure, " " + name + " left as it was: " + pending.description(), 2);
        NoteFailure({pending.kind(), pending.number(), pending.description()});
        return false;
    }
    pending.Step(attachment.SetField(kTagAttachmentExtension, std::string(".zip")));
    pending.Step(attachment.SetField(kTagAttachmentLongName, archive_name));
    pending.Step(attachment.SetField(kTagAttachmentShortName, ShortName(archive_name)));
    pending.Step(attachment.SetField(kTagAttachmentRendering, rendering_));
    return true;
}

// Whether the archive, as it was read to be attached, holds exactly the contents that it replaces.
bool CManage::ProveArchive(const std::string& archive_path, const Blob& archive,
                           const std::vector<Blob>& contents, const std::string& name) {
    const Status proof = archive.empty() ? Status(RuntimeError(kDeviceIo, archive_path))
                                         : state_.ports.zip.Proof().Verify(archive_path, contents);
    if (proof.ok()) return true;
    LogLine(kProcedure,
            " archive check failed for " + name + "; message left: " + proof.error().description,
            1);
    message_failed_ = true;
    return false;
}

bool CManage::SaveMessage(MessageWork& work, const std::string& name) {
    const Status saved = work.message->Update();
    if (!saved.ok()) {
        LogLine(kProcedure, " err at save for " + name + " " + saved.error().description, 1);
        message_failed_ = true;
        return false;
    }
    message_changed_ = true;
    return true;
}

}  // namespace trevix
