// Files that are no ADTG files, or were damaged.
#include <gtest/gtest.h>

#include <random>

#include "bytes.h"
#include "platform/errors.h"

namespace trevix::recordset {
namespace {

// All four states, lengths of one and four bytes, Nulls, raw bytes.
std::string GoodFile() {
    return ConstantStart(4, 3) + ColumnBytes(1, "ID", 0x03, 4, 0x14) +
           ColumnBytes(2, "V", 0x82, 0xFFFFFFFF, 0xA4) + ColumnBytes(3, "S", 0x82, 40, 0x24) +
           ColumnBytes(4, "RAW", 0x80, 16, 0x04) + FromHex(R"(
        07 FF 02 00 00 00 04 00 00 00 70 00 6C 00 02 41 00 01 99 0C
        07 FF 01 00 00 00 00 00 00 00 00 00 0A 60 00 04 00 00 00 5C D5 00 AE 04 42 00 43 00
        07 3F 03 00 00 00 03 01 02 03
        0D D0 20 04 00 00 00 02 00 00 00 74 00 00 0F)");
}

Error ErrorOf(const std::string& bytes) {
    const auto records = ReadBytes(bytes);
    if (records.ok()) return Error{ErrorKind::kOther, 0, "was read"};
    return records.error();
}

void ExpectRefused(const std::string& bytes, const std::string& problem) {
    const Error error = ErrorOf(bytes);
    EXPECT_EQ(error.kind, ErrorKind::kMalformed) << problem;
    EXPECT_EQ(error.number, kFileCouldNotBeRead) << problem;
    EXPECT_NE(error.description.find(problem), std::string::npos) << error.description;
    EXPECT_NE(error.description.find(" at offset "), std::string::npos) << error.description;
}

TEST(AdtgReadDamaged, RefusesAFileCutOffAnywhere) {
    const std::string good = GoodFile();
    ASSERT_TRUE(ReadBytes(good).ok());
    for (std::size_t size = 0; size < good.size(); ++size) {
        const auto cut = std::make_unique<char[]>(size);  // so that reading on is noticed
        std::copy_n(good.data(), size, cut.get());
        const auto records = ReadBytes({cut.get(), size});
        ASSERT_FALSE(records.ok()) << "cut at " << size;
        ASSERT_EQ(records.error().kind, ErrorKind::kMalformed);
    }
}

TEST(AdtgReadDamaged, EndsInRecordsOrAnErrorWhateverBitsAreFlipped) {
    const std::string good = GoodFile();
    std::mt19937 random(20040131);
    int refused = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string bytes = good;
        for (int flips = 1 + i % 3; flips > 0; --flips) {
            char& byte = bytes[random() % bytes.size()];
            byte = static_cast<char>(byte ^ (1 << random() % 8));
        }
        const auto records = ReadBytes(bytes);
        if (records.ok()) {
            // What was read is written in one settled form.
            const std::string written = WriteBytes(records.value()->table());
            const auto again = ReadBytes(written);
            ASSERT_TRUE(again.ok()) << again.error().description;
            ASSERT_EQ(WriteBytes(again.value()->table()), written);
        } else {
            ++refused;
        }
    }
    EXPECT_GT(refused, 1000);
    EXPECT_LT(refused, 20000);
}

TEST(AdtgReadDamaged, SaysWhatIsWrongAndWhere) {
    const std::string start = ConstantStart(1, 1);
    const std::string column = ColumnBytes(1, "N", 0x02, 2, 0x14);
    ExpectRefused("", "shorter than any record set");
    ExpectRefused("<xml xmlns:s='uuid'>", "no record set");
    std::string changed = start;
    changed[3] = 'x';
    ExpectRefused(changed, "no record set");
    changed = start;
    changed[7] = 1;
    ExpectRefused(changed, "big-endian");
    changed = start;
    changed[1] = 6;
    ExpectRefused(changed, "header too short");
    ExpectRefused(start.substr(0, 0x25) + column + "\x0F", "a column before its record set");
    ExpectRefused(start.substr(0, 0x8F) + column + "\x0F", "a column before its record set");
    ExpectRefused(start + "\x0F", "no columns");
    ExpectRefused(start + column + "\x0A", "a change without its row");
    ExpectRefused(start + column + FromHex("0D 80 00 01 00 0C"), "a change without its row");
    ExpectRefused(start + column + "\x87", "hierarchical record set");
    ExpectRefused(start + column + "\x42", "unexpected token");
    ExpectRefused(start + column + start.substr(0x25), "hierarchical record set");
    ExpectRefused(start + ColumnBytes(1, "C", 0x88, 4, 0x2014), "hierarchical record set");
    ExpectRefused(start + ColumnBytes(1, "N", 0x02, 3, 0x14), "a size that its type lacks");
    ExpectRefused(start + ColumnBytes(1, "N", 0x13, 0, 0x14), "a size that its type lacks");
    const Error error = ErrorOf(start + column + "\x42");
    EXPECT_NE(error.description.find(std::to_string(start.size() + column.size() + 1)),
              std::string::npos)
        << error.description;
}

TEST(AdtgReadDamaged, RefusesLengthsThatReachTooFar) {
    const std::string start = ConstantStart(1, 1);
    const std::string text = start + ColumnBytes(1, "T", 0x82, 0xFFFFFFFF, 0x84);
    ExpectRefused(text + FromHex("0D 80 00 FE FF FF FF 41 00 0F"), "longer than any can be");
    ExpectRefused(text + FromHex("0D 80 00 00 00 00 01 41 00 0F"), "ends inside a cell");
    ExpectRefused(text + FromHex("0D 80 00 03 00 00 00 41 00 42 0F"), "half a character");
    const std::string small = start + ColumnBytes(1, "T", 0x82, 2, 0x04);
    ExpectRefused(small + FromHex("0D 80 00 06 41 00 41 00 41 00 0F"), "longer than its column");
    std::string block = start + ColumnBytes(1, "N", 0x02, 2, 0x14) + "\x0F";
    block[0x10F] = '\xFF';
    ExpectRefused(block, "past the end of the file");
    block[0x10F] = 20;
    ExpectRefused(block, "a column cut off");
    block = start + ColumnBytes(1, "N", 0x02, 2, 0x14) + "\x0F";
    block[0x49] = 9;  // more property sets than there are
    ExpectRefused(block, "a property");
}

TEST(AdtgReadDamaged, DoesNotBelieveTheRowCount) {
    std::string bytes = GoodFile();
    for (std::size_t i = 0; i < 4; ++i)
        bytes[0x45 + i] = '\xFF';
    const auto records = ReadBytes(bytes);
    ASSERT_TRUE(records.ok());
    EXPECT_EQ(WriteBytes(records.value()->table()), GoodFile());
}

}  // namespace
}  // namespace trevix::recordset
