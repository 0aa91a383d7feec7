#include "cli/loaded_index.h"

#include <string>
#include <utility>

#include "cli/text_format.h"
#include "cli/zip_content.h"
#include "index/attach_index.h"
#include "store/results_message.h"

namespace trevix::cli {
namespace {

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

// The archive that the index was saved in.
Result<Blob> SavedZip(BasCI& state) {
    const std::unique_ptr<Message> message = GetResultsHM(state);
    if (message == nullptr) {
        return Error{ErrorKind::kMissing, 0, "the results message cannot be read"};
    }
    auto attachments = message->AttachmentList();
    if (!attachments.ok()) return attachments.error();
    auto zip = FindZip(*attachments.value());
    if (!zip.ok()) return zip.error();
    const auto data = zip.value()->Field(kTagAttachmentData);
    if (!data.ok()) return data.error();
    const auto* const bytes = std::get_if<Blob>(&data.value());
    return bytes == nullptr ? Blob() : *bytes;
}

}  // namespace

Result<std::unique_ptr<RecordSet>> LoadSavedIndex(BasCI& state) {
    const auto zip = SavedZip(state);
    if (!zip.ok()) return zip.error();
    const auto adtg = OpenZipContent(zip.value(), kAttachAdtgName);
    if (!adtg.ok()) return adtg.error();
    auto index = state.ports.record_sets.CreateRecordSet();
    if (!index.ok()) return index;
    TREVIX_RETURN_IF_ERROR(index.value()->OpenBlob(adtg.value()));
    if (!HasAttachColumns(*index.value())) {
        return Error{ErrorKind::kMalformed, 0, "it has another layout"};
    }
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
        default: console.Complain({"index", "the attachment index cannot be read: " + why, ""});
    }
    return nullptr;
}

}  // namespace trevix::cli
