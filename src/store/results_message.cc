#include "store/results_message.h"

#include <vector>

#include "util/convert.h"
#include "util/pending_error.h"

namespace trevix {
namespace {

constexpr const char* kModule = "basCI";
constexpr const char* kGetResultsHM = "GetResultsHM";

struct FoundItem {
    std::string entry_id;
    Date modified;
};

void LogError(BasCI& state, const std::string& message) {
    state.log.Write(kModule, kGetResultsHM, message, 1);
}

// From the session to the Inbox's collection of hidden items.
std::unique_ptr<Messages> OpenHiddenItems(BasCI& state) {
    PendingError pending;
    std::unique_ptr<Folder> inbox;
    pending.Assign(inbox, On(state.gMAPISession, [](MessagingSession& session) {
                       return session.GetDefaultFolder(kInboxFolder);
                   }));
    if (inbox == nullptr) {
        LogError(state, " unable to retrieve Inbox " + pending.description());
        return nullptr;
    }

    std::string inbox_id;
    pending.Assign(inbox_id, inbox->Id());
    if (inbox_id.empty() || state.gUtils == nullptr) {
        LogError(state, " unable to create QMFolder object " + pending.description());
        return nullptr;
    }

    std::unique_ptr<Messages> items;
    pending.Assign(items, state.gUtils->HiddenItems(inbox_id));
    if (items == nullptr) {
        LogError(state, " unable to get safe collection of hidden items " + pending.description());
    }
    return items;
}

// The long-term identifier of a row, or its plain one where the store has no long-term one.
std::string EntryIdOfRow(BasCI& state, const std::vector<Variant>& row) {
    PendingError pending;
    const bool has_long_term = !std::holds_alternative<ErrorValue>(row[0]);
    return pending.ValueOr(state.gUtils->EntryIdText(has_long_term ? row[0] : row[1]),
                           std::string());
}

// The items of our class. False when they cannot be listed.
bool FindItems(BasCI& state, Messages& items, std::vector<FoundItem>& found) {
    PendingError pending;
    std::unique_ptr<MessageTable> table;
    pending.Assign(table, state.gUtils->CreateTable());
    if (table == nullptr) {
        LogError(state, " error instantiating QMMAPITable object " + pending.description());
        return false;
    }
    pending.Step(table->SetSource(items));
    pending.Step(table->SetColumns(
        {kTagLongTermEntryId, kTagEntryId, kTagLastModification, kTagMessageClass}));
    if (!pending.Step(table->Restrict(kTagMessageClass, std::string(kResultsClass)))) {
        LogError(state, " error instantiating TableFilter object " + pending.description());
        return false;
    }
    pending.Step(table->Sort(kSortAscending, kTagLastModification));

    const std::int32_t count = pending.ValueOr(table->RowCount(), 0);
    std::vector<std::vector<Variant>> rows;
    if (!pending.failed()) pending.Assign(rows, table->GetRows(count));
    for (const auto& row : rows) {
        found.push_back({EntryIdOfRow(state, row), pending.ValueOr(ToDate(row[2]), Date{})});
    }
    // A table that cannot be read must not look like a store without a results message: a second
    // one would be made, and the totals of the first would be lost with it.
    if (pending.failed()) {
        LogError(state, " error reading hidden items " + pending.description());
        return false;
    }
    return true;
}

Result<std::unique_ptr<Message>> OpenItem(BasCI& state, const std::string& entry_id) {
    auto message = state.gUtils->OpenMessage(entry_id, state.gStoreID);
    if (!message.ok()) {
        LogError(state, " error on GetItemFromID with Len(ID)=" + std::to_string(entry_id.size()) +
                            " " + message.error().description);
    }
    return message;
}

// Opens the latest of the found items and deletes the others.
Result<std::unique_ptr<Message>> KeepLatest(BasCI& state, const std::vector<FoundItem>& found) {
    state.log.Write(
        kModule, kGetResultsHM,
        " Trevix Results hidden message count=" + std::to_string(found.size()) +
            (found.size() == 1 ? "; retrieving message" : "; deleting all but the latest message"),
        8);
    std::size_t latest = 0;
    for (std::size_t i = 1; i < found.size(); ++i) {
        if (found[i].modified > found[latest].modified) latest = i;
    }
    auto kept = OpenItem(state, found[latest].entry_id);
    // The others go only once the latest is in hand: their totals are better than none.
    if (!kept.ok()) return kept;
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (i == latest) continue;
        const auto other = OpenItem(state, found[i].entry_id);
        // One that cannot be deleted now is deleted by the next call.
        if (other.ok()) Drop(other.value()->Delete());
    }
    return kept;
}

}  // namespace

std::unique_ptr<Message> GetResultsHM(BasCI& state) {
    const std::unique_ptr<Messages> items = OpenHiddenItems(state);
    if (items == nullptr) return nullptr;
    std::vector<FoundItem> found;
    if (!FindItems(state, *items, found)) return nullptr;

    PendingError pending;
    std::unique_ptr<Message> message;
    if (!found.empty()) {
        pending.Assign(message, KeepLatest(state, found));
    } else {
        state.log.Write(kModule, kGetResultsHM, " creating new Trevix Results hidden message", 8);
        pending.Assign(message, items->Add(kResultsClass));
        if (message != nullptr) pending.Step(message->SetSubject(kResultsSubject));
    }
    if (message == nullptr) {
        LogError(state, " unable to retrieve or create Trevix Results message " +
                            std::to_string(pending.number()) + " " + pending.description());
    }
    return message;
}

Result<Variant> GetNamed(Message& message, const std::string& name, std::uint16_t type) {
    auto tag = message.NamedProperty(kPublicStrings, name, type);
    if (!tag.ok()) return tag.error();
    return message.Field(tag.value());
}

Status SetNamed(Message& message, const std::string& name, std::uint16_t type,
                const Variant& value) {
    auto tag = message.NamedProperty(kPublicStrings, name, type);
    if (!tag.ok()) return tag.error();
    return message.SetField(tag.value(), value);
}

bool GetResultsMsg(BasCI& state) {
    const std::unique_ptr<Message> message = GetResultsHM(state);
    if (message == nullptr) {
        state.log.Write(kModule, "GetResultsMsg", "hidden message not available", 1);
        return false;
    }

    // A property that is missing or cannot be read is empty and converts to 0, "" or False.
    const auto read = [&](const char* name, std::uint16_t type) {
        PendingError pending;
        return pending.ValueOr(GetNamed(*message, name, type), Variant());
    };
    PendingError pending;
    pending.Assign(state.gDeletedStationery,
                   ToLong(read("Incoming Deleted Stationery", kTypeInteger32)));
    pending.Assign(state.gCompressedBytes,
                   ToLong(read("Incoming Compressed Attachments", kTypeInteger32)));
    pending.Assign(state.gOriginalBytes,
                   ToLong(read("Incoming Original Attachments", kTypeInteger32)));
    pending.Assign(state.gLastIndex, ToText(read("LastIndex", kTypeString8)));
    pending.Assign(state.gStoreIDs, ToText(read("StoreIDs", kTypeString8)));
    if (state.gAddinMode) return true;

    pending.Assign(state.Level, ToInteger(read("Level", kTypeInteger16)));
    pending.Assign(state.ExcludeCompress, ToText(read("ExcludeCompress", kTypeString8)));
    if (state.ExcludeCompress.empty()) state.ExcludeCompress = kDefaultExcludeCompress;
    pending.Assign(state.CombineCompress, ToBoolean(read("CombineCompress", kTypeBoolean)));
    pending.Assign(state.ZipBytesCompress, ToLong(read("ZipBytesCompress", kTypeInteger32)));
    pending.Assign(state.CustomItems, ToBoolean(read("Custom Items", kTypeBoolean)));
    return true;
}

}  // namespace trevix
