// Reads any bytes as an ADTG file. What was read is written in one settled form, which is read as
// the same; and searching, changing and deleting never leave what was read.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/recordset/adtg_format.h"
#include "platform/recordset/adtg_reader.h"
#include "platform/recordset/adtg_writer.h"
#include "platform/recordset/cell_value.h"

namespace trevix::recordset {
namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

std::string Written(const Table& table) {
    std::string bytes;
    ByteWriter writer(&bytes);
    Require(WriteAdtg(table, nullptr, writer));
    return bytes;
}

// Looks for the value of each cell of the first rows, by index and by scan.
void Search(Records& records) {
    const Table& table = records.table();
    for (RowId row = 0; row < table.rows().size() && row < 8; ++row) {
        for (std::size_t i = 0; i < table.columns().size() && i < 8; ++i) {
            Condition condition;
            condition.column = i;
            condition.key = KeyOf(table, table.rows().At(row), i);
            condition.text = condition.key.text;
            if (condition.key.kind == CellKey::Kind::kNone) continue;
            const RowId found = records.FindFrom(0, condition);
            Require(found <= row && condition.IsMetBy(table, table.rows().At(found)));
            Require(records.FindFrom(row, condition) == row);
        }
    }
}

// Changes every other row and deletes every third.
void Edit(Records& records) {
    Table& table = records.table();
    const std::size_t columns = table.columns().size();
    ColumnMap touched(MapBytes(columns));
    SetMapBit(touched.data(), columns - 1);
    for (RowId row = 0; row < table.rows().size(); ++row) {
        RowImage image(table.rows().At(row), table.rows().At(row) + table.default_row().size());
        TextId guess = 0;
        if (row % 2 == 0) {
            WriteCell(table, image.data(), columns - 1, std::string("7"), guess);
            records.Replace(row, image, touched);
        }
        if (row % 3 == 0) records.Remove(row);
    }
    records.Compact(0);
    Search(records);
}

void Check(std::string_view bytes) {
    ByteReader reader(bytes);
    auto read = ReadAdtg(reader);
    if (!read.ok()) return;
    Records& records = *read.value();
    const std::string written = Written(records.table());

    ByteReader again_reader(written);
    const auto again = ReadAdtg(again_reader);
    Require(again.ok());
    Require(Written(again.value()->table()) == written);

    Search(records);
    Edit(records);
    const std::string edited = Written(records.table());
    ByteReader edited_reader(edited);
    Require(ReadAdtg(edited_reader).ok());
}

}  // namespace
}  // namespace trevix::recordset

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    trevix::recordset::Check({reinterpret_cast<const char*>(data), size});
    return 0;
}
