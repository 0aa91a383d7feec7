#include "cli/loaded_index.h"

#include <string>
#include <utility>

#include "cli/text_format.h"
#include "index/attach_index.h"
#include "store/results_message.h"
#include "zip/czip.h"

namespace trevix::cli {
namespace {

// Codes of the unzip engine that say nothing about the archive.
constexpr std::int16_t kOutOfMemoryCode = 4;
constexpr std::int16_t kWriteCode = 14;
constexpr std::int16_t kCreateCode = 15;

Error Damaged(const std::string& why) {
    return {ErrorKind::kMalformed, 0, why};
}

// The first attachment of that name.
Result<std::unique_ptr<Attachment>> FindZip(Attachments& attachments) {
    const auto count = attachments.Count();
    if (!count.ok()) return count.error();
    for (std::int32_t i = 1; i <= count.value(); ++i) {
        auto attachment = attachments.Item(i);
        if (!attachment.ok()) return attachment.error();
        const auto name = attachment.value()->Name();
        if (!name.ok()) return name.error();
        if (name.value() == kAttachZipName) return attachment;
    }
    return Error{ErrorKind::kNotFound, 0, "no index was saved"};
}

Status WriteZip(BasCI& state, const std::string& path) {
    const std::unique_ptr<Message> message = GetResultsHM(state);
    if (message == nullptr) {
        return Error{ErrorKind::kMissing, 0, "the results message cannot be read"};
    }
    auto attachments = message->AttachmentList();
    if (!attachments.ok()) return attachments.error();
    auto zip = FindZip(*attachments.value());
    if (!zip.ok()) return zip.error();
    return zip.value()->WriteToFile(path);
}

Status Extract(BasCI& state, const std::string& zip_path, std::string directory) {
    CZIP zip(state.ports.zip, state.ports.files, state.log, state.Level);
    const std::int16_t code = zip.ZIPExtract(zip_path, directory);
    if (code == 0) return {};
    const std::string why = CZIP::GetErrorDesc(code);
    switch (code) {
        case kWriteCode: return Error{ErrorKind::kNoSpace, 0, why};
        case kOutOfMemoryCode:
        case kCreateCode: return Error{ErrorKind::kIo, 0, why};
        default: return Damaged(why);
    }
}

}  // namespace

Result<std::unique_ptr<RecordSet>> LoadSavedIndex(BasCI& state) {
    // Below this all is ours alone, so a run beside us does not meet it.
    auto staging = state.ports.files.MakeStaging(state.TemporaryPath());
    if (!staging.ok()) return staging.error();
    const std::string& directory = staging.value()->path();
    TREVIX_RETURN_IF_ERROR(WriteZip(state, directory + kAttachZipName));
    TREVIX_RETURN_IF_ERROR(Extract(state, directory + kAttachZipName, directory));

    auto index = state.ports.record_sets.CreateRecordSet();
    if (!index.ok()) return index;
    const Status opened = index.value()->OpenFile(directory + kAttachAdtgName);
    if (!opened.ok()) {
        // An archive without the file is as damaged as one that cannot be unpacked.
        const bool is_missing = opened.error().kind == ErrorKind::kNotFound;
        return is_missing ? Damaged(std::string("it holds no ") + kAttachAdtgName) : opened.error();
    }
    if (!HasAttachColumns(*index.value())) return Damaged("another layout");
    return index;
}

std::unique_ptr<RecordSet> OpenSavedIndex(BasCI& state, Console& console) {
    auto index = LoadSavedIndex(state);
    if (index.ok()) return std::move(index).value();
    const std::string why = PlainText(index.error().description);
    switch (index.error().kind) {
        case ErrorKind::kNotFound:
            console.Complain(
                {"index", "this store has no attachment index yet; run \"trevixctl index\"", ""});
            break;
        case ErrorKind::kMalformed:
            console.Complain({"index", "the saved attachment index is damaged (" + why + ")",
                              "make it anew with \"trevixctl index --rebuild\""});
            break;
        case ErrorKind::kNoSpace:
            console.Complain({"temporary files", "the attachment index does not fit (" + why + ")",
                              "make room in TMPDIR (default /tmp), or set it to another place"});
            break;
        default: console.Complain({"index", "the attachment index cannot be read: " + why, ""});
    }
    return nullptr;
}

}  // namespace trevix::cli
