// A row of the attachment index, as the scan of a message and the listing of a zip attachment add
// it.
#pragma once

#include <cstdint>
#include <string>

#include "platform/record_set.h"
#include "platform/variant.h"
#include "util/log.h"

namespace trevix {

// What all rows of one message say alike.
struct AttachedTo {
    std::string entry_id;
    std::string store_id;  // empty for the default store
    std::string folder;
    std::int16_t folder_key = 0;
    std::string from;
    std::string sender;
    std::string to;
    std::string display_to;
    std::string subject;
    Variant received;  // a Date, or Empty when it is not known
};

// The attachment, or the file inside a zip attachment, that a row is for.
struct AttachedFile {
    std::string file_name;
    std::int32_t file_index = 0;  // compressed size of a file inside a zip attachment
    Variant file_date;            // a Date, or Empty when it is not known
    std::int32_t file_size = 0;
    std::string zip_file;  // name of the zip attachment that holds the file
    std::int32_t zip_index = 0;
};

// Who adds the row, for the log.
struct RowLog {
    Log& log;
    const char* class_name;
    const char* procedure;
};

// Adds a row to an open index. A description that does not fit its column (a long list of
// recipients) is left out, never cut: what is written is always true, and the attachment is still
// found by the rest. Where the row would be of no use without the column - the name, what
// identifies message and folder - there is no row: kMultipleStep when it will never fit. Another
// error means that the record set failed this time, and there is no row either. A column or a row
// that was left out is told to the log at the detail level. No half row stays behind in any case.
Status AddAttachmentRow(RecordSet& index, const AttachedFile& file, const AttachedTo& message,
                        const RowLog& log);

}  // namespace trevix
