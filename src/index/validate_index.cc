// Index validation: rows of messages that are no longer in the folder go.
#include "index/attach_index.h"
#include "index/cindex.h"
#include "store/folder_record_set.h"
#include "util/pending_error.h"

namespace trevix {
namespace {

constexpr const char* kProcedure = "ValidateIndexMT";
constexpr std::size_t kLongTermId = 3;
constexpr std::size_t kEntryId = 4;

}  // namespace

void CIndex::ValidateIndexMT(FolderScan& scan) {
    if (scan.rows.empty()) return;
    CollectIds(scan);
    LogLine(kProcedure, "all rows added to collection", 8);
    if (!IsOpen(state_.gAttachRST)) return;

    RecordSet& index = *state_.gAttachRST;
    PendingError pending;
    pending.Step(index.SetFilter(""));
    pending.Step(index.SetFilter("FolderKey=" + std::to_string(scan.key)));
    if (!pending.failed() && index.RecordCount() > 0) pending.Step(index.MoveFirst());
    const std::string store_text = scan.store_id == state_.gStoreID ? "" : scan.store_id;
    // The rows of one message mostly follow each other.
    std::string entry_id;
    bool found = false;
    for (; !pending.failed() && !index.Eof(); pending.Step(index.MoveNext())) {
        const std::string_view row_id = index.TextAt(kColumnEntryId);
        if (row_id != entry_id || entry_id.empty()) {
            entry_id = row_id;
            const auto known = scan.collection.find(entry_id);
            found = known != scan.collection.end();
            // A row of the folder as it was called before, or that was lain elsewhere, is no row.
            const bool current = index.TextAt(kColumnFolder) == scan.folder_text &&
                                 index.TextAt(kColumnStoreId) == store_text;
            if (found && current) known->second = true;
        }
        if (found) continue;
        LogLine(kProcedure, "Deleting row for ID not found in collection:" + entry_id, 8);
        pending.Step(index.Delete());
    }
    // A message whose rows were not looked at counts as one without, and is visited.
    pending.Step(index.SetFilter(""));
}

void CIndex::CollectIds(FolderScan& scan) {
    scan.ids.resize(scan.rows.size());
    scan.collection.reserve(scan.rows.size());
    for (std::size_t at = 0; at < scan.rows.size(); ++at) {
        const std::vector<Variant>& row = scan.rows[at];
        const Variant* id = nullptr;
        if (std::holds_alternative<Blob>(row[kLongTermId])) {
            id = &row[kLongTermId];
        } else if (std::holds_alternative<Blob>(row[kEntryId])) {
            id = &row[kEntryId];
        }
        if (id != nullptr) {
            // One that does not convert stays empty.
            PendingError pending;
            pending.Assign(scan.ids[at], On(state_.gUtils, [&](Utilities& utils) {
                               return utils.EntryIdText(*id);
                           }));
        }
        if (scan.ids[at].empty()) {
            LogLine(kProcedure, "no EntryID for item#" + std::to_string(at), 1);
        } else if (!scan.collection.emplace(scan.ids[at], false).second) {
            LogLine(kProcedure,
                    "error adding to collection: This key is already associated with an element "
                    "of this collection",
                    8);
        }
    }
}

}  // namespace trevix
