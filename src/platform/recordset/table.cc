#include "platform/recordset/table.h"

#include <algorithm>
#include <utility>

#include "platform/recordset/adtg_format.h"
#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

// Below this much waste a new arrangement is not worth its while.
constexpr std::size_t kToleratedRows = 4096;
constexpr std::size_t kToleratedTexts = 65536;

std::uint32_t LayOut(std::vector<Column>& columns) {
    auto offset = static_cast<std::uint32_t>(1 + (columns.size() + 7) / 8);
    for (Column& column : columns) {
        column.offset = offset;
        offset += CellSize(column.kind);
    }
    return offset;
}

bool IsPooled(const Column& column) {
    return column.kind == CellKind::kText || column.kind == CellKind::kBytes;
}

}  // namespace

Table::Table(std::vector<Column> columns, FileHead head)
    : columns_(std::move(columns)),
      head_(std::move(head)),
      default_row_(LayOut(columns_)),
      rows_(default_row_.size()),
      deleted_(default_row_.size()) {
    SetState(default_row_.data(), RowState::kPending);
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        Clear(default_row_.data(), i);
        if (IsPooled(columns_[i])) ++text_columns_;
    }
}

void Table::Clear(std::uint8_t* image, std::size_t column) const {
    const Column& described = columns_[column];
    std::memset(image + described.offset, 0, CellSize(described.kind));
    SetNull(image, column, described.nullable);
}

void Table::LimitTexts(const std::vector<Column>& appended) {
    for (const Column& known : appended) {
        if (known.kind != CellKind::kText) continue;
        for (Column& column : columns_) {
            if (column.kind != CellKind::kText || !FoldedEqual(column.name, known.name)) continue;
            column.limit_units = std::min(column.limit_units, known.limit_units);
        }
    }
}

void Table::ReplaceRow(RowId row, const RowImage& image, const ColumnMap& touched) {
    std::uint8_t* const kept = rows_.At(row);
    RowState state = State(kept);
    if (state == RowState::kUnchanged) {
        changes_[row] = Change{RowImage(kept, kept + image.size()), touched};
        state = RowState::kChanged;
    } else if (state == RowState::kChanged) {
        ColumnMap& all = changes_[row].touched;
        for (std::size_t i = 0; i < all.size(); ++i) {
            all[i] = static_cast<std::uint8_t>(all[i] | touched[i]);
        }
    }
    std::memcpy(kept, image.data(), image.size());
    SetState(kept, state);
    CountGarbage(text_columns_);
}

void Table::RemoveRow(RowId row) {
    const std::uint8_t* const kept = rows_.At(row);
    if (State(kept) == RowState::kUnchanged) {
        deleted_.Append(kept);
    } else if (State(kept) == RowState::kChanged) {
        deleted_.Append(changes_[row].first.data());
        changes_.erase(row);
    }
    rows_.Remove(row);
    CountGarbage(text_columns_);
}

void Table::AddChangedRow(const RowImage& first, const RowImage& image, const ColumnMap& touched) {
    changes_[AddRow(image)] = Change{first, touched};
}

bool Table::ShouldCompact() const {
    const std::size_t dead_rows = rows_.size() - rows_.live();
    return dead_rows > rows_.live() + kToleratedRows ||
           garbage_texts_ > rows_.live() * text_columns_ + kToleratedTexts;
}

RowId Table::Compact(RowId row) {
    RowStore kept(default_row_.size());
    std::unordered_map<RowId, Change> kept_changes;
    std::vector<bool> used(pool_.size());
    RowId new_number = kNoRow;
    for (RowId old = rows_.FirstLive(); old != kNoRow; old = rows_.NextLive(std::size_t{old} + 1)) {
        MarkTexts(rows_.At(old), used);
        const RowId moved = kept.Append(rows_.At(old));
        if (old >= row && new_number == kNoRow) new_number = moved;
        const auto change = changes_.find(old);
        if (change == changes_.end()) continue;
        MarkTexts(change->second.first.data(), used);
        kept_changes[moved] = std::move(change->second);
    }
    for (RowId i = 0; i < deleted_.size(); ++i)
        MarkTexts(deleted_.At(i), used);
    rows_ = std::move(kept);
    changes_ = std::move(kept_changes);
    pool_.Sweep(used);
    garbage_texts_ = 0;
    return new_number;
}

void Table::MarkTexts(const std::uint8_t* image, std::vector<bool>& used) const {
    for (const Column& column : columns_) {
        if (IsPooled(column)) used[Load<TextId>(image, column)] = true;
    }
}

}  // namespace trevix::recordset
