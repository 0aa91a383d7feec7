// The layout of the attachment index: one row for each attachment of each indexed message, and one
// for each file inside a zip attachment.
#pragma once

#include <array>

#include "platform/record_set.h"

namespace trevix {

struct AttachColumn {
    const char* name;
    FieldType type;
    int defined_size;
    int attributes;
};

inline constexpr std::array<AttachColumn, 16> kAttachColumns = {{
    {"FileName", FieldType::kBstr, 255, kFieldUnspecified},
    {"FileIndex", FieldType::kInteger, 0, kFieldUnspecified},
    {"FileDate", FieldType::kDate, 0, kFieldMayBeNull},
    {"FileSize", FieldType::kInteger, 0, kFieldUnspecified},
    {"ZipIndex", FieldType::kSmallInt, 0, kFieldMayBeNull},
    {"ZipFile", FieldType::kBstr, 255, kFieldUnspecified},
    {"Folder", FieldType::kBstr, 140, kFieldUnspecified},
    {"EntryID", FieldType::kBstr, 255, kFieldUnspecified},
    {"StoreID", FieldType::kBstr, 255, kFieldUnspecified},
    {"Subject", FieldType::kBstr, 255, kFieldUnspecified},
    {"From", FieldType::kBstr, 140, kFieldUnspecified},
    {"Sender", FieldType::kBstr, 140, kFieldUnspecified},
    {"To", FieldType::kBstr, 255, kFieldUnspecified},
    {"DisplayTo", FieldType::kBstr, 255, kFieldUnspecified},
    {"Received", FieldType::kDate, 0, kFieldMayBeNull},
    {"FolderKey", FieldType::kSmallInt, 0, kFieldUnspecified},
}};

// Positions in the list above, for TextAt and NumberAt.
inline constexpr int kColumnFileIndex = 1;
inline constexpr int kColumnFileSize = 3;
inline constexpr int kColumnZipIndex = 4;
inline constexpr int kColumnFolder = 6;
inline constexpr int kColumnEntryId = 7;
inline constexpr int kColumnStoreId = 8;
inline constexpr int kColumnFolderKey = 15;

// ZipIndex of a row that is for a whole attachment; 0 and more is a file inside a zip attachment.
inline constexpr int kByValueRow = -1;
inline constexpr int kByReferenceOnlyRow = -2;
inline constexpr int kByReferenceRow = -3;

inline constexpr const char* kAttachAdtgName = "txattach.adtg";
inline constexpr const char* kAttachZipName = "txattach.zip";
inline constexpr const char* kFoldersAdtgName = "txfolders.adtg";
inline constexpr const char* kFoldersZipName = "txfolders.zip";

// Appends the columns to a closed record set. Defined sizes are not in a file, so this comes before
// a file is opened as well.
Status AppendAttachColumns(RecordSet& record_set);

// Whether an open record set, from whatever file, begins with these columns.
bool HasAttachColumns(const RecordSet& record_set);

}  // namespace trevix
