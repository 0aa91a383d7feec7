// The columns of the attachment index by name, for code that reads many rows.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "index/attach_index.h"
#include "platform/record_set.h"

namespace trevix::cli {

// In the order of kAttachColumns, which is their position in the record set.
enum class IndexColumn : int {
    kFileName,
    kFileIndex,
    kFileDate,
    kFileSize,
    kZipIndex,
    kZipFile,
    kFolder,
    kEntryID,
    kStoreID,
    kSubject,
    kFrom,
    kSender,
    kTo,
    kDisplayTo,
    kReceived,
    kFolderKey
};
static_assert(static_cast<std::size_t>(IndexColumn::kFolderKey) + 1 == kAttachColumns.size());

// Cells of the record set's current record.
inline std::string_view TextOf(const RecordSet& index, IndexColumn column) {
    return index.TextAt(static_cast<int>(column));
}
inline std::optional<double> NumberOf(const RecordSet& index, IndexColumn column) {
    return index.NumberAt(static_cast<int>(column));
}
inline std::int64_t IntegerOf(const RecordSet& index, IndexColumn column) {
    return static_cast<std::int64_t>(NumberOf(index, column).value_or(0));
}

// Whether the row is about a file inside a zip attachment.
inline bool IsInZip(const RecordSet& index) {
    return NumberOf(index, IndexColumn::kZipIndex).value_or(kByValueRow) >= 0;
}

}  // namespace trevix::cli
