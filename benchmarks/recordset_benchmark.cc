// Record sets of the attachment index at growing numbers of rows: the time of one look-up stays
// flat, and a row costs a few hundred bytes.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "sample_index.h"

namespace {

using trevix::RecordSet;
using trevix::benchmarks::AddRow;
using trevix::benchmarks::EntryIdOf;
using trevix::benchmarks::IndexOf;
using trevix::benchmarks::kMessagesOfFolder;
using trevix::benchmarks::kRowsOfMessage;
using trevix::benchmarks::Message;
using trevix::benchmarks::MessageOf;
using trevix::benchmarks::NewIndex;
using trevix::benchmarks::Require;

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

// One row of a message, found by the message's ID and deleted; it comes back at the end.
void BM_DeleteByEntryId(benchmark::State& state) {
    auto index = IndexOf(RowsOf(state));
    const auto criteria = EntryCriteria(RowsOf(state), 1000);
    Require(index->SetFilter(criteria.front()));
    std::size_t next = 0;
    for ([[maybe_unused]] const auto run : state) {
        Require(index->SetFilter(criteria[next++ % criteria.size()]));
        if (index->RecordCount() == 0) std::abort();
        Require(index->Delete());
        Require(index->SetFilter(""));
        Require(index->AddNew());
        Require(index->Set("EntryID",
                           criteria[(next - 1) % criteria.size()].substr(9, EntryIdOf(0).size())));
        Require(index->Update());
    }
    state.SetItemsProcessed(state.iterations());
}

// All rows of a folder go and come back, as many whatever the size of the index.
void BM_DeleteByFolderKey(benchmark::State& state) {
    auto index = IndexOf(RowsOf(state));
    const int folders = 1 + (RowsOf(state) - 1) / (kRowsOfMessage * kMessagesOfFolder);
    Require(index->SetFilter("FolderKey=1"));
    std::int16_t key = 0;
    std::int64_t rows = 0;
    for ([[maybe_unused]] const auto run : state) {
        key = static_cast<std::int16_t>(1 + key % folders);
        Require(index->SetFilter("FolderKey=" + std::to_string(key)));
        const std::int64_t shown = index->RecordCount();
        while (!index->Eof()) {
            Require(index->Delete());
            Require(index->MoveNext());
        }
        Require(index->SetFilter(""));
        for (std::int64_t i = 0; i < shown; ++i) {
            Require(index->AddNew());
            Require(index->Set("FolderKey", key));
            Require(index->Update());
        }
        rows += shown;
    }
    state.SetItemsProcessed(rows);
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
BENCHMARK(BM_DeleteByEntryId)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_DeleteByFolderKey)->Arg(1000)->Arg(100000)->Arg(1000000);
BENCHMARK(BM_Save)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Load)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
