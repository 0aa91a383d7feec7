// Searches in an attachment index, over the rows that are in memory already: the whole of what a
// search costs once the index is loaded.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "cli/index_filter.h"
#include "cli/index_output.h"
#include "index/attach_index.h"
#include "platform/recordset/factory.h"

namespace {

using trevix::Date;
using trevix::RecordSet;
using trevix::Status;
using trevix::cli::FilterOptions;
using trevix::cli::IndexFilter;
using trevix::cli::RowNumber;

constexpr int kRowsOfMessage = 3;

void Require(const Status& status) {
    if (!status.ok()) std::abort();
}

void AddRow(RecordSet& index, int row) {
    const int message = row / kRowsOfMessage;
    const std::string number = std::to_string(message);
    const std::string sender = std::to_string(message % 3000);
    const std::string recipient = std::to_string(message % 2000);
    const auto set = [&index](const char* name, const trevix::Variant& value) {
        Require(index.Set(name, value));
    };
    Require(index.AddNew());
    set("FileName", "attachment number " + std::to_string(row) + (row % 5 == 0 ? ".doc" : ".pdf"));
    set("FileSize", std::int32_t{row * 17});
    set("ZipIndex", static_cast<std::int16_t>(row % 4 == 0 ? 0 : -1));
    set("Folder", "Projects/Customer " + std::to_string(message / 200));
    set("EntryID", "0000000038A1BB1005E5101AA1BB08002B2A56C2" + number);
    set("Subject", "Re: " + std::string(message % 100 == 0 ? "größe " : "offer ") + number +
                       " for the project of this year");
    set("From", "sender" + sender + "@example.org");
    set("Sender", "Sender Number " + sender);
    set("To", "recipient" + recipient + "@example.com");
    set("DisplayTo", "Recipient Number " + recipient);
    set("Received", Date{38000 + row / 1e4});
    Require(index.Update());
}

RecordSet& Index(int rows) {
    static std::unique_ptr<RecordSet> index;
    if (index != nullptr && index->RecordCount() == rows) return *index;
    trevix::recordset::Factory factory;
    index = std::move(factory.CreateRecordSet()).value();
    Require(trevix::AppendAttachColumns(*index));
    Require(index->Open());
    for (int row = 0; row < rows; ++row)
        AddRow(*index, row);
    return *index;
}

void Search(benchmark::State& state, const FilterOptions& options) {
    RecordSet& index = Index(static_cast<int>(state.range(0)));
    std::int64_t found = 0;
    for ([[maybe_unused]] const auto run : state) {
        // Made anew, since it remembers.
        const auto filter = IndexFilter::Make(options, Date{45000});
        found = 0;
        trevix::cli::ForEachRow(index, [&](RowNumber) { found += filter.value().Matches(index); });
    }
    state.counters["found"] = static_cast<double>(found);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Word(benchmark::State& state) {
    FilterOptions options;
    options.words = {"number 3333"};
    Search(state, options);
}

void BM_WordBeyondAscii(benchmark::State& state) {
    FilterOptions options;
    options.words = {"GRÖßE"};
    Search(state, options);
}

void BM_EverythingAtOnce(benchmark::State& state) {
    FilterOptions options;
    options.words = {"offer", "sender"};
    options.name = "*.doc";
    options.from = "example.org";
    options.folder = "customer 1";
    options.larger = "10k";
    options.since = "2004";
    Search(state, options);
}

BENCHMARK(BM_Word)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WordBeyondAscii)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EverythingAtOnce)->Arg(1000000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
