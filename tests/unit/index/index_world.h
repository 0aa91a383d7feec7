// IndexWorld: a World whose saved attachment index can be looked at.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "index/attach_index.h"
#include "store/results_message.h"
#include "support/world.h"

namespace trevix::test {

// A row as texts by column; a date as its number of days.
using IndexRow = std::map<std::string, std::string>;

// The world's archives, to make some by hand.
using Zips = decltype(World::zip);

class IndexWorld : public World {
 public:
    CIndex& index() {
        if (session == nullptr) Logon();
        return *session->Index();
    }
    void Rebuild() { RunIndex(true); }
    void Update() { RunIndex(false); }

    // The saved index, in row order.
    std::vector<IndexRow> Rows() { return RowsOf(Saved("txattach.zip"), "txattach.adtg"); }
    std::vector<IndexRow> FolderRecords() {
        return RowsOf(Saved("txfolders.zip"), "txfolders.adtg");
    }

    // The same as one text a row, sorted, so that two indexes compare whatever their order.
    std::vector<std::string> SortedRows() {
        std::vector<std::string> texts;
        for (const IndexRow& row : Rows()) {
            std::string text;
            for (const auto& [column, value] : row)
                text += column + "=" + value + ";";
            texts.push_back(text);
        }
        std::sort(texts.begin(), texts.end());
        return texts;
    }

    std::vector<std::string> Column(const std::string& name) {
        std::vector<std::string> values;
        for (const IndexRow& row : Rows())
            values.push_back(row.at(name));
        return values;
    }

    // Bytes of the results message's attachment of that name; empty when there is none.
    std::string Saved(const std::string& name) {
        if (Results() == nullptr) return {};
        for (const auto& attachment : Results()->attachments) {
            if (attachment.name == name) return attachment.data;
        }
        return {};
    }
    int CountSaved(const std::string& name) {
        int count = 0;
        for (const auto& attachment : Results()->attachments)
            count += attachment.name == name ? 1 : 0;
        return count;
    }

    std::string ResultText(const std::string& name) {
        const Variant* value = Results() == nullptr ? nullptr : Results()->Find(name);
        return value == nullptr ? std::string() : std::get<std::string>(*value);
    }

    fakes::StoreData& AddStore(const std::string& id) {
        auto store = std::make_unique<fakes::StoreData>();
        store->id = id;
        store->name = "Store " + id;
        store->root.id = "R" + id;
        store->root.name = "IPM_SUBTREE";
        messaging.state.stores.push_back(std::move(store));
        return *messaging.state.stores.back();
    }

    // The last event of the run.
    std::string End() const {
        return index_recorder.events.empty() ? std::string() : index_recorder.events.back();
    }
    bool Raised(const std::string& event) const {
        const auto& events = index_recorder.events;
        return std::find(events.begin(), events.end(), event) != events.end();
    }

    // Ends the process and starts another one on the same stores.
    void Restart() {
        session.reset();
        ci.gMAPISession.reset();
        ci.gUtils.reset();
    }

 private:
    std::vector<IndexRow> RowsOf(const std::string& archive, const std::string& name) {
        std::vector<IndexRow> rows;
        for (const auto& [entry, content] : zip.EntriesOf(archive)) {
            if (entry != name) continue;
            fakes::FaultPlan no_faults;
            fakes::FakeFileSystem reading(no_faults);
            reading.Put("/f", content);
            fakes::FakeRecordSet record_set(no_faults, reading);
            if (!record_set.OpenFile("/f").ok()) return rows;
            for (const auto& cells : record_set.rows) {
                IndexRow row;
                for (std::size_t i = 0; i < cells.size(); ++i)
                    row[record_set.FieldName(static_cast<int>(i))] = TextOf(cells[i]);
                rows.push_back(std::move(row));
            }
        }
        return rows;
    }
    static std::string TextOf(const Variant& value) {
        if (const auto* text = std::get_if<std::string>(&value)) return *text;
        if (const auto* number = std::get_if<std::int32_t>(&value)) return std::to_string(*number);
        if (const auto* date = std::get_if<Date>(&value)) {
            std::array<char, 32> text{};
            return {text.data(), std::to_chars(text.begin(), text.end(), date->days).ptr};
        }
        return {};
    }
};

}  // namespace trevix::test
