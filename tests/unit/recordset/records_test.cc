// What a set does at scale and over a long time: indexes, deletions, waste.
#include "platform/recordset/records.h"

#include <gtest/gtest.h>

#include "bytes.h"
#include "platform/recordset/adtg_format.h"
#include "platform/recordset/cell_value.h"
#include "platform/recordset/client_record_set.h"

namespace trevix::recordset {
namespace {

std::vector<Column> KeyAndText() {
    return {MakeColumn("Key", FieldType::kInteger, 0, kFieldUnspecified),
            MakeColumn("Text", FieldType::kBstr, 0, kFieldUnspecified)};
}

RowImage RowOf(Table& table, int key, const std::string& text) {
    RowImage image = table.default_row();
    TextId guess = 0;
    EXPECT_EQ(WriteCell(table, image.data(), 0, std::int32_t{key}, guess), WriteOutcome::kDone);
    EXPECT_EQ(WriteCell(table, image.data(), 1, text, guess), WriteOutcome::kDone);
    return image;
}

std::vector<RowId> SelectKey(Records& records, int key) {
    const auto conditions = ParseCriterion("Key=" + std::to_string(key), records.table().columns());
    return records.Select(conditions.value());
}

TEST(RecordsSelect, PutsRowsThatWereChangedToAValueInOrder) {
    Records records(KeyAndText(), FileHead());
    for (int i = 0; i < 6; ++i)
        records.Add(RowOf(records.table(), i % 2, "t"));
    EXPECT_EQ(SelectKey(records, 1), (std::vector<RowId>{1, 3, 5}));
    ColumnMap touched(1);
    SetMapBit(touched.data(), 0);
    for (const RowId row : {4U, 0U, 2U}) {
        records.Replace(row, RowOf(records.table(), 1, "t"), touched);
    }
    EXPECT_EQ(SelectKey(records, 1), (std::vector<RowId>{0, 1, 2, 3, 4, 5}));
    EXPECT_TRUE(SelectKey(records, 0).empty());
}

TEST(RecordsSelect, UsesTheRarestOfSeveralEqualities) {
    Records records(KeyAndText(), FileHead());
    for (int i = 0; i < 100; ++i) {
        records.Add(RowOf(records.table(), 7, i == 50 ? "rare" : "common"));
    }
    const auto conditions = ParseCriterion("Key=7 AND Text='RARE'", records.table().columns());
    EXPECT_EQ(records.Select(conditions.value()), std::vector<RowId>{50});
}

TEST(RecordsSelect, FindsEveryValueWhileOthersComeAndGo) {
    Records records(KeyAndText(), FileHead());
    for (int i = 0; i < 5000; ++i)
        records.Add(RowOf(records.table(), i, "t"));
    ASSERT_EQ(SelectKey(records, 0).size(), 1U);
    for (RowId row = 0; row < 5000; row += 2)
        records.Remove(row);
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(SelectKey(records, i).size(), static_cast<std::size_t>(i % 2)) << i;
    }
}

TEST(RecordsFindFrom, FindsEachMatchOfAFrequentValueInTurn) {
    Records records(KeyAndText(), FileHead());
    for (int i = 0; i < 3000; ++i)
        records.Add(RowOf(records.table(), i % 3, "t"));
    const auto conditions = ParseCriterion("Key=2", records.table().columns());
    RowId expected = 2;
    for (RowId from = 0;; from = expected + 1, expected += 3) {
        const RowId found = records.FindFrom(from, conditions.value().front());
        if (expected >= 3000) {
            EXPECT_EQ(found, kNoRow);
            break;
        }
        ASSERT_EQ(found, expected);
    }
}

TEST(TableCompact, KeepsRowsTextsAndFirstValues) {
    const std::string bytes = ConstantStart(2, 2) + ColumnBytes(1, "Key", 0x03, 4, 0x14) +
                              ColumnBytes(2, "Text", 0x82, 0xFFFFFFFF, 0x84) + FromHex(R"(
        07 01 00 00 00 02 00 00 00 61 00 0C
        07 02 00 00 00 02 00 00 00 62 00 0A 40 00 02 00 00 00 63 00
        07 03 00 00 00 02 00 00 00 64 00 0F)");
    auto records = ReadBytes(bytes);
    ASSERT_TRUE(records.ok());
    Table& table = records.value()->table();
    for (int i = 0; i < 100; ++i)
        table.pool().Intern("unused " + std::to_string(i));
    const std::size_t texts = table.pool().size();
    EXPECT_EQ(records.value()->Compact(1), 1U);
    EXPECT_EQ(WriteBytes(table), bytes);
    // The places of the unused texts are used again.
    for (int i = 0; i < 100; ++i)
        table.pool().Intern("other " + std::to_string(i));
    EXPECT_EQ(table.pool().size(), texts);
    EXPECT_EQ(WriteBytes(table), bytes);
}

TEST(TableShouldCompact, IsTrueOnceMostRowsAreDeletedAndNotAfterwards) {
    Records records(KeyAndText(), FileHead());
    for (int i = 0; i < 20000; ++i)
        records.Add(RowOf(records.table(), i, std::to_string(i)));
    RowId row = 0;
    for (; row < 10000; ++row)
        records.Remove(row);
    EXPECT_FALSE(records.table().ShouldCompact());
    for (; row < 15000; ++row)
        records.Remove(row);
    EXPECT_TRUE(records.table().ShouldCompact());
    records.Compact(0);
    EXPECT_FALSE(records.table().ShouldCompact());
    EXPECT_EQ(records.table().rows().size(), 5000U);
    EXPECT_EQ(SelectKey(records, 15000), std::vector<RowId>{0});
}

TEST(TableRemoveRow, KeepsDeletedRowsThatAFileHeldAndForgetsNewOnes) {
    const std::string head = ConstantStart(1, 2) + ColumnBytes(1, "N", 0x02, 2, 0x14);
    auto records = ReadBytes(head + FromHex("07 01 00 07 02 00 0A 80 00 03 00 0D 80 00 04 00 0F"));
    ASSERT_TRUE(records.ok());
    for (RowId row = 0; row < 3; ++row)
        records.value()->Remove(row);
    std::string expected = head + FromHex("07 01 00 0C 07 02 00 0C 0F");
    expected[0x45] = 0;
    EXPECT_EQ(WriteBytes(records.value()->table()), expected);
}

TEST(TableReplaceRow, KeepsTheFirstValuesOfRowsThatAFileHeld) {
    const std::string head = ConstantStart(1, 2) + ColumnBytes(1, "N", 0x02, 2, 0x34);
    auto records = ReadBytes(head + FromHex("07 FF 01 00 0D 80 00 04 00 0F"));
    ASSERT_TRUE(records.ok());
    Table& table = records.value()->table();
    ColumnMap touched(1);
    SetMapBit(touched.data(), 0);
    for (RowId row = 0; row < 2; ++row) {
        RowImage image(table.rows().At(row), table.rows().At(row) + table.default_row().size());
        TextId guess = 0;
        WriteCell(table, image.data(), 0, Empty(), guess);
        records.value()->Replace(row, image, touched);
    }
    EXPECT_EQ(WriteBytes(table), head + FromHex("07 FF 01 00 0A 00 80 0D 00 80 0F"));
}

// A long session: messages are indexed again and again.
TEST(ClientRecordSetAddNew, KeepsEveryRecordWhileRoomIsMadeAgainAndAgain) {
    ClientRecordSet set;
    ASSERT_TRUE(set.Append("ID", FieldType::kBstr, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set.Append("Round", FieldType::kInteger, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set.Open().ok());
    for (std::int32_t round = 0; round < 300; ++round) {
        for (int i = 0; i < 100; ++i) {
            const std::string id = "message " + std::to_string(i);
            ASSERT_TRUE(set.SetFilter("ID='" + id + "'").ok());
            if (round > 0) {
                ASSERT_TRUE(set.Delete().ok());
            }
            ASSERT_TRUE(set.SetFilter("").ok());
            ASSERT_TRUE(set.AddNew().ok());
            ASSERT_TRUE(set.Set("ID", id).ok());
            ASSERT_TRUE(set.Set("Round", round).ok());
            ASSERT_TRUE(set.Update().ok());
        }
    }
    ASSERT_EQ(set.RecordCount(), 100);
    ASSERT_TRUE(set.MoveFirst().ok());
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(Shown(set.Get("ID").value()), "'message " + std::to_string(i) + "'");
        EXPECT_EQ(Shown(set.Get("Round").value()), "299");
        ASSERT_TRUE(set.MoveNext().ok());
    }
}

// The text that was set last may be freed when room is made; its number must not stand for the
// empty text then, for the next new text gets it.
TEST(ClientRecordSetAddNew, KeepsAnEmptyTextEmptyWhenRoomWasMadeBeforeIt) {
    ClientRecordSet set;
    ASSERT_TRUE(set.Append("A", FieldType::kBstr, 255, kFieldUnspecified).ok());
    ASSERT_TRUE(set.Append("B", FieldType::kBstr, 255, kFieldUnspecified).ok());
    ASSERT_TRUE(set.Open().ok());
    for (int i = 0; i < 20000; ++i) {
        ASSERT_TRUE(set.AddNew().ok());
        ASSERT_TRUE(set.Set("A", "text " + std::to_string(i)).ok());
        ASSERT_TRUE(set.Update().ok());
    }
    ASSERT_TRUE(set.MoveFirst().ok());
    while (!set.Eof()) {
        ASSERT_TRUE(set.Delete().ok());
        ASSERT_TRUE(set.MoveNext().ok());
    }

    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(set.AddNew().ok());
        ASSERT_TRUE(set.Set("A", std::string()).ok());
        ASSERT_TRUE(set.Set("B", "new " + std::to_string(i)).ok());
        ASSERT_TRUE(set.Update().ok());
    }

    ASSERT_EQ(set.RecordCount(), 3);
    ASSERT_TRUE(set.MoveFirst().ok());
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(std::get<std::string>(set.Get("A").value()), "") << i;
        EXPECT_EQ(std::get<std::string>(set.Get("B").value()), "new " + std::to_string(i));
        ASSERT_TRUE(set.MoveNext().ok());
    }
}

TEST(ClientRecordSetAddNew, KeepsTheCurrentRecordWhenRoomIsMade) {
    ClientRecordSet set;
    ASSERT_TRUE(set.Append("N", FieldType::kInteger, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set.Open().ok());
    for (std::int32_t i = 0; i < 20000; ++i) {
        ASSERT_TRUE(set.AddNew().ok());
        ASSERT_TRUE(set.Set("N", i).ok());
        ASSERT_TRUE(set.Update().ok());
    }
    ASSERT_TRUE(set.MoveFirst().ok());
    for (int i = 0; i < 15000; ++i) {
        ASSERT_TRUE(set.Delete().ok());
        ASSERT_TRUE(set.MoveNext().ok());
    }
    ASSERT_EQ(Shown(set.Get("N").value()), "15000");
    ASSERT_TRUE(set.AddNew().ok());
    ASSERT_TRUE(set.CancelUpdate().ok());
    EXPECT_EQ(Shown(set.Get("N").value()), "15000");
    ASSERT_TRUE(set.MoveNext().ok());
    EXPECT_EQ(Shown(set.Get("N").value()), "15001");

    // Also when the current record was just deleted.
    for (int i = 0; i < 4990; ++i) {
        ASSERT_TRUE(set.Delete().ok());
        if (i < 4989) {
            ASSERT_TRUE(set.MoveNext().ok());
        }
    }
    ASSERT_TRUE(set.AddNew().ok());
    ASSERT_TRUE(set.CancelUpdate().ok());
    ASSERT_TRUE(set.MoveNext().ok());
    EXPECT_EQ(Shown(set.Get("N").value()), "19991");
}

}  // namespace
}  // namespace trevix::recordset
