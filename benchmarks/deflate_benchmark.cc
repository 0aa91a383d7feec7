// Adding an attachment to a new archive, extending one, listing and proving: the steps that a
// compression run makes for each message.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/zip/factory.h"

namespace {

using trevix::Blob;

// Text like that of a spreadsheet's export: shrinks to about a third.
std::string Content(std::size_t count) {
    std::string bytes;
    std::uint64_t state = 88172645463325252ULL;
    while (bytes.size() < count) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        bytes += "row;" + std::to_string(state % 100'000) + ";total amount;";
        bytes += std::to_string((state >> 40) % 97) + ".50;EUR\r\n";
    }
    bytes.resize(count);
    return bytes;
}

// A private directory with one file in it, as a message's attachment is saved.
class Work {
 public:
    explicit Work(std::size_t size) : content(Content(size)) {
        std::string name = (std::filesystem::temp_directory_path() / "zip-XXXXXX").string();
        root = std::string(::mkdtemp(name.data())) + "/";
        std::ofstream(root + "report.csv", std::ios::binary) << content;
        zip = std::move(factory.CreateZipEngine()).value();
        zip->compression_level = 5;
        zip->zip_file = root + "report.zip";
        zip->item_list = '"' + root + "report.csv\"";
    }
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    ~Work() { std::filesystem::remove_all(root); }

    bool Add() {
        zip->Action(trevix::kZipAddFiles);
        return zip->error_code == 0;
    }
    void Forget() const { std::filesystem::remove(zip->zip_file); }

    std::string content;
    std::string root;
    trevix::zip_engine::Factory factory;
    std::unique_ptr<trevix::ZipEngine> zip;
};

void AddToNewArchive(benchmark::State& state) {
    Work work(static_cast<std::size_t>(state.range(0)));
    work.zip->compression_level = static_cast<std::int16_t>(state.range(1));
    for (auto _ : state) {
        if (!work.Add()) state.SkipWithError("not added");
        state.PauseTiming();
        work.Forget();
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(AddToNewArchive)
    ->ArgNames({"bytes", "level"})
    ->ArgsProduct({{5'000, 100'000, 5'000'000}, {1, 5, 9}})
    ->Unit(benchmark::kMicrosecond);

void ExtendAnArchive(benchmark::State& state) {
    Work work(50'000);
    std::int64_t added = 0;
    for (auto _ : state) {
        if (!work.Add()) state.SkipWithError("not added");
        if (++added % 100 != 0) continue;
        state.PauseTiming();
        work.Forget();
        state.ResumeTiming();
    }
}
BENCHMARK(ExtendAnArchive)->Unit(benchmark::kMicrosecond);

void ListAnArchive(benchmark::State& state) {
    Work work(10);
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        if (!work.Add()) state.SkipWithError("not added");
    }
    auto unzip = std::move(work.factory.CreateUnzipEngine()).value();
    unzip->zip_file = work.zip->zip_file;
    for (auto _ : state) {
        unzip->Action(trevix::kUnzipCount);
        for (std::int16_t i = 0; i < unzip->entry_count; ++i)
            unzip->Action(trevix::kUnzipNext);
        if (unzip->error_code != 0) state.SkipWithError("not listed");
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ListAnArchive)->Arg(1)->Arg(100)->Unit(benchmark::kMicrosecond);

void ProveAnArchive(benchmark::State& state) {
    Work work(static_cast<std::size_t>(state.range(0)));
    if (!work.Add()) state.SkipWithError("not added");
    const std::vector<Blob> contents = {Blob::FromString(work.content)};
    for (auto _ : state) {
        if (!work.factory.Proof().Verify(work.zip->zip_file, contents).ok()) {
            state.SkipWithError("not proved");
        }
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ProveAnArchive)->Arg(5'000)->Arg(3'000'000)->Arg(20'000'000);

}  // namespace

BENCHMARK_MAIN();
