// Random record sets: what is written is read as it was, and written again as it was.
#include <gtest/gtest.h>

#include <random>

#include "bytes.h"
#include "platform/recordset/adtg_format.h"
#include "platform/recordset/cell_value.h"

namespace trevix::recordset {
namespace {

using Random = std::mt19937;

std::string RandomText(Random& random, std::size_t units) {
    std::string text;
    while (units > 0) {
        const auto kind = random() % 8;
        if (kind == 0 && units > 1) {
            text += "\xF0\x9F\x98\x80";  // two units
            --units;
        } else if (kind == 1) {
            text += "\xC3\xA9";
        } else if (kind == 2) {
            text += "\xED\x95\x9C";
        } else {
            text += static_cast<char>('a' + random() % 26);
        }
        --units;
    }
    return text;
}

Column RandomColumn(Random& random, std::size_t number, bool nullable) {
    constexpr FieldType kTypes[] = {FieldType::kSmallInt, FieldType::kInteger, FieldType::kDouble,
                                    FieldType::kDate,     FieldType::kBoolean, FieldType::kBstr};
    const int attributes = !nullable           ? kFieldUnspecified
                           : random() % 2 == 0 ? kFieldIsNullable
                                               : kFieldMayBeNull;
    const std::string name = "C" + std::to_string(number);
    Column column = MakeColumn(name, kTypes[random() % std::size(kTypes)], 0, attributes);
    if (column.kind == CellKind::kText && random() % 2 == 0) {
        // A text of limited length, shorter or longer than one byte can count.
        column.flags &= ~kFlagLong;
        column.max_length = random() % 2 == 0 ? 127 : 128;
        EXPECT_TRUE(CompleteColumn(column));
    }
    return column;
}

Variant RandomValue(Random& random, const Column& column) {
    if (column.nullable && random() % 3 == 0) return Empty();
    switch (column.type) {
        case FieldType::kSmallInt: return static_cast<std::int16_t>(random());
        case FieldType::kInteger: return static_cast<std::int32_t>(random());
        case FieldType::kDouble: return static_cast<double>(random()) / 1000 - 5e5;
        case FieldType::kDate: return Date{static_cast<double>(random() % 100000) / 7 - 5000};
        case FieldType::kBoolean: return random() % 2 == 0;
        default: {
            constexpr std::size_t kUnits[] = {0, 1, 5, 127, 128, 400};
            std::size_t units = kUnits[random() % std::size(kUnits)];
            units = std::min<std::size_t>(units, column.limit_units);
            return RandomText(random, units);
        }
    }
}

RowImage RandomRow(Random& random, Table& table, RowState state) {
    RowImage image = table.default_row();
    Table::SetState(image.data(), state);
    for (std::size_t i = 0; i < table.columns().size(); ++i) {
        TextId guess = 0;
        const Variant value = RandomValue(random, table.columns()[i]);
        EXPECT_EQ(WriteCell(table, image.data(), i, value, guess), WriteOutcome::kDone);
    }
    return image;
}

ColumnMap RandomTouched(Random& random, std::size_t columns) {
    ColumnMap touched(MapBytes(columns));
    for (std::size_t i = 0; i < columns; ++i) {
        if (random() % 2 == 0) SetMapBit(touched.data(), i);
    }
    return touched;
}

// A change of `touched` columns of a row; the others keep their first values.
void AddChangedRow(Random& random, Table& table) {
    const std::size_t columns = table.columns().size();
    const RowImage first = RandomRow(random, table, RowState::kUnchanged);
    RowImage image = first;
    Table::SetState(image.data(), RowState::kChanged);
    const ColumnMap touched = RandomTouched(random, columns);
    for (std::size_t i = 0; i < columns; ++i) {
        TextId guess = 0;
        if (!MapBit(touched.data(), i)) continue;
        const Variant value = RandomValue(random, table.columns()[i]);
        EXPECT_EQ(WriteCell(table, image.data(), i, value, guess), WriteOutcome::kDone);
    }
    table.AddChangedRow(first, image, touched);
}

void AddRandomRow(Random& random, Table& table) {
    switch (random() % 4) {
        case 0: table.AddRow(RandomRow(random, table, RowState::kPending)); break;
        case 1: table.AddRow(RandomRow(random, table, RowState::kUnchanged)); break;
        case 2: AddChangedRow(random, table); break;
        default: table.AddDeletedRow(RandomRow(random, table, RowState::kUnchanged));
    }
}

void ExpectSameRows(const Table& left, const Table& right) {
    ASSERT_EQ(left.rows().size(), right.rows().size());
    for (RowId row = 0; row < left.rows().size(); ++row) {
        const std::uint8_t* const a = left.rows().At(row);
        const std::uint8_t* const b = right.rows().At(row);
        ASSERT_EQ(Table::State(a), Table::State(b));
        for (std::size_t i = 0; i < left.columns().size(); ++i) {
            ASSERT_EQ(Shown(ReadCell(left, a, i)), Shown(ReadCell(right, b, i)))
                << row << ", " << i;
        }
    }
}

void ExpectRoundTrip(const Table& table) {
    const std::string bytes = WriteBytes(table);
    const auto read = ReadBytes(bytes);
    ASSERT_TRUE(read.ok()) << read.error().description;
    ExpectSameRows(table, read.value()->table());
    ASSERT_EQ(WriteBytes(read.value()->table()), bytes);
}

// Column count and number of columns that may be Null.
class AdtgRoundTrip : public testing::TestWithParam<std::tuple<std::size_t, std::size_t>> {};

TEST_P(AdtgRoundTrip, GivesTheSameRowsAndTheSameBytes) {
    const auto [columns, nullable] = GetParam();
    Random random(static_cast<unsigned>(columns * 100 + nullable));
    for (int round = 0; round < 20; ++round) {
        std::vector<Column> described;
        for (std::size_t i = 0; i < columns; ++i) {
            described.push_back(RandomColumn(random, i, i < nullable));
        }
        std::shuffle(described.begin(), described.end(), random);
        Table table(described, FileHead());
        for (auto rows = random() % 20; rows > 0; --rows)
            AddRandomRow(random, table);
        ExpectRoundTrip(table);
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, AdtgRoundTrip,
                         testing::Combine(testing::Values(1, 7, 8, 9, 16, 17, 64, 65),
                                          testing::Values(0, 1, 8, 9)));

TEST(AdtgRoundTripText, KeepsTextsOfAnyLength) {
    Random random(1);
    Table table({MakeColumn("T", FieldType::kBstr, 0, kFieldIsNullable)}, FileHead());
    for (const std::size_t units : {0U, 127U, 128U, 32767U, 70000U}) {
        RowImage image = table.default_row();
        TextId guess = 0;
        const Variant text = RandomText(random, units);
        ASSERT_EQ(WriteCell(table, image.data(), 0, text, guess), WriteOutcome::kDone);
        table.AddRow(image);
    }
    ExpectRoundTrip(table);
}

TEST(AdtgRoundTripNull, KeepsNullInTheFirstAndLastColumn) {
    std::vector<Column> columns;
    for (std::size_t i = 0; i < 9; ++i) {
        columns.push_back(
            MakeColumn("C" + std::to_string(i), FieldType::kInteger, 0, kFieldMayBeNull));
    }
    for (const std::size_t null : {0U, 8U}) {
        for (const RowState state : {RowState::kPending, RowState::kUnchanged}) {
            Table table(columns, FileHead());
            RowImage image = table.default_row();
            Table::SetState(image.data(), state);
            for (std::size_t i = 0; i < columns.size(); ++i) {
                Table::SetNull(image.data(), i, i == null);
            }
            table.AddRow(image);
            ExpectRoundTrip(table);
        }
    }
}

}  // namespace
}  // namespace trevix::recordset
