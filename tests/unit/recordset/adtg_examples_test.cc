// Whole files, byte by byte.
#include <gtest/gtest.h>

#include "bytes.h"
#include "platform/recordset/cell_value.h"
#include "platform/recordset/factory.h"

namespace trevix::recordset {
namespace {

std::unique_ptr<RecordSet> NewSet() {
    Factory factory;
    auto set = factory.CreateRecordSet();
    return std::move(set).value();
}

std::string Saved(RecordSet& set) {
    const TemporaryFolder folder;
    const Status saved = set.Save(folder / "set.adtg", kPersistAdtg);
    EXPECT_TRUE(saved.ok());
    return ReadWholeFile(folder / "set.adtg");
}

Variant CellOf(const Records& records, RowId row, std::size_t column) {
    return ReadCell(records.table(), records.table().rows().At(row), column);
}

std::string ShownCell(const Records& records, RowId row, std::size_t column) {
    return Shown(CellOf(records, row, column));
}

const Variant kNull = Empty();

// Reads the bytes, which must succeed, and expects that they are written again as they are.
std::unique_ptr<Records> ReadAndCompare(const std::string& bytes) {
    auto records = ReadBytes(bytes);
    if (!records.ok()) {
        ADD_FAILURE() << records.error().description;
        return nullptr;
    }
    EXPECT_EQ(WriteBytes(records.value()->table()), bytes);
    return std::move(records).value();
}

TEST(AdtgWrite, GivesTheBytesOfTheTwoRowExample) {
    const auto set = NewSet();
    ASSERT_TRUE(set->Append("ID", FieldType::kInteger, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set->Append("NAME", FieldType::kBstr, 0, kFieldIsNullable).ok());
    ASSERT_TRUE(set->Open().ok());
    ASSERT_TRUE(set->AddNew().ok());
    ASSERT_TRUE(set->Set("ID", std::int32_t{1}).ok());
    ASSERT_TRUE(set->Set("NAME", std::string("A\xC3\xA9")).ok());
    ASSERT_TRUE(set->Update().ok());
    ASSERT_TRUE(set->AddNew().ok());
    ASSERT_TRUE(set->Set("ID", std::int32_t{2}).ok());
    ASSERT_TRUE(set->Set("NAME", kNull).ok());
    ASSERT_TRUE(set->Update().ok());

    const std::string expected = ConstantStart(2, 2) + FromHex(R"(
            06 21 00 80 01 00 01 00 02 00 49 00 44 00 03 00 04 00 00 00 00 00 00 00 00 00 00 00
            14 00 00 00 00 00 FF FF 06 25 00 80 01 00 02 00 04 00 4E 00 41 00 4D 00 45 00 82 00
            FF FF FF FF 00 00 00 00 00 00 00 00 A4 00 00 00 00 00 FF FF 0D C0 00 01 00 00 00 04
            00 00 00 41 00 E9 00 0D 80 40 02 00 00 00 0F)");
    EXPECT_EQ(expected.size(), 369U);
    EXPECT_EQ(Saved(*set), expected);
}

TEST(AdtgWrite, PutsTheAttributesOfFieldsIntoTheirFlags) {
    const auto set = NewSet();
    ASSERT_TRUE(set->Append("K", FieldType::kInteger, 0, kFieldKeyColumn).ok());
    ASSERT_TRUE(set->Append("T", FieldType::kBstr, 255, kFieldUnspecified).ok());
    ASSERT_TRUE(set->Append("D", FieldType::kDate, 0, kFieldMayBeNull).ok());
    ASSERT_TRUE(set->Append("S", FieldType::kSmallInt, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set->Append("B", FieldType::kBoolean, 0, kFieldUnspecified).ok());
    ASSERT_TRUE(set->Append("R", FieldType::kDouble, 0, kFieldIsNullable).ok());
    ASSERT_TRUE(set->Open().ok());
    EXPECT_EQ(Saved(*set),
              ConstantStart(6, 0) + ColumnBytes(1, "K", 0x03, 4, 0x8014) +
                  ColumnBytes(2, "T", 0x82, 0xFFFFFFFF, 0x84) + ColumnBytes(3, "D", 0x07, 8, 0x54) +
                  ColumnBytes(4, "S", 0x02, 2, 0x14) + ColumnBytes(5, "B", 0x0B, 2, 0x14) +
                  ColumnBytes(6, "R", 0x05, 8, 0x34) + "\x0F");
}

std::unique_ptr<RecordSet> WideSet(int columns, const std::vector<int>& nullable) {
    auto set = NewSet();
    for (int i = 1; i <= columns; ++i) {
        const bool null = std::find(nullable.begin(), nullable.end(), i) != nullable.end();
        EXPECT_TRUE(set->Append("C" + std::to_string(i), FieldType::kSmallInt, 0,
                                null ? kFieldIsNullable : kFieldUnspecified)
                        .ok());
    }
    EXPECT_TRUE(set->Open().ok());
    return set;
}

// The `count` bytes behind the token of the first row.
std::string RowStart(const std::string& file, int columns, std::size_t count) {
    std::size_t at = 0x10E;
    for (int i = 1; i <= columns; ++i)
        at += 32 + 2 * ("C" + std::to_string(i)).size();
    EXPECT_EQ(file[at], '\x0D');
    return file.substr(at + 1, count);
}

TEST(AdtgWrite, MapsTheCellsAndNullsOfAWideRow) {
    auto set = WideSet(16, {3, 15});
    ASSERT_TRUE(set->AddNew().ok());
    ASSERT_TRUE(set->Update().ok());
    EXPECT_EQ(RowStart(Saved(*set), 16, 4), FromHex("DF FD 20 02"));

    ASSERT_TRUE(set->Set("C3", std::int16_t{7}).ok());
    ASSERT_TRUE(set->Update().ok());
    EXPECT_EQ(RowStart(Saved(*set), 16, 4), FromHex("FF FD 00 02"));

    ASSERT_TRUE(set->Set("C15", std::int16_t{7}).ok());
    ASSERT_TRUE(set->Update().ok());
    EXPECT_EQ(RowStart(Saved(*set), 16, 4), FromHex("FF FF 00 00"));
}

TEST(AdtgWrite, LeavesTheUnusedBitsOfUpdateMapsZero) {
    auto set = WideSet(7, {});
    ASSERT_TRUE(set->AddNew().ok());
    ASSERT_TRUE(set->Update().ok());
    EXPECT_EQ(RowStart(Saved(*set), 7, 2), FromHex("FE 00"));
}

TEST(AdtgWrite, SetsTheUnusedBitsOfPresenceMaps) {
    // Sixteen columns of which 3, 5 and 15 may be Null; an unchanged row with 15 Null.
    std::string bytes = ConstantStart(16, 1);
    for (int i = 1; i <= 16; ++i) {
        const bool nullable = i == 3 || i == 5 || i == 15;
        bytes += ColumnBytes(i, "C" + std::to_string(i), 0x02, 2, nullable ? 0x34 : 0x14);
    }
    const std::string cells(30, '\x01');
    ReadAndCompare(bytes + "\x07\xDF" + cells + "\x0F");

    // The unused bits say nothing.
    const auto other = ReadBytes(bytes + "\x07\xC0" + cells + "\x0F");
    ASSERT_TRUE(other.ok());
    EXPECT_EQ(WriteBytes(other.value()->table()), bytes + "\x07\xDF" + cells + "\x0F");
}

// A change of one text and a deletion, of a set with a text that may be Null.
TEST(AdtgRead, KeepsAllFourStatesOfRows) {
    const std::string bytes = ConstantStart(2, 3) + ColumnBytes(1, "ID", 0x03, 4, 0x14) +
                              ColumnBytes(2, "V", 0x82, 0xFFFFFFFF, 0xA4) + FromHex(R"(
        07 FF 02 00 00 00 04 00 00 00 70 00 6C 00 0C
        07 FF 01 00 00 00 00 00 00 00 0A 40 00 04 00 00 00 5C D5 00 AE
        07 FF 03 00 00 00 02 00 00 00 4A 00
        0D C0 00 04 00 00 00 02 00 00 00 74 00 0F)");
    const auto records = ReadAndCompare(bytes);
    ASSERT_NE(records, nullptr);
    EXPECT_EQ(records->table().rows().live(), 3U);
    EXPECT_EQ(records->table().deleted().size(), 1U);
    EXPECT_EQ(ShownCell(*records, 0, 0), Shown(Variant(std::int32_t{1})));
    EXPECT_EQ(ShownCell(*records, 0, 1), Shown(Variant(std::string("\xED\x95\x9C\xEA\xB8\x80"))));
    EXPECT_EQ(ShownCell(*records, 1, 1), Shown(Variant(std::string("J"))));
    EXPECT_EQ(ShownCell(*records, 2, 1), Shown(Variant(std::string("t"))));
}

TEST(AdtgRead, TakesASetWithoutRows) {
    const auto records = ReadAndCompare(ConstantStart(2, 0) + ColumnBytes(1, "ID", 0x03, 4, 0x14) +
                                        ColumnBytes(2, "NAME", 0x82, 40, 0x24) + "\x0F");
    ASSERT_NE(records, nullptr);
    EXPECT_EQ(records->table().rows().live(), 0U);
    EXPECT_EQ(records->table().columns()[1].type, FieldType::kBstr);
    EXPECT_EQ(records->table().columns()[1].limit_units, 40U);
}

TEST(AdtgRead, TellsNullFromTheEmptyTextAndFromZero) {
    const auto records = ReadAndCompare(ConstantStart(3, 2) + ColumnBytes(1, "ID", 0x03, 4, 0x14) +
                                        ColumnBytes(2, "TEXT", 0x82, 40, 0x24) +
                                        ColumnBytes(3, "NUMBER", 0x03, 4, 0x34) + FromHex(R"(
        0D 80 60 01 00 00 00 0D E0 00 02 00 00 00 00 00 00 00 00 0F)"));
    ASSERT_NE(records, nullptr);
    EXPECT_EQ(ShownCell(*records, 0, 1), "Empty");
    EXPECT_EQ(ShownCell(*records, 0, 2), "Empty");
    EXPECT_EQ(ShownCell(*records, 1, 1), Shown(Variant(std::string())));
    EXPECT_EQ(ShownCell(*records, 1, 2), Shown(Variant(std::int32_t{0})));
}

TEST(AdtgRead, KnowsBooleansDoublesAndDatesAndKeepsCurrency) {
    const auto records = ReadAndCompare(
        ConstantStart(5, 2) + ColumnBytes(1, "ID", 0x03, 4, 0x14) +
        ColumnBytes(2, "FLAG", 0x0B, 2, 0x14) + ColumnBytes(3, "AMOUNT", 0x06, 8, 0x14) +
        ColumnBytes(4, "RATIO", 0x05, 8, 0x14) + ColumnBytes(5, "WHEN", 0x07, 8, 0x14) + FromHex(R"(
        0D F8 00 01 00 00 00 FF FF 00 61 BC 00 00 00 00 00 6E 86 1B F0 F9 21 09 40 26 BF 58 72 A5
        07 E2 40
        0D F8 00 FE FF FF FF 00 00 CC CB FE FF FF FF FF FF 00 00 00 00 00 00 D0 BF 6F 74 CF FF BF
        D5 E1 40 0F)"));
    ASSERT_NE(records, nullptr);
    EXPECT_EQ(ShownCell(*records, 0, 1), Shown(Variant(true)));
    EXPECT_EQ(ShownCell(*records, 1, 1), Shown(Variant(false)));
    EXPECT_EQ(ShownCell(*records, 0, 3), Shown(Variant(3.14159)));
    EXPECT_EQ(ShownCell(*records, 1, 3), Shown(Variant(-0.25)));
    const Variant when = CellOf(*records, 1, 4);
    EXPECT_NEAR(std::get<Date>(when).days, 36526 - 2.0 / 86400, 1e-9);  // 1999-12-31 23:59:58
    const Variant amount = CellOf(*records, 0, 2);
    EXPECT_EQ(std::get<Blob>(amount).ToString().value(), FromHex("00 61 BC 00 00 00 00 00"));
    EXPECT_EQ(records->table().columns()[2].type, FieldType::kOther);
}

TEST(AdtgRead, KeepsNullsThroughChangesAndDeletions) {
    const auto records = ReadAndCompare(ConstantStart(2, 3) + ColumnBytes(1, "ID", 0x03, 4, 0x14) +
                                        ColumnBytes(2, "VALUE", 0x02, 2, 0x34) + FromHex(R"(
        07 7F 02 00 00 00 0C 07 FF 01 00 00 00 00 80 0A 00 40 07 7F 03 00 00 00
        0D 80 40 04 00 00 00 0F)"));
    ASSERT_NE(records, nullptr);
    for (RowId row = 0; row < 3; ++row)
        EXPECT_EQ(ShownCell(*records, row, 1), "Empty");
}

TEST(AdtgRead, ExpectsNoMapWhereNoColumnMayBeNull) {
    const auto records = ReadAndCompare(ConstantStart(4, 2) + ColumnBytes(1, "ID", 0x03, 4, 0x14) +
                                        ColumnBytes(2, "TEXT", 0x82, 80, 0x04) +
                                        ColumnBytes(3, "BIN", 0x80, 16, 0x04) +
                                        ColumnBytes(4, "TS", 0x87, 16, 0x14) + FromHex(R"(
        07 02 00 00 00 08 62 00 65 00 74 00 61 00 03 04 05 06
           EA 07 02 00 03 00 04 00 05 00 06 00 00 00 00 00 0C
        07 01 00 00 00 0A 61 00 6C 00 70 00 68 00 61 00 03 01 02 03
           EA 07 01 00 02 00 03 00 04 00 05 00 00 00 00 00
        0A 50 00 02 7A 00 EA 07 01 00 02 00 03 00 04 00 05 00 00 00 00 01
        07 03 00 00 00 00 00 EA 07 03 00 04 00 05 00 06 00 07 00 00 00 00 00 0F)"));
    ASSERT_NE(records, nullptr);
    EXPECT_EQ(ShownCell(*records, 0, 1), Shown(Variant(std::string("z"))));
    EXPECT_EQ(std::get<Blob>(CellOf(*records, 0, 2)).ToString().value(), "\x01\x02\x03");
    EXPECT_EQ(ShownCell(*records, 1, 1), Shown(Variant(std::string())));
}

TEST(AdtgRead, TakesFourBytesOfLengthFromTheFirstColumnOver255Bytes) {
    // 127 units are 254 bytes, 128 are 256.
    ReadAndCompare(ConstantStart(1, 1) + ColumnBytes(1, "T", 0x82, 127, 0x04) +
                   FromHex("0D 80 00 02 41 00 0F"));
    ReadAndCompare(ConstantStart(1, 1) + ColumnBytes(1, "T", 0x82, 128, 0x04) +
                   FromHex("0D 80 00 02 00 00 00 41 00 0F"));
    ReadAndCompare(ConstantStart(1, 1) + ColumnBytes(1, "T", 0x81, 255, 0x04) +
                   FromHex("0D 80 00 01 41 0F"));
    // Also where the column is marked as fixed; a shorter fixed one has no length at all.
    ReadAndCompare(ConstantStart(1, 1) + ColumnBytes(1, "T", 0x81, 300, 0x14) +
                   FromHex("0D 80 00 01 00 00 00 41 0F"));
    ReadAndCompare(ConstantStart(1, 1) + ColumnBytes(1, "T", 0x82, 2, 0x14) +
                   FromHex("0D 80 00 41 00 20 00 0F"));
    // Except for numbers of variable length.
    ReadAndCompare(ConstantStart(1, 1) + ColumnBytes(1, "N", 0x8B, 8, 0x14) +
                   FromHex("0D 80 00 04 03 00 01 07 0F"));
}

TEST(AdtgRead, KeepsUnpairedSurrogates) {
    const auto records = ReadAndCompare(ConstantStart(1, 1) + ColumnBytes(1, "T", 0x82, 40, 0x04) +
                                        FromHex("0D 80 00 08 00 D8 41 00 3D D8 00 DE 0F"));
    ASSERT_NE(records, nullptr);
    EXPECT_EQ(ShownCell(*records, 0, 0), Shown(Variant(std::string("\xED\xA0\x80"
                                                                   "A\xF0\x9F\x98\x80"))));
}

TEST(AdtgRead, AcceptsWhatOtherWritersAdd) {
    const std::string plain = ConstantStart(1, 1) + ColumnBytes(1, "N", 0x02, 2, 0x14);
    const std::string row = FromHex("0D 80 00 05 00 0F");
    // A longer header; bytes behind the end mark; both bits of a Null; a table descriptor.
    std::string longer = plain;
    longer[1] = 8;
    longer.insert(9, 1, '\0');
    ReadAndCompare(longer + row);
    EXPECT_TRUE(ReadBytes(plain + row + "more").ok());
    std::string table = ConstantStart(1, 1) + FromHex("05 02 00 01 00");
    ReadAndCompare(table + ColumnBytes(1, "N", 0x02, 2, 0x14) + row);
    const auto both = ReadBytes(ConstantStart(1, 1) + ColumnBytes(1, "N", 0x02, 2, 0x34) +
                                FromHex("0D 80 80 0F"));
    ASSERT_TRUE(both.ok());
    EXPECT_EQ(ShownCell(*both.value(), 0, 0), "Empty");
}

TEST(AdtgRead, GivesAColumnThatIsNeverNullItsDefaultValue) {
    const auto records = ReadBytes(ConstantStart(1, 1) + ColumnBytes(1, "N", 0x02, 2, 0x14) +
                                   FromHex("0D 00 80 0D 00 00 0F"));
    ASSERT_TRUE(records.ok());
    EXPECT_EQ(ShownCell(*records.value(), 0, 0), Shown(Variant(std::int16_t{0})));
    EXPECT_EQ(ShownCell(*records.value(), 1, 0), Shown(Variant(std::int16_t{0})));
}

}  // namespace
}  // namespace trevix::recordset
