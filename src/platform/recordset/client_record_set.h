// The record set of the port: fields, cursor, filter and the record being edited, over Records.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/record_set.h"
#include "platform/recordset/records.h"

namespace trevix::recordset {

class ClientRecordSet : public RecordSet {
 public:
    Status Append(const std::string& name, FieldType type, int defined_size,
                  int attributes) override;
    Status Open() override;
    Status OpenFile(const std::string& path) override;
    Status OpenBlob(const Blob& content) override;
    Status Close() override;
    int State() const override { return records_ ? kStateOpen : kStateClosed; }
    int FieldCount() const override { return static_cast<int>(fields().size()); }
    std::string FieldName(int index) const override;
    FieldType FieldTypeAt(int index) const override;
    std::int64_t RecordCount() const override;
    Status MoveFirst() override;
    Status MoveNext() override;
    Status MoveLast() override;
    bool Eof() const override;
    Status Find(const std::string& criterion) override;
    Status SetFilter(const std::string& criterion) override;
    Status AddNew() override;
    Status Update() override;
    Status CancelUpdate() override;
    Status Delete() override;
    Result<Variant> Get(const std::string& field) const override;
    Status Set(const std::string& field, const Variant& value) override;
    std::string_view TextAt(int index) const override;
    std::optional<double> NumberAt(int index) const override;
    Status Save(const std::string& path, int format) override;

 private:
    // A place in the order of what is shown: the number of a row, or with a filter an index into
    // what it selected.
    using Place = std::size_t;
    static constexpr Place kEnd = std::numeric_limits<Place>::max();

    enum class Edit : std::uint8_t { kNone, kChanging, kAdding };

    const std::vector<Column>& fields() const {
        return records_ ? records_->table().columns() : appended_;
    }
    const Table& table() const { return records_->table(); }

    Status FinishEdit();
    void DropEdit();
    void BeginEdit(Edit edit, const std::uint8_t* image);
    void MakeRoom();
    void KeepAdded();
    void KeepChanged();

    bool IsShown(Place place) const;
    Place NextShown(Place from) const;
    Place LastShown();
    void GoTo(Place place);
    void GoToFirst();
    void ShowAll();

    void Use(std::unique_ptr<Records> records);
    Result<std::unique_ptr<Records>> Load(const std::string& path) const;
    Status UseLoaded(Result<std::unique_ptr<Records>> loaded);
    Status WriteNewFile(const std::string& path);

    // The column of that name; columns().size() when there is none.
    std::size_t ColumnOf(const std::string& field) const;
    const std::uint8_t* CurrentImage() const;
    // Null when there is no such column, or no value in it.
    const std::uint8_t* ImageWithCell(int index) const;

    std::vector<Column> appended_;
    bool list_ended_ = false;  // the next Append starts a new list
    std::unique_ptr<Records> records_;

    bool filtered_ = false;
    std::vector<Condition> filter_;
    std::vector<RowId> selected_;     // by the filter, in row order; kNoRow: no longer meets it
    std::size_t first_selected_ = 0;  // none before it is shown
    std::int64_t shown_count_ = 0;

    Place place_ = kEnd;
    RowId row_ = kNoRow;  // kNoRow: no current record, or it was deleted

    Edit edit_ = Edit::kNone;
    RowImage image_;
    ColumnMap touched_;
    bool refused_ = false;
    std::vector<TextId> last_texts_;       // last text set, by column
    mutable std::size_t last_column_ = 0;  // fields are mostly asked for in their order
};

}  // namespace trevix::recordset
