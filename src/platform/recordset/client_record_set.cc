#include "platform/recordset/client_record_set.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/errors.h"
#include "platform/recordset/adtg_format.h"
#include "platform/recordset/cell_value.h"
#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

constexpr std::size_t kMaxNameUnits = 255;

bool IsAppendable(FieldType type) {
    switch (type) {
        case FieldType::kSmallInt:
        case FieldType::kInteger:
        case FieldType::kDouble:
        case FieldType::kDate:
        case FieldType::kBstr:
        case FieldType::kBoolean: return true;
        default: return false;
    }
}

// A field that refers to records of its own is not offered.
bool AreAppendable(int attributes) {
    return attributes == kFieldUnspecified ||
           (attributes >= 0 && (static_cast<std::uint32_t>(attributes) & kFlagChapter) == 0);
}

}  // namespace

Status ClientRecordSet::Append(const std::string& name, FieldType type, int defined_size,
                               int attributes) {
    if (records_) return RuntimeError(kObjectOpen);
    const std::string normalized = NormalizedText(name);
    const std::size_t units = Utf16Units(normalized);
    if (units == 0 || units > kMaxNameUnits || defined_size < 0 || !IsAppendable(type) ||
        !AreAppendable(attributes)) {
        return RuntimeError(kBadArguments, name);
    }
    if (list_ended_) {
        appended_.clear();
        list_ended_ = false;
    }
    if (appended_.size() == kMaxColumns || FindColumn(appended_, normalized) != appended_.size()) {
        return RuntimeError(kBadArguments, name);
    }
    appended_.push_back(MakeColumn(normalized, type, defined_size, attributes));
    return {};
}

Status ClientRecordSet::Open() {
    if (records_) return RuntimeError(kObjectOpen);
    if (appended_.empty()) return RuntimeError(kBadArguments);
    Use(std::make_unique<Records>(appended_, FileHead()));
    return {};
}

Status ClientRecordSet::Close() {
    if (!records_) return RuntimeError(kObjectClosed);
    Use(nullptr);
    list_ended_ = true;
    return {};
}

// Starts over with `records`, which may be null.
void ClientRecordSet::Use(std::unique_ptr<Records> records) {
    records_ = std::move(records);
    DropEdit();
    ShowAll();
    GoTo(kEnd);
    last_column_ = 0;
    last_texts_.assign(fields().size(), StringPool::kEmptyText);
}

std::string ClientRecordSet::FieldName(int index) const {
    if (index < 0 || index >= FieldCount()) return {};
    return fields()[static_cast<std::size_t>(index)].name;
}

FieldType ClientRecordSet::FieldTypeAt(int index) const {
    if (index < 0 || index >= FieldCount()) return FieldType::kOther;
    return fields()[static_cast<std::size_t>(index)].type;
}

std::int64_t ClientRecordSet::RecordCount() const {
    if (!records_) return 0;
    return filtered_ ? shown_count_ : static_cast<std::int64_t>(table().rows().live());
}

bool ClientRecordSet::IsShown(Place place) const {
    if (!filtered_)
        return place < table().rows().size() && table().rows().IsLive(static_cast<RowId>(place));
    return place < selected_.size() && selected_[place] != kNoRow &&
           table().rows().IsLive(selected_[place]);
}

ClientRecordSet::Place ClientRecordSet::NextShown(Place from) const {
    if (!filtered_) {
        const RowId row = table().rows().NextLive(from);
        return row == kNoRow ? kEnd : row;
    }
    while (from < selected_.size() && !IsShown(from))
        ++from;
    return from < selected_.size() ? from : kEnd;
}

ClientRecordSet::Place ClientRecordSet::LastShown() {
    if (!filtered_) {
        const RowId row = table().rows().LastLive();
        return row == kNoRow ? kEnd : row;
    }
    while (!selected_.empty() && !IsShown(selected_.size() - 1))
        selected_.pop_back();
    return selected_.empty() ? kEnd : selected_.size() - 1;
}

void ClientRecordSet::GoTo(Place place) {
    place_ = place;
    row_ = kNoRow;
    if (place != kEnd) row_ = filtered_ ? selected_[place] : static_cast<RowId>(place);
}

void ClientRecordSet::GoToFirst() {
    if (!filtered_) {
        const RowId row = table().rows().FirstLive();
        GoTo(row == kNoRow ? kEnd : row);
        return;
    }
    GoTo(NextShown(first_selected_));
    first_selected_ = std::min(place_, selected_.size());
}

Status ClientRecordSet::MoveFirst() {
    if (!records_) return RuntimeError(kObjectClosed);
    TREVIX_RETURN_IF_ERROR(FinishEdit());
    GoToFirst();
    if (place_ == kEnd) return RuntimeError(kNoCurrentRecord);
    return {};
}

Status ClientRecordSet::MoveNext() {
    if (!records_) return RuntimeError(kObjectClosed);
    TREVIX_RETURN_IF_ERROR(FinishEdit());
    if (place_ == kEnd) return RuntimeError(kNoCurrentRecord);
    GoTo(NextShown(place_ + 1));
    return {};
}

Status ClientRecordSet::MoveLast() {
    if (!records_) return RuntimeError(kObjectClosed);
    TREVIX_RETURN_IF_ERROR(FinishEdit());
    GoTo(LastShown());
    if (place_ == kEnd) return RuntimeError(kNoCurrentRecord);
    return {};
}

bool ClientRecordSet::Eof() const {
    return !records_ || (place_ == kEnd && edit_ != Edit::kAdding);
}

Status ClientRecordSet::Find(const std::string& criterion) {
    if (!records_) return RuntimeError(kObjectClosed);
    TREVIX_RETURN_IF_ERROR(FinishEdit());
    const auto conditions = ParseCriterion(criterion, fields());
    if (!conditions.ok()) return conditions.error();
    if (conditions.value().size() != 1) return RuntimeError(kBadArguments, criterion);
    if (place_ == kEnd) return RuntimeError(kNoCurrentRecord);
    if (!filtered_) {
        const auto from = static_cast<RowId>(place_);
        const RowId row = records_->FindFrom(from, conditions.value().front());
        GoTo(row == kNoRow ? kEnd : row);
        return {};
    }
    Place place = NextShown(place_);
    while (place != kEnd && !records_->Meets(selected_[place], conditions.value())) {
        place = NextShown(place + 1);
    }
    GoTo(place);
    return {};
}

void ClientRecordSet::ShowAll() {
    filtered_ = false;
    filter_.clear();
    std::vector<RowId>().swap(selected_);
    first_selected_ = 0;
    shown_count_ = 0;
}

Status ClientRecordSet::SetFilter(const std::string& criterion) {
    if (!records_) return RuntimeError(kObjectClosed);
    TREVIX_RETURN_IF_ERROR(FinishEdit());
    if (criterion.find_first_not_of(' ') == std::string::npos) {
        ShowAll();
        GoToFirst();
        return {};
    }
    auto conditions = ParseCriterion(criterion, fields());
    if (!conditions.ok()) return conditions.error();
    ShowAll();
    filtered_ = true;
    filter_ = std::move(conditions).value();
    selected_ = records_->Select(filter_);
    shown_count_ = static_cast<std::int64_t>(selected_.size());
    GoToFirst();
    return {};
}

Status ClientRecordSet::FinishEdit() {
    return edit_ == Edit::kNone ? Status() : Update();
}

void ClientRecordSet::DropEdit() {
    if (edit_ != Edit::kNone && records_) records_->table().CountGarbage(image_.size() / 4);
    edit_ = Edit::kNone;
    refused_ = false;
}

void ClientRecordSet::BeginEdit(Edit edit, const std::uint8_t* image) {
    edit_ = edit;
    refused_ = false;
    image_.assign(image, image + table().default_row().size());
    touched_.assign(MapBytes(fields().size()), 0);
}

// Numbers the rows anew when most were deleted. Not while a filter holds numbers of rows, nor while
// the place of a deleted record is where the next move starts from.
void ClientRecordSet::MakeRoom() {
    const bool on_deleted = place_ != kEnd && row_ == kNoRow;
    if (filtered_ || on_deleted || !table().ShouldCompact()) return;
    const RowId moved = records_->Compact(row_);
    GoTo(moved == kNoRow ? kEnd : moved);
}

Status ClientRecordSet::AddNew() {
    if (!records_) return RuntimeError(kObjectClosed);
    TREVIX_RETURN_IF_ERROR(FinishEdit());
    MakeRoom();
    if (table().rows().size() >= kNoRow - 1) return RuntimeError(kOutOfMemory);
    BeginEdit(Edit::kAdding, table().default_row().data());
    return {};
}

Status ClientRecordSet::Update() {
    if (!records_) return RuntimeError(kObjectClosed);
    if (edit_ == Edit::kNone) {
        return row_ == kNoRow ? Status(RuntimeError(kNoCurrentRecord)) : Status();
    }
    if (refused_) {
        DropEdit();
        return RuntimeError(kMultipleStep);
    }
    if (edit_ == Edit::kAdding) {
        KeepAdded();
    } else {
        KeepChanged();
    }
    edit_ = Edit::kNone;
    return {};
}

void ClientRecordSet::KeepAdded() {
    row_ = records_->Add(image_);
    place_ = row_;
    if (!filtered_) return;
    // A record that the filter hides stays current until the next move.
    place_ = selected_.size();
    if (!records_->Meets(row_, filter_)) return;
    selected_.push_back(row_);
    ++shown_count_;
}

void ClientRecordSet::KeepChanged() {
    records_->Replace(row_, image_, touched_);
    const bool selected = filtered_ && IsShown(place_) && selected_[place_] == row_;
    if (!selected || records_->Meets(row_, filter_)) return;
    selected_[place_] = kNoRow;
    --shown_count_;
}

Status ClientRecordSet::CancelUpdate() {
    if (!records_) return RuntimeError(kObjectClosed);
    DropEdit();
    return {};
}

Status ClientRecordSet::Delete() {
    if (!records_) return RuntimeError(kObjectClosed);
    const bool added = edit_ == Edit::kAdding;
    DropEdit();
    if (added) return {};
    if (row_ == kNoRow) return RuntimeError(kNoCurrentRecord);
    if (filtered_ && IsShown(place_) && selected_[place_] == row_) --shown_count_;
    records_->Remove(row_);
    row_ = kNoRow;
    return {};
}

std::size_t ClientRecordSet::ColumnOf(const std::string& field) const {
    const std::vector<Column>& columns = fields();
    for (const std::size_t guess : {last_column_ + 1, last_column_}) {
        const std::size_t column = guess < columns.size() ? guess : 0;
        if (columns[column].name == field) {
            last_column_ = column;
            return column;
        }
    }
    const std::size_t column = FindColumn(columns, field);
    if (column < columns.size()) last_column_ = column;
    return column;
}

const std::uint8_t* ClientRecordSet::CurrentImage() const {
    if (edit_ != Edit::kNone) return image_.data();
    return row_ == kNoRow ? nullptr : table().rows().At(row_);
}

Result<Variant> ClientRecordSet::Get(const std::string& field) const {
    if (!records_) return RuntimeError(kObjectClosed);
    const std::size_t column = ColumnOf(field);
    if (column == fields().size()) return RuntimeError(kItemNotFound, field);
    const std::uint8_t* const image = CurrentImage();
    if (image == nullptr) return RuntimeError(kNoCurrentRecord);
    return ReadCell(table(), image, column);
}

Status ClientRecordSet::Set(const std::string& field, const Variant& value) {
    if (!records_) return RuntimeError(kObjectClosed);
    const std::size_t column = ColumnOf(field);
    if (column == fields().size()) return RuntimeError(kItemNotFound, field);
    const std::uint8_t* const image = CurrentImage();
    if (image == nullptr) return RuntimeError(kNoCurrentRecord);
    if (edit_ == Edit::kNone) BeginEdit(Edit::kChanging, image);
    switch (WriteCell(records_->table(), image_.data(), column, value, last_texts_[column])) {
        case WriteOutcome::kDone: SetMapBit(touched_.data(), column); return {};
        case WriteOutcome::kWrongType: return RuntimeError(kWrongType, field);
        case WriteOutcome::kRefused: break;
    }
    refused_ = true;
    return RuntimeError(kMultipleStep, field);
}

const std::uint8_t* ClientRecordSet::ImageWithCell(int index) const {
    if (!records_ || index < 0 || index >= FieldCount()) return nullptr;
    const std::uint8_t* const image = CurrentImage();
    const bool has_value =
        image != nullptr && !Table::IsNull(image, static_cast<std::size_t>(index));
    return has_value ? image : nullptr;
}

std::string_view ClientRecordSet::TextAt(int index) const {
    const std::uint8_t* const image = ImageWithCell(index);
    if (image == nullptr) return {};
    const Column& column = fields()[static_cast<std::size_t>(index)];
    return column.kind == CellKind::kText ? table().Text(image, column) : std::string_view();
}

std::optional<double> ClientRecordSet::NumberAt(int index) const {
    const std::uint8_t* const image = ImageWithCell(index);
    if (image == nullptr) return std::nullopt;
    const Column& column = fields()[static_cast<std::size_t>(index)];
    switch (column.kind) {
        case CellKind::kInt16:
        case CellKind::kBoolean: return Table::Load<std::int16_t>(image, column);
        case CellKind::kInt32: return Table::Load<std::int32_t>(image, column);
        case CellKind::kDouble: return Table::Load<double>(image, column);
        case CellKind::kDate: {
            // What is no date reads as in Get().
            const auto days = Table::Load<double>(image, column);
            if (std::isfinite(days)) return days;
            return column.nullable ? std::nullopt : std::optional<double>(0);
        }
        default: return std::nullopt;
    }
}

}  // namespace trevix::recordset
