// The part of an ADTG file before the rows: constant blocks and one descriptor a column.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/recordset/byte_reader.h"
#include "platform/recordset/column.h"
#include "platform/recordset/table.h"

namespace trevix::recordset {

// Reads a head, up to the first row or the end mark. Functions return false after noting a problem.
class HeadReader {
 public:
    explicit HeadReader(ByteReader& reader) : reader_(reader) {}

    bool Read();

    const char* problem() const { return problem_; }
    std::uint64_t offset() const { return offset_; }

    std::vector<Column> TakeColumns() { return std::move(columns_); }
    FileHead TakeHead() { return std::move(head_); }

 private:
    bool Fail(const char* problem, std::uint64_t offset);
    bool FailIn(const char* problem, const ByteReader& block);
    bool TakeBlock(std::string& block, std::size_t size_bytes);
    bool ReadHeader();
    bool ReadResult(std::uint64_t start);
    bool ReadContext();
    bool ReadColumn();
    bool ReadColumnTail(ByteReader& block, std::uint32_t presence);
    bool CheckPropertySets(ByteReader& block);

    ByteReader& reader_;
    FileHead head_;
    std::vector<Column> columns_;
    std::uint64_t block_offset_ = 0;  // of the content of the block being read
    const char* problem_ = "";
    std::uint64_t offset_ = 0;
};

// The head of a set that was made here: `row_count` rows of `columns`.
std::string FabricatedHead(const std::vector<Column>& columns, std::uint32_t row_count);

}  // namespace trevix::recordset
