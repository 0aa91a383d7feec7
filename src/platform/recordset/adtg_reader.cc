#include "platform/recordset/adtg_reader.h"

#include <string>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/recordset/adtg_format.h"
#include "platform/recordset/adtg_head.h"
#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

// Reads the rows behind a head. Every function returns false after noting a failure.
class RowReader {
 public:
    RowReader(ByteReader& reader, Records& records)
        : reader_(reader),
          table_(records.table()),
          columns_(table_.columns()),
          guesses_(columns_.size()) {
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (columns_[i].nullable) nullable_.push_back(i);
        }
    }

    bool ReadAll() {
        for (;;) {
            std::uint8_t token = 0;
            if (!reader_.Read(token)) return Fail("the file ends before its end mark");
            if (token == kTokenDone) return true;
            const bool read = token == kTokenRow      ? ReadRow()
                              : token == kTokenInsert ? ReadInsert()
                                                      : Refuse(token);
            if (!read) return false;
        }
    }

    const char* problem() const { return problem_; }
    std::uint64_t offset() const { return offset_; }

 private:
    bool Fail(const char* problem) {
        problem_ = problem;
        offset_ = reader_.offset();
        return false;
    }

    bool Refuse(std::uint8_t token) {
        if ((token & kTokenChildBit) != 0 || token == kTokenResultDescriptor) {
            return Fail("hierarchical record set");
        }
        if (token == kTokenChange || token == kTokenDelete) {
            return Fail("a change without its row");
        }
        return Fail("unexpected token");
    }

    bool IsFull() const {
        return table_.rows().size() >= kNoRow - 1 || table_.deleted().size() >= kNoRow - 1;
    }

    // An unchanged row, and the change or deletion that may follow it.
    bool ReadRow() {
        if (IsFull()) return Fail("too many rows");
        image_ = table_.default_row();
        Table::SetState(image_.data(), RowState::kUnchanged);
        if (!ReadOriginal()) return false;
        if (!reader_.Require(1)) return Fail("the file ends before its end mark");
        switch (*reader_.data()) {
            case kTokenDelete:
                reader_.Skip(1);
                table_.AddDeletedRow(image_);
                return true;
            case kTokenChange: {
                reader_.Skip(1);
                first_ = image_;
                Table::SetState(image_.data(), RowState::kChanged);
                if (!ReadUpdate()) return false;
                table_.AddChangedRow(first_, image_, touched_);
                return true;
            }
            default: table_.AddRow(image_); return true;
        }
    }

    bool ReadInsert() {
        if (IsFull()) return Fail("too many rows");
        image_ = table_.default_row();
        if (!ReadUpdate()) return false;
        table_.AddRow(image_);
        return true;
    }

    bool ReadOriginal() {
        const std::size_t map_bytes = MapBytes(nullable_.size());
        if (!TakeMap(map_bytes, map_)) return false;
        std::size_t next_nullable = 0;
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (columns_[i].nullable && !MapBit(map_.data(), next_nullable++)) continue;
            if (!ReadCell(i)) return false;
        }
        return true;
    }

    bool ReadUpdate() {
        const std::size_t map_bytes = MapBytes(columns_.size());
        if (!TakeMap(map_bytes, map_) || !TakeMap(map_bytes, nulls_)) return false;
        touched_.assign(map_bytes, 0);
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            const bool null = MapBit(nulls_.data(), i);
            if (!null && !MapBit(map_.data(), i)) continue;
            SetMapBit(touched_.data(), i);
            // Of senders that set both bits the cell is absent too.
            if (null) {
                table_.Clear(image_.data(), i);
            } else if (!ReadCell(i)) {
                return false;
            }
        }
        return true;
    }

    bool TakeMap(std::size_t bytes, ColumnMap& map) {
        if (!reader_.Require(bytes)) return Fail("the file ends inside a row");
        map.assign(reader_.data(), reader_.data() + bytes);
        reader_.Skip(bytes);
        return true;
    }

    bool ReadCell(std::size_t column) {
        const Column& described = columns_[column];
        std::size_t size = 0;
        if (!ReadCellSize(described, size)) return false;
        if (!reader_.Require(size)) return Fail("the file ends inside a cell");
        std::uint8_t* const image = image_.data();
        switch (described.kind) {
            case CellKind::kText:
                if (size % 2 != 0) return Fail("a text of half a character");
                StoreUnits(column, size / 2);
                break;
            case CellKind::kBytes:
                StoreText(column, {reinterpret_cast<const char*>(reader_.data()), size});
                break;
            default: std::memcpy(image + described.offset, reader_.data(), size);
        }
        reader_.Skip(size);
        Table::SetNull(image, column, false);
        return true;
    }

    bool ReadCellSize(const Column& column, std::size_t& size) {
        if (column.prefix == CellPrefix::kNone) {
            size = static_cast<std::size_t>(column.max_cell_bytes);
            return true;
        }
        std::uint8_t small = 0;
        std::uint32_t large = 0;
        const bool one_byte = column.prefix == CellPrefix::kOneByte;
        if (!(one_byte ? reader_.Read(small) : reader_.Read(large))) {
            return Fail("the file ends inside a row");
        }
        size = one_byte ? small : large;
        if (size > kMaxCellBytes) return Fail("a cell longer than any can be");
        if (!column.IsLong() && size > column.max_cell_bytes) {
            return Fail("a cell longer than its column");
        }
        return true;
    }

    // Neighbouring rows often share a text, which then needs no conversion,
    void StoreUnits(std::size_t column, std::size_t unit_count) {
        const std::string_view guess = table_.pool().View(guesses_[column]);
        if (IsAsciiOfUtf16(guess, reader_.data(), unit_count)) {
            Table::Store(image_.data(), columns_[column], guesses_[column]);
            return;
        }
        AssignFromUtf16(reader_.data(), unit_count, text_);
        StoreText(column, text_);
    }

    // or at least no search.
    void StoreText(std::size_t column, std::string_view text) {
        guesses_[column] = table_.pool().Intern(text, guesses_[column]);
        Table::Store(image_.data(), columns_[column], guesses_[column]);
    }

    ByteReader& reader_;
    Table& table_;
    const std::vector<Column>& columns_;
    std::vector<TextId> guesses_;
    std::vector<std::size_t> nullable_;
    RowImage image_;
    RowImage first_;
    ColumnMap map_;
    ColumnMap nulls_;
    ColumnMap touched_;
    std::string text_;
    const char* problem_ = "";
    std::uint64_t offset_ = 0;
};

Error Damage(const ByteReader& reader, const std::string& problem, std::uint64_t offset) {
    const bool failed = reader.failure().has_value();
    Error error =
        RuntimeError(kFileCouldNotBeRead, (failed ? std::string("reading failed") : problem) +
                                              " at offset " + std::to_string(offset));
    error.kind = failed ? ErrorKind::kIo : ErrorKind::kMalformed;
    return error;
}

}  // namespace

Result<std::unique_ptr<Records>> ReadAdtg(ByteReader& reader) {
    HeadReader head(reader);
    if (!head.Read()) return Damage(reader, head.problem(), head.offset());
    auto records = std::make_unique<Records>(head.TakeColumns(), head.TakeHead());
    RowReader rows(reader, *records);
    if (!rows.ReadAll()) return Damage(reader, rows.problem(), rows.offset());
    return records;
}

}  // namespace trevix::recordset
