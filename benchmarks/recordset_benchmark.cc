// Record sets of the attachment index at growing numbers of rows: the time of one look-up stays
// flat, and a row costs a few hundred bytes.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/recordset/factory.h"

namespace {

using trevix::Date;
using trevix::FieldType;
using trevix::RecordSet;
using trevix::Status;

constexpr int kRowsOfMessage = 3;
constexpr int kMessagesOfFolder = 200;

void Require(const Status& status) {
    if (!status.ok()) std::abort();
}

// Attachment names are all different, the rest is shared by the rows of a message.
struct Message {
    std::string folder;
    std::string entry_id;
    std::string subject;
    std::string from;
    std::string to;
    std::int16_t folder_key = 0;
};

std::string EntryIdOf(int number) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%08X", static_cast<unsigned>(number));
    return "0000000038A1BB1005E5101AA1BB08002B2A56C200006D737073742E646C6C000000000"
           "04E495441F9BFB80100AA0037D96E0000000000000000000000000000" +
           std::string(digits) + "0000";
}

Message MessageOf(int number) {
    Message message;
    const int folder = number / kMessagesOfFolder;
    const std::string text = std::to_string(number);
    message.folder = "Top of Personal Folders\\Projects\\Customer " + std::to_string(folder);
    message.entry_id = EntryIdOf(number);
    message.subject = "Re: minutes of the meeting about offer " + text;
    message.from = "Sender " + std::to_string(number % 5000) + " <sender@example.com>";
    message.to = "Group " + std::to_string(number % 700) + "; Somebody Else; A Third Person";
    message.folder_key = static_cast<std::int16_t>(1 + folder % 32000);
    return message;
}

std::unique_ptr<RecordSet> NewIndex() {
    trevix::recordset::Factory factory;
    auto set = factory.CreateRecordSet();
    RecordSet& index = *set.value();
    const auto text = [&index](const char* name, int size) {
        Require(index.Append(name, FieldType::kBstr, size, trevix::kFieldUnspecified));
    };
    const auto other = [&index](const char* name, FieldType type, int attributes) {
        Require(index.Append(name, type, 0, attributes));
    };
    text("FileName", 255);
    other("FileIndex", FieldType::kInteger, trevix::kFieldUnspecified);
    other("FileDate", FieldType::kDate, trevix::kFieldMayBeNull);
    other("FileSize", FieldType::kInteger, trevix::kFieldUnspecified);
    other("ZipIndex", FieldType::kSmallInt, trevix::kFieldMayBeNull);
    text("ZipFile", 255);
    text("Folder", 140);
    text("EntryID", 255);
    text("StoreID", 255);
    text("Subject", 255);
    text("From", 140);
    text("Sender", 140);
    text("To", 255);
    text("DisplayTo", 255);
    other("Received", FieldType::kDate, trevix::kFieldMayBeNull);
    other("FolderKey", FieldType::kSmallInt, trevix::kFieldUnspecified);
    Require(index.Open());
    return std::move(set).value();
}

void AddRow(RecordSet& index, const Message& message, int row) {
    Require(index.AddNew());
    Require(index.Set("FileName", "attachment number " + std::to_string(row) + ".pdf"));
    Require(index.Set("FileIndex", std::int32_t{0}));
    Require(index.Set("FileDate", Date{38000 + row / 1e4}));
    Require(index.Set("FileSize", std::int32_t{row * 17}));
    Require(index.Set("ZipIndex", std::int16_t{-1}));
    Require(index.Set("ZipFile", std::string()));
    Require(index.Set("Folder", message.folder));
    Require(index.Set("EntryID", message.entry_id));
    Require(index.Set("StoreID", std::string()));
    Require(index.Set("Subject", message.subject));
    Require(index.Set("From", message.from));
    Require(index.Set("Sender", message.from));
    Require(index.Set("To", message.to));
    Require(index.Set("DisplayTo", message.to));
    Require(index.Set("Received", Date{38000 + row / 1e4}));
    Require(index.Set("FolderKey", message.folder_key));
    Require(index.Update());
}

std::unique_ptr<RecordSet> IndexOf(int rows) {
    auto index = NewIndex();
    Message message;
    for (int row = 0; row < rows; ++row) {
        if (row % kRowsOfMessage == 0) message = MessageOf(row / kRowsOfMessage);
        AddRow(*index, message, row);
    }
    return index;
}

std::size_t HeapBytes() {
    const struct mallinfo2 heap = ::mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

int RowsOf(const benchmark::State& state) {
    return static_cast<int>(state.range(0));
}

void BM_Append(benchmark::State& state) {
    std::vector<Message> messages;
    for (int i = 0; i <= RowsOf(state) / kRowsOfMessage; ++i)
        messages.push_back(MessageOf(i));
    for ([[maybe_unused]] const auto run : state) {
        const std::size_t before = HeapBytes();
        auto index = NewIndex();
        for (int row = 0; row < RowsOf(state); ++row) {
            AddRow(*index, messages[static_cast<std::size_t>(row / kRowsOfMessage)], row);
        }
        state.PauseTiming();
        const auto rows = static_cast<double>(RowsOf(state));
        state.counters["bytes_per_row"] = static_cast<double>(HeapBytes() - before) / rows;
        // With the two indexes that an index run uses.
        Require(index->SetFilter("FolderKey=1"));
        Require(index->SetFilter("EntryID='0'"));
        state.counters["with_indexes"] = static_cast<double>(HeapBytes() - before) / rows;
        index.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The criteria of `count` look-ups, spread over the set.
std::vector<std::string> EntryCriteria(int rows, int count) {
    std::vector<std::string> criteria;
    const int messages = (rows + kRowsOfMessage - 1) / kRowsOfMessage;
    for (int i = 0; i < count; ++i) {
        const auto message = static_cast<std::int64_t>(i) * 7919 % messages;
        criteria.push_back("EntryID='" + EntryIdOf(static_cast<int>(message)) + "'");
    }
    return criteria;
}

void BM_FilterByEntryId(benchmark::State& state) {
    auto index = IndexOf(RowsOf(state));
    const auto criteria = EntryCriteria(RowsOf(state), 1000);
    Require(index->SetFilter(criteria.front()));
    std::size_t next = 0;
    for ([[maybe_unused]] const auto run : state) {
        Require(index->SetFilter(criteria[next++ % criteria.size()]));
        if (index->RecordCount() == 0) std::abort();
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_FindEntryId(benchmark::State& state) {
    auto index = IndexOf(RowsOf(state));
    const auto criteria = EntryCriteria(RowsOf(state), 1000);
    Require(index->Find(criteria.front()));
    std::size_t next = 0;
    for ([[maybe_unused]] const auto run : state) {
        Require(index->MoveFirst());
        Require(index->Find(criteria[next++ % criteria.size()]));
        if (index->Eof()) std::abort();
    }
    state.SetItemsProcessed(state.iterations());
}

// The message table of a folder is one page of rows, however large the index.
void BM_FilterByFolderKey(benchmark::State& state) {
    auto index = IndexOf(RowsOf(state));
    const int folders = 1 + (RowsOf(state) - 1) / (kRowsOfMessage * kMessagesOfFolder);
    std::vector<std::string> criteria;
    for (int key = 1; key <= folders; ++key)
        criteria.push_back("FolderKey=" + std::to_string(key));
    Require(index->SetFilter(criteria.front()));
    std::size_t next = 0;
    std::int64_t rows = 0;
    for ([[maybe_unused]] const auto run : state) {
        Require(index->SetFilter(criteria[next++ % criteria.size()]));
        rows += index->RecordCount();
    }
    state.counters["rows_shown"] =
        static_cast<double>(rows) / static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations());
}

// A message that is indexed again: its old rows go, its new ones are added.
void BM_ReplaceMessage(benchmark::State& state) {
    auto index = IndexOf(RowsOf(state));
    const int messages = RowsOf(state) / kRowsOfMessage;
    std::int64_t next = 0;
    for ([[maybe_unused]] const auto run : state) {
        const Message message = MessageOf(static_cast<int>(next++ * 7919 % messages));
        Require(index->SetFilter(""));
        Require(index->MoveFirst());
        Require(index->SetFilter("EntryID='" + message.entry_id + "'"));
        while (!index->Eof()) {
            Require(index->Delete());
            Require(index->MoveNext());
        }
        Require(index->SetFilter(""));
        for (int i = 0; i < kRowsOfMessage; ++i)
            AddRow(*index, message, i);
    }
    state.SetItemsProcessed(state.iterations());
}

class File {
 public:
    File() : path_((std::filesystem::temp_directory_path() / "recordset_benchmark.adtg").string()) {
        Remove();
    }
    ~File() { Remove(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    const std::string& path() const { return path_; }
    void Remove() const { std::filesystem::remove(path_); }
    std::int64_t size() const {
        return static_cast<std::int64_t>(std::filesystem::file_size(path_));
    }

 private:
    std::string path_;
};

void BM_Save(benchmark::State& state) {
    auto index = IndexOf(RowsOf(state));
    const File file;
    std::int64_t bytes = 0;
    for ([[maybe_unused]] const auto run : state) {
        Require(index->Save(file.path(), trevix::kPersistAdtg));
        state.PauseTiming();
        bytes += file.size();
        file.Remove();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(bytes);
}

void BM_Load(benchmark::State& state) {
    const File file;
    Require(IndexOf(RowsOf(state))->Save(file.path(), trevix::kPersistAdtg));
    for ([[maybe_unused]] const auto run : state) {
        auto index = NewIndex();
        Require(index->Close());
        Require(index->OpenFile(file.path()));
        benchmark::DoNotOptimize(index->RecordCount());
    }
    state.SetBytesProcessed(state.iterations() * file.size());
}

BENCHMARK(BM_Append)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FindEntryId)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_FilterByEntryId)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_FilterByFolderKey)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_ReplaceMessage)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_Save)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
