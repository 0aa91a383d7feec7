#include "platform/recordset/adtg_head.h"

#include <utility>

#include "platform/recordset/adtg_format.h"
#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

// Presence bits of a column descriptor.
constexpr std::uint32_t kHasName = 0x800000;
constexpr std::uint32_t kHasBaseTable = 0x400000;
constexpr std::uint32_t kHasBaseColumn = 0x200000;
constexpr std::uint32_t kHasBaseColumnName = 0x100000;
constexpr std::uint32_t kHasBaseCatalog = 0x020000;
constexpr std::uint32_t kHasBaseSchema = 0x010000;
constexpr std::uint32_t kHasSearchable = 0x000020;

// The fixed-size fields behind the column flags, in order, with their sizes.
struct OptionalField {
    std::uint32_t bit;
    std::size_t bytes;
};
constexpr OptionalField kFieldsBeforeSearchable[] = {
    {0x8000, 4}, {0x4000, 4}, {0x2000, 4}, {0x1000, 16}, {0x0100, 2}, {0x0080, 2}, {0x0040, 2}};
constexpr OptionalField kFieldsAfterSearchable[] = {{0x0010, 2}, {0x0008, 4}};

constexpr std::size_t kRowCountPlace = 29;  // within the content of the result descriptor

bool SkipBytes(ByteReader& block, std::size_t count) {
    if (!block.Require(count)) return false;
    block.Skip(count);
    return true;
}

// A text with its length in UTF-16 units in front.
bool ReadName(ByteReader& block, std::string& name) {
    std::uint16_t units = 0;
    if (!block.Read(units) || !block.Require(std::size_t{units} * 2)) return false;
    AssignFromUtf16(block.data(), units, name);
    block.Skip(std::size_t{units} * 2);
    return true;
}

bool SkipName(ByteReader& block) {
    std::string name;
    return ReadName(block, name);
}

}  // namespace

bool HeadReader::Fail(const char* problem, std::uint64_t offset) {
    problem_ = problem;
    offset_ = offset;
    return false;
}

bool HeadReader::FailIn(const char* problem, const ByteReader& block) {
    return Fail(problem, block_offset_ + block.offset());
}

// The content of a block whose size stands next in `size_bytes` bytes.
bool HeadReader::TakeBlock(std::string& block, std::size_t size_bytes) {
    const std::uint64_t start = reader_.offset();
    if (!reader_.Require(size_bytes)) return Fail("the file ends inside a block", start);
    std::size_t size = 0;
    for (std::size_t i = size_bytes; i > 0; --i)
        size = size << 8 | reader_.data()[i - 1];
    head_.bytes.append(reinterpret_cast<const char*>(reader_.data()), size_bytes);
    reader_.Skip(size_bytes);
    if (!reader_.Require(size)) return Fail("a block that reaches past the end of the file", start);
    block_offset_ = reader_.offset();
    block.assign(reinterpret_cast<const char*>(reader_.data()), size);
    head_.bytes.append(block);
    reader_.Skip(size);
    return true;
}

bool HeadReader::Read() {
    if (!ReadHeader()) return false;
    bool has_result = false;
    bool has_context = false;
    std::string block;
    for (;;) {
        const std::uint64_t start = reader_.offset();
        if (!reader_.Require(1)) return Fail("the file ends before its end mark", start);
        const std::uint8_t token = *reader_.data();
        const bool is_block = token == kTokenHandlerOptions || token == kTokenResultDescriptor ||
                              token == kTokenContext || token == kTokenTable ||
                              token == kTokenColumn;
        if (!is_block) break;
        reader_.Skip(1);
        head_.bytes += static_cast<char>(token);
        bool read = true;
        if (token == kTokenResultDescriptor) {
            if (has_result) return Fail("hierarchical record set", start);
            has_result = true;
            read = ReadResult(start);
        } else if (token == kTokenContext) {
            if (!has_result || has_context) return Fail("a context out of its place", start);
            has_context = true;
            read = ReadContext();
        } else if (token == kTokenColumn) {
            if (!has_context) return Fail("a column before its record set", start);
            read = ReadColumn();
        } else {
            read = TakeBlock(block, 2);
        }
        if (!read) return false;
    }
    if (!has_result || !has_context) return Fail("no record set", reader_.offset());
    return !columns_.empty() || Fail("no columns", reader_.offset());
}

bool HeadReader::ReadHeader() {
    constexpr std::string_view kSignature = "TG!";
    if (!reader_.Require(9)) return Fail("shorter than any record set", 0);
    if (*reader_.data() != kTokenHeader) return Fail("no record set", 0);
    reader_.Skip(1);
    head_.bytes = static_cast<char>(kTokenHeader);
    std::string block;
    if (!TakeBlock(block, 1)) return false;
    if (block.size() < 7) return Fail("a header too short", 1);
    if (!block.starts_with(kSignature)) return Fail("no record set", block_offset_);
    if (block[5] != 0) return Fail("numbers in big-endian order", block_offset_ + 5);
    return true;
}

bool HeadReader::ReadResult(std::uint64_t start) {
    std::string content;
    if (!TakeBlock(content, 2)) return false;
    if (content.size() < kRowCountPlace + 4) return Fail("a result descriptor too short", start);
    head_.row_count_offset = head_.bytes.size() - content.size() + kRowCountPlace;
    ByteReader block(content);
    block.Skip(kRowCountPlace + 4);
    return CheckPropertySets(block);
}

bool HeadReader::ReadContext() {
    std::string content;
    if (!TakeBlock(content, 2)) return false;
    ByteReader block(content);
    return CheckPropertySets(block);
}

// Property sets are kept and not used; they only have to lie within their block. None is fine.
bool HeadReader::CheckPropertySets(ByteReader& block) {
    constexpr std::size_t kGuidBytes = 16;
    if (block.remaining() == 0) return true;
    std::uint16_t sets = 0;
    if (!block.Read(sets)) return FailIn("a property set cut off", block);
    for (; sets > 0; --sets) {
        std::uint16_t properties = 0;
        if (!SkipBytes(block, kGuidBytes) || !block.Read(properties)) {
            return FailIn("a property set cut off", block);
        }
        for (; properties > 0; --properties) {
            std::uint32_t id = 0;
            std::uint16_t size = 0;
            if (!block.Read(id) || !block.Read(size) || !SkipBytes(block, size)) {
                return FailIn("a property cut off", block);
            }
        }
    }
    return true;
}

bool HeadReader::ReadColumn() {
    if (columns_.size() == kMaxColumns) return Fail("too many columns", reader_.offset());
    std::string content;
    if (!TakeBlock(content, 2)) return false;
    ByteReader block(content);
    std::uint8_t map[3] = {};
    for (std::uint8_t& byte : map) {
        if (!block.Read(byte)) return FailIn("a column cut off", block);
    }
    const std::uint32_t presence =
        static_cast<std::uint32_t>(map[0]) << 16 | static_cast<std::uint32_t>(map[1]) << 8 | map[2];
    Column column;
    std::uint16_t ordinal = 0;
    std::uint32_t precision = 0;
    std::uint32_t scale = 0;
    const bool read = block.Read(ordinal) &&
                      ((presence & kHasName) == 0 || ReadName(block, column.name)) &&
                      ((presence & kHasBaseTable) == 0 || SkipBytes(block, 2)) &&
                      ((presence & kHasBaseColumn) == 0 || SkipBytes(block, 2)) &&
                      ((presence & kHasBaseColumnName) == 0 || SkipName(block)) &&
                      block.Read(column.db_type) && block.Read(column.max_length) &&
                      block.Read(precision) && block.Read(scale) && block.Read(column.flags);
    if (!read) return FailIn("a column cut off", block);
    if (column.db_type == kDbChapter || (column.flags & kFlagChapter) != 0) {
        return FailIn("hierarchical record set", block);
    }
    if (!ReadColumnTail(block, presence)) return FailIn("a column cut off", block);
    if (!CompleteColumn(column)) return FailIn("a column of a size that its type lacks", block);
    columns_.push_back(std::move(column));
    return true;
}

// What follows the flags is kept and not used; it only has to lie within its block.
bool HeadReader::ReadColumnTail(ByteReader& block, std::uint32_t presence) {
    if ((presence & kHasBaseCatalog) != 0 && !SkipName(block)) return false;
    if ((presence & kHasBaseSchema) != 0 && !SkipName(block)) return false;
    for (const OptionalField& field : kFieldsBeforeSearchable) {
        if ((presence & field.bit) != 0 && !SkipBytes(block, field.bytes)) return false;
    }
    // The size of this field is not agreed upon, so nothing behind it can be checked.
    if ((presence & kHasSearchable) != 0) return true;
    for (const OptionalField& field : kFieldsAfterSearchable) {
        if ((presence & field.bit) != 0 && !SkipBytes(block, field.bytes)) return false;
    }
    return SkipBytes(block, 2);  // visible
}

namespace {

using Guid = std::string_view;

// In the form that files hold.
constexpr Guid kRowCacheClass{"\xB6\x92\xF2\x3F\x04\xB2\xCF\x11\x8D\x23\x00\xAA\x00\x5F\xFE\x58",
                              16};
constexpr Guid kDescriptorId{"\xD2\xAD\x63\xF6\x02\xEB\xCF\x11\xB0\xE3\x00\xAA\x00\x3F\x00\x0F",
                             16};
constexpr Guid kRowsetSet{"\xBE\x22\xB5\xC8\xF3\x5C\xCE\x11\xAD\xE5\x00\xAA\x00\x44\x77\x3D", 16};
constexpr Guid kCursorSet{"\xC1\x3C\x8E\xB6\xEB\x6D\xD0\x11\x8D\xF6\x00\xAA\x00\x5F\xFE\x58", 16};

constexpr std::uint16_t kTrueWord = 0xFFFF;

class HeadWriter {
 public:
    template <typename T>
    void Put(T value) {
        for (std::size_t i = 0; i < sizeof value; ++i) {
            bytes_ += static_cast<char>(value >> (8 * i) & 0xFF);
        }
    }
    void Put8(std::uint32_t value) { Put(static_cast<std::uint8_t>(value)); }
    void Put16(std::uint32_t value) { Put(static_cast<std::uint16_t>(value)); }
    void Put32(std::uint32_t value) { Put(value); }
    void PutGuid(Guid guid) { bytes_ += guid; }

    // Property values: a truth of two bytes, a number of four, an empty text.
    void PutTrue(std::uint32_t id) {
        PutPropertyHead(id, 2);
        Put16(kTrueWord);
    }
    void PutNumber(std::uint32_t id, std::uint32_t value) {
        PutPropertyHead(id, 4);
        Put32(value);
    }
    void PutNoText(std::uint32_t id) { PutPropertyHead(id, 0); }

    std::string Take() { return std::move(bytes_); }

    // A token, the size of `content` and the content.
    void PutBlock(std::uint8_t token, HeadWriter& content) {
        Put8(token);
        Put16(static_cast<std::uint32_t>(content.bytes_.size()));
        bytes_ += content.bytes_;
    }

 private:
    void PutPropertyHead(std::uint32_t id, std::uint32_t size) {
        Put32(id);
        Put16(size);
    }

    std::string bytes_;
};

void PutHeader(HeadWriter& head) {
    head.Put8(kTokenHeader);
    head.Put8(7);
    for (const char letter : {'T', 'G', '!'})
        head.Put8(static_cast<std::uint8_t>(letter));
    head.Put32(0);  // version (two bytes), byte order, character data
}

void PutHandlerOptions(HeadWriter& head) {
    HeadWriter block;
    block.PutGuid(kRowCacheClass);
    block.Put8(1);   // update type
    block.Put16(0);  // original address
    block.Put16(0);  // update address
    block.Put16(0);  // friendly name
    block.Put16(0);  // asynchronous options
    head.PutBlock(kTokenHandlerOptions, block);
}

void PutResult(HeadWriter& head, std::size_t column_count, std::uint32_t row_count) {
    HeadWriter block;
    block.PutGuid(kDescriptorId);
    block.Put8(0);
    block.Put8(0);  // a snapshot
    block.Put8(0);
    block.Put16(static_cast<std::uint32_t>(column_count));  // visible
    block.Put16(static_cast<std::uint32_t>(column_count));  // in all
    block.Put16(0);                                         // computed
    block.Put16(0);                                         // tables
    block.Put16(0);                                         // ordering
    block.Put32(row_count);
    block.Put16(1);
    block.PutGuid(kCursorSet);
    block.Put16(7);
    block.PutNumber(0x0B, 1);  // automatic recalculation
    block.PutNumber(0x13, 1);  // resynchronisation after updates
    block.PutNoText(0x0D);     // unique table
    block.PutNoText(0x0E);     // unique schema
    block.PutNoText(0x0F);     // unique catalog
    block.PutNoText(0x10);     // resynchronisation command
    block.PutNoText(0x12);     // name in a shape
    head.PutBlock(kTokenResultDescriptor, block);
}

void PutContext(HeadWriter& head) {
    HeadWriter block;
    block.Put16(2);
    block.PutGuid(kRowsetSet);
    block.Put16(4);
    block.PutTrue(0x7F);       // may be changed
    block.PutTrue(0x86);       // batch updates
    block.PutNumber(0x22, 0);  // command timeout
    block.PutNumber(0x49, 0);  // maximum rows
    block.PutGuid(kCursorSet);
    block.Put16(5);
    block.PutNumber(0x04, 15);  // batch size
    block.PutNumber(0x05, 2);   // update criteria
    block.PutNumber(0x03, 15);  // background fetch size
    block.PutNumber(0x07, 50);  // initial fetch size
    block.PutNumber(0x08, 3);   // background thread priority
    head.PutBlock(kTokenContext, block);
}

void PutColumn(HeadWriter& head, const Column& column, std::size_t ordinal) {
    std::string name;
    AppendUtf16(column.name, name);
    HeadWriter block;
    for (const std::uint32_t byte : {0x80U, 0x01U, 0x00U})
        block.Put8(byte);  // name, auto-increment
    block.Put16(static_cast<std::uint32_t>(ordinal));
    block.Put16(static_cast<std::uint32_t>(name.size() / 2));
    for (const char byte : name)
        block.Put8(static_cast<std::uint8_t>(byte));
    block.Put16(column.db_type);
    block.Put32(column.max_length);
    block.Put32(0);  // precision
    block.Put32(0);  // scale
    block.Put32(column.flags);
    block.Put16(0);          // no auto-increment
    block.Put16(kTrueWord);  // visible
    head.PutBlock(kTokenColumn, block);
}

}  // namespace

std::string FabricatedHead(const std::vector<Column>& columns, std::uint32_t row_count) {
    HeadWriter head;
    PutHeader(head);
    PutHandlerOptions(head);
    PutResult(head, columns.size(), row_count);
    PutContext(head);
    for (std::size_t i = 0; i < columns.size(); ++i)
        PutColumn(head, columns[i], i + 1);
    return head.Take();
}

}  // namespace trevix::recordset
