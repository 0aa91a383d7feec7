#include "cli/row_extractor.h"

#include <string_view>
#include <utility>

#include "cli/index_columns.h"
#include "cli/output_file.h"
#include "cli/text_format.h"
#include "cli/zip_member.h"
#include "util/convert.h"

namespace trevix::cli {
namespace {

constexpr const char* kArchiveName = "archive.zip";

// What tells the rows of one message apart.
struct RowKey {
    std::string_view file_name;
    std::string_view zip_file;
    std::int64_t zip_index = 0;
    friend bool operator==(const RowKey&, const RowKey&) = default;
};

RowKey KeyOf(const RecordSet& index) {
    return {TextOf(index, IndexColumn::kFileName), TextOf(index, IndexColumn::kZipFile),
            IntegerOf(index, IndexColumn::kZipIndex)};
}

WantedRow ReadRow(const RecordSet& index, RowNumber number) {
    WantedRow row;
    row.number = number;
    row.file_name = TextOf(index, IndexColumn::kFileName);
    row.zip_file = TextOf(index, IndexColumn::kZipFile);
    row.entry_id = TextOf(index, IndexColumn::kEntryID);
    row.store_id = TextOf(index, IndexColumn::kStoreID);
    row.zip_index = static_cast<std::int32_t>(IntegerOf(index, IndexColumn::kZipIndex));
    row.size = IntegerOf(index, IndexColumn::kFileSize);
    return row;
}

Error Missing(const char* why) {
    return {ErrorKind::kNotFound, 0, why};
}

// What the index calls the attachment.
std::string NameOf(Attachment& attachment) {
    const auto name = attachment.Name();
    if (name.ok() && !name.value().empty()) return name.value();
    const auto field = attachment.Field(kTagAttachmentShortName);
    if (!field.ok()) return {};
    const auto text = ToText(field.value());
    return text.ok() ? text.value() : std::string();
}

}  // namespace

std::vector<WantedRow> ReadWantedRows(RecordSet& index, const std::vector<RowNumber>& numbers) {
    std::vector<WantedRow> rows;
    std::vector<RowKey> keys;  // of the message's rows so far
    std::string_view entry_id;
    auto next = numbers.begin();
    ForEachRow(index, [&](RowNumber number) {
        if (next == numbers.end()) return;
        const std::string_view id = TextOf(index, IndexColumn::kEntryID);
        if (id != entry_id) keys.clear();
        entry_id = id;
        keys.push_back(KeyOf(index));
        if (number != *next) return;
        ++next;
        rows.push_back(ReadRow(index, number));
        for (std::size_t i = 0; i + 1 < keys.size(); ++i) {
            if (keys[i] == keys.back()) ++rows.back().occurrence;
        }
    });
    return rows;
}

Result<std::string> RowExtractor::Save(const WantedRow& row) {
    if (row.zip_index == kByReferenceRow || row.zip_index == kByReferenceOnlyRow) {
        return Error{ErrorKind::kUnsupported, 0,
                     "the message holds only a link to a file that is kept elsewhere"};
    }
    TREVIX_RETURN_IF_ERROR(OpenMessage(row));
    return row.zip_index >= 0 ? SaveMember(row) : SaveAttachment(row);
}

Status RowExtractor::OpenMessage(const WantedRow& row) {
    const std::string& store_id = row.store_id.empty() ? state_.gStoreID : row.store_id;
    if (message_ != nullptr && row.entry_id == entry_id_ && store_id == store_id_) return {};
    attachments_.reset();
    message_.reset();
    listed_.clear();
    unpacked_ = 0;
    staging_.reset();
    auto message = state_.gUtils->OpenMessage(row.entry_id, store_id);
    if (!message.ok()) {
        const bool is_gone = message.error().kind == ErrorKind::kNotFound ||
                             message.error().kind == ErrorKind::kGone;
        if (is_gone) return Error{ErrorKind::kGone, 0, "its message is not there any more"};
        return message.error();
    }
    message_ = std::move(message).value();
    auto attachments = message_->AttachmentList();
    if (!attachments.ok()) {
        message_.reset();
        return attachments.error();
    }
    attachments_ = std::move(attachments).value();
    entry_id_ = row.entry_id;
    store_id_ = store_id;
    Status listed = ListAttachments();
    if (!listed.ok()) message_.reset();
    return listed;
}

Status RowExtractor::ListAttachments() {
    const auto count = attachments_->Count();
    if (!count.ok()) return count.error();
    for (std::int32_t position = 1; position <= count.value(); ++position) {
        auto attachment = attachments_->Item(position);
        if (!attachment.ok()) return attachment.error();
        const auto type = attachment.value()->Type();
        if (!type.ok() || type.value() != kAttachmentFileData) continue;
        const auto size = attachment.value()->Size();
        // One that cannot be decoded has no size; saving it will say why.
        listed_.push_back({position, NameOf(*attachment.value()), size.ok() ? size.value() : -1});
    }
    return {};
}

// The attachments of the row's name, the likeliest first: of several that are called the same, the
// one in the same place.
std::vector<RowExtractor::Candidate> RowExtractor::CandidatesFor(const WantedRow& row) const {
    const std::string& name = row.zip_index >= 0 ? row.zip_file : row.file_name;
    std::vector<Candidate> candidates;
    for (const Candidate& one : listed_) {
        if (one.name == name) candidates.push_back(one);
    }
    const auto place = static_cast<std::size_t>(row.occurrence);
    if (place < candidates.size()) std::swap(candidates[0], candidates[place]);
    return candidates;
}

Result<std::string> RowExtractor::SaveAttachment(const WantedRow& row) {
    const std::vector<Candidate> candidates = CandidatesFor(row);
    if (candidates.empty()) return Missing("its message has no such attachment any more");
    const Candidate* chosen = &candidates.front();
    for (const Candidate& one : candidates) {
        if (chosen->size != row.size && one.size == row.size) chosen = &one;
    }
    auto attachment = attachments_->Item(chosen->position);
    if (!attachment.ok()) return attachment.error();
    const auto data = attachment.value()->Field(kTagAttachmentData);
    if (!data.ok()) return data.error();
    const auto* const content = std::get_if<Blob>(&data.value());
    if (content == nullptr) return Missing("its message has no such attachment any more");

    auto file = OutputFile::Create(directory_);
    if (!file.ok()) return file.error();
    TREVIX_RETURN_IF_ERROR(content->ForEachPiece(
        [&](const char* bytes, std::size_t count) { return file.value().Write(bytes, count); }));
    return file.value().Finish(SaveName(row.file_name));
}

Result<std::string> RowExtractor::SaveMember(const WantedRow& row) {
    const std::vector<Candidate> candidates = CandidatesFor(row);
    if (candidates.empty()) return Missing("its message has no such zip attachment any more");
    Result<std::string> saved = Missing("");
    for (const Candidate& one : candidates) {
        saved = SaveMemberOf(row, one.position);
        // Another archive of the same name may hold it.
        if (saved.ok() || saved.error().kind != ErrorKind::kNotFound) break;
    }
    return saved;
}

Result<std::string> RowExtractor::SaveMemberOf(const WantedRow& row, std::int32_t position) {
    TREVIX_RETURN_IF_ERROR(UnpackArchive(position));
    auto file = OutputFile::Create(directory_);
    if (!file.ok()) return file.error();
    TREVIX_RETURN_IF_ERROR(ReadZipMember(
        staging_->path() + kArchiveName, {row.zip_index, row.file_name, row.size},
        [&](const char* bytes, std::size_t count) { return file.value().Write(bytes, count); }));
    return file.value().Finish(SaveName(row.file_name));
}

Status RowExtractor::UnpackArchive(std::int32_t position) {
    if (unpacked_ == position) return {};
    unpacked_ = 0;
    staging_.reset();
    auto staging = state_.ports.files.MakeStaging(state_.TemporaryPath());
    if (!staging.ok()) return staging.error();
    staging_ = std::move(staging).value();
    auto attachment = attachments_->Item(position);
    if (!attachment.ok()) return attachment.error();
    TREVIX_RETURN_IF_ERROR(attachment.value()->WriteToFile(staging_->path() + kArchiveName));
    unpacked_ = position;
    return {};
}

}  // namespace trevix::cli
