#include "zip/attachment_row.h"

#include <vector>

#include "platform/errors.h"

namespace trevix {
namespace {

struct Cell {
    const char* column;
    Variant value;
    bool needed = false;  // a row without it would be of no use
};

std::vector<Cell> CellsOf(const AttachedFile& file, const AttachedTo& message) {
    return {{"FileName", file.file_name, true},
            {"FileIndex", file.file_index},
            {"FileDate", file.file_date},
            {"FileSize", file.file_size},
            {"ZipFile", file.zip_file},
            {"ZipIndex", file.zip_index, true},
            {"EntryID", message.entry_id, true},
            {"StoreID", message.store_id, true},
            {"Folder", message.folder},
            {"FolderKey", message.folder_key, true},
            {"From", message.from},
            {"Sender", message.sender},
            {"To", message.to},
            {"DisplayTo", message.display_to},
            {"Subject", message.subject},
            {"Received", message.received}};
}

// Whether it is the value that the record set does not take, now or ever.
bool IsRefused(const Error& error) {
    return error.number == kMultipleStep || error.number == kWrongType;
}

// Sets one column. A refused value would make the record set drop the whole row, so the row is
// begun anew without it: everything up to the cell at `at` was accepted once already.
Status SetWithout(RecordSet& index, std::vector<Cell>& cells, std::size_t& at, const RowLog& log,
                  const std::string& what) {
    Status set = index.Set(cells[at].column, cells[at].value);
    if (set.ok()) {
        ++at;
        return {};
    }
    const bool dropped = cells[at].needed || !IsRefused(set.error());
    log.log.Write(log.class_name, log.procedure,
                  " " + what + ": " + cells[at].column +
                      (dropped ? " not written, no row: " : " left out: ") +
                      set.error().description,
                  8);
    if (dropped) return set;
    cells.erase(cells.begin() + static_cast<std::ptrdiff_t>(at));
    at = 0;
    // What was set so far is set again.
    Drop(index.CancelUpdate());
    return index.AddNew();
}

Status Fill(RecordSet& index, std::vector<Cell>& cells, const RowLog& log,
            const std::string& what) {
    TREVIX_RETURN_IF_ERROR(index.AddNew());
    for (std::size_t at = 0; at < cells.size();) {
        if (IsEmpty(cells[at].value)) {
            ++at;  // stays at the column's default
            continue;
        }
        TREVIX_RETURN_IF_ERROR(SetWithout(index, cells, at, log, what));
    }
    return index.Update();
}

}  // namespace

Status AddAttachmentRow(RecordSet& index, const AttachedFile& file, const AttachedTo& message,
                        const RowLog& log) {
    std::vector<Cell> cells = CellsOf(file, message);
    const std::string what = "'" + file.file_name + "' on '" + message.subject + "'";
    Status added = Fill(index, cells, log, what);
    // A row that did not come to be must not be what the next move of the cursor completes.
    if (!added.ok()) Drop(index.CancelUpdate());
    return added;
}

}  // namespace trevix
