// What a large attachment index costs in memory, counted at the allocator. A program of its own,
// because it replaces the operators new and delete of all of it.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include "platform/recordset/factory.h"

namespace {

// Bytes that are allocated now, with the word that the allocator keeps beside each block.
std::atomic<std::int64_t> live_bytes = 0;

std::int64_t BytesOf(void* block) {
    return block == nullptr ? 0 : static_cast<std::int64_t>(::malloc_usable_size(block) + 8);
}

void* Allocate(std::size_t size) {
    void* const block = std::malloc(size == 0 ? 1 : size);
    live_bytes += BytesOf(block);
    return block;
}

void Free(void* block) noexcept {
    live_bytes -= BytesOf(block);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    void* const block = Allocate(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* block) noexcept {
    Free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    Free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    Free(block);
}

namespace trevix::recordset {
namespace {

constexpr int kRowsOfMessage = 3;  // unless a test says otherwise
constexpr int kMessagesOfFolder = 200;
constexpr std::int64_t kMostBytesARow = 400;

Status AppendColumns(RecordSet& index) {
    const struct {
        const char* name;
        FieldType type;
        int size;
    } columns[] = {
        {"FileName", FieldType::kBstr, 255},   {"FileIndex", FieldType::kInteger, 0},
        {"FileDate", FieldType::kDate, 0},     {"FileSize", FieldType::kInteger, 0},
        {"ZipIndex", FieldType::kSmallInt, 0}, {"ZipFile", FieldType::kBstr, 255},
        {"Folder", FieldType::kBstr, 140},     {"EntryID", FieldType::kBstr, 255},
        {"StoreID", FieldType::kBstr, 255},    {"Subject", FieldType::kBstr, 255},
        {"From", FieldType::kBstr, 140},       {"Sender", FieldType::kBstr, 140},
        {"To", FieldType::kBstr, 255},         {"DisplayTo", FieldType::kBstr, 255},
        {"Received", FieldType::kDate, 0},     {"FolderKey", FieldType::kSmallInt, 0},
    };
    for (const auto& column : columns) {
        const bool nullable = column.type == FieldType::kDate || column.name[0] == 'Z';
        TREVIX_RETURN_IF_ERROR(index.Append(
            column.name, column.type, column.size,
            nullable && column.type != FieldType::kBstr ? kFieldMayBeNull : kFieldUnspecified));
    }
    return {};
}

// Entry IDs as long as those of a Maildir; what the rows of a message share differs from message to
// message, and the names of attachments from row to row.
Status AddRow(RecordSet& index, int row, int rows_of_message) {
    const int message = row / rows_of_message;
    const int folder = message / kMessagesOfFolder;
    const std::string number = std::to_string(message);
    std::string entry_id(140, 'A');
    entry_id.replace(100, number.size(), number);
    TREVIX_RETURN_IF_ERROR(index.AddNew());
    TREVIX_RETURN_IF_ERROR(
        index.Set("FileName", "attachment number " + std::to_string(row) + ".pdf"));
    TREVIX_RETURN_IF_ERROR(index.Set("FileDate", Date{38000 + row / 1e4}));
    TREVIX_RETURN_IF_ERROR(index.Set("FileSize", std::int32_t{row}));
    TREVIX_RETURN_IF_ERROR(index.Set("ZipIndex", std::int16_t{-1}));
    TREVIX_RETURN_IF_ERROR(index.Set("Folder", "Projects\\Customer " + std::to_string(folder)));
    TREVIX_RETURN_IF_ERROR(index.Set("EntryID", entry_id));
    TREVIX_RETURN_IF_ERROR(index.Set("Subject", "Re: minutes of the meeting about " + number));
    const std::string sender = "sender" + std::to_string(message % 5000) + "@example.com";
    TREVIX_RETURN_IF_ERROR(index.Set("From", sender));
    TREVIX_RETURN_IF_ERROR(index.Set("Sender", sender));
    const std::string group = std::to_string(message % 700);
    TREVIX_RETURN_IF_ERROR(index.Set("To", "group" + group + "@example.com; all@example.com"));
    TREVIX_RETURN_IF_ERROR(index.Set("DisplayTo", "Group " + group + "; Somebody Else"));
    TREVIX_RETURN_IF_ERROR(index.Set("Received", Date{38000 + message / 1e3}));
    TREVIX_RETURN_IF_ERROR(index.Set("FolderKey", static_cast<std::int16_t>(1 + folder % 30000)));
    return index.Update();
}

std::unique_ptr<RecordSet> ClosedIndex() {
    std::unique_ptr<RecordSet> index = std::move(Factory().CreateRecordSet()).value();
    EXPECT_TRUE(AppendColumns(*index).ok());
    return index;
}

std::unique_ptr<RecordSet> IndexOf(int rows, int rows_of_message = kRowsOfMessage) {
    std::unique_ptr<RecordSet> index = ClosedIndex();
    EXPECT_TRUE(index->Open().ok());
    for (int row = 0; row < rows; ++row) {
        if (!AddRow(*index, row, rows_of_message).ok()) ADD_FAILURE() << row;
    }
    return index;
}

// With what an index run makes of it: an index over each of the columns it looks rows up by.
void LookUp(RecordSet& index) {
    EXPECT_TRUE(index.SetFilter("FolderKey=1").ok());
    EXPECT_GT(index.RecordCount(), 0);
    EXPECT_TRUE(index.SetFilter("EntryID='0'").ok());
    EXPECT_TRUE(index.SetFilter("").ok());
}

// The worst case: where each message has one attachment, no row shares its texts with another.
TEST(RecordSetMemory, OfAMillionRowsIsAtMost400BytesARowWithItsIndexes) {
    constexpr int kRows = 1'000'000;
    const std::int64_t before = live_bytes;

    const std::unique_ptr<RecordSet> index = IndexOf(kRows, 1);
    const std::int64_t rows_alone = live_bytes - before;
    LookUp(*index);
    const std::int64_t with_indexes = live_bytes - before;

    std::printf("%lld bytes a row, %lld with indexes\n", static_cast<long long>(rows_alone / kRows),
                static_cast<long long>(with_indexes / kRows));
    EXPECT_EQ(index->RecordCount(), kRows);
    EXPECT_GT(rows_alone, std::int64_t{kRows} * 200) << "not all was counted";
    EXPECT_LE(with_indexes, kRows * kMostBytesARow);
}

TEST(RecordSetMemory, DoesNotGrowWhenRowsAreReplacedAgainAndAgain) {
    constexpr int kRows = 20'000;
    const std::unique_ptr<RecordSet> index = IndexOf(kRows);
    LookUp(*index);
    const std::int64_t before = live_bytes;
    std::int64_t highest = 0;

    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(index->MoveFirst().ok());
        while (!index->Eof()) {
            ASSERT_TRUE(index->Delete().ok());
            ASSERT_TRUE(index->MoveNext().ok());
        }
        for (int row = 0; row < kRows; ++row)
            ASSERT_TRUE(AddRow(*index, row, kRowsOfMessage).ok());
        LookUp(*index);
        highest = std::max<std::int64_t>(highest, live_bytes);
    }

    EXPECT_EQ(index->RecordCount(), kRows);
    EXPECT_LE(highest - before, kRows * kMostBytesARow);
}

TEST(RecordSetMemory, OfALoadedIndexIsThatOfTheSavedOne) {
    constexpr int kRows = 30'000;
    const std::string path =
        (std::filesystem::path(testing::TempDir()) / "record_set_memory_test.adtg").string();
    std::filesystem::remove(path);
    std::int64_t of_made = live_bytes;
    {
        const std::unique_ptr<RecordSet> made = IndexOf(kRows);
        of_made = live_bytes - of_made;
        ASSERT_TRUE(made->Save(path, kPersistAdtg).ok());
    }

    std::int64_t of_loaded = live_bytes;
    const std::unique_ptr<RecordSet> loaded = ClosedIndex();
    ASSERT_TRUE(loaded->OpenFile(path).ok());
    of_loaded = live_bytes - of_loaded;
    std::filesystem::remove(path);

    EXPECT_EQ(loaded->RecordCount(), kRows);
    EXPECT_LE(of_loaded, of_made * 11 / 10);
}

}  // namespace
}  // namespace trevix::recordset
