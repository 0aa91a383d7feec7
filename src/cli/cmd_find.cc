// trevixctl find: rows of the attachment index.
#include <CLI/App.hpp>
#include <cstdint>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/index_columns.h"
#include "cli/index_filter.h"
#include "cli/index_output.h"
#include "cli/loaded_index.h"
#include "cli/looking_world.h"
#include "cli/text_format.h"
#include "util/format.h"

namespace trevix::cli {
namespace {

struct Options {
    StoreChoice store;
    FilterOptions filter;
    bool json = false;
    bool csv = false;
    bool count = false;
    bool sum = false;
};

struct Found {
    std::vector<RowNumber> rows;
    std::int64_t bytes = 0;
};

Found Search(RecordSet& index, const IndexFilter& filter) {
    Found found;
    ForEachRow(index, [&](RowNumber row) {
        if (!filter.Matches(index)) return;
        found.rows.push_back(row);
        found.bytes += IntegerOf(index, IndexColumn::kFileSize);
    });
    return found;
}

void Show(RecordSet& index, const Found& found, const Options& options, Console& console) {
    if (options.count || options.sum) {
        if (console.json) return;  // the summary says both
        if (options.count) console.out() << found.rows.size() << "\n";
        if (options.sum) console.out() << found.bytes << "\n";
        return;
    }
    if (console.json) {
        WriteJson(index, found.rows, console.out());
    } else if (options.csv) {
        WriteCsv(index, found.rows, console.out_columns > 0, console.out());
    } else {
        WriteTable(index, found.rows, console.out_columns, console.out());
        console.Note(found.rows.empty()
                         ? "no attachment matches"
                         : FormatThousands(static_cast<std::int64_t>(found.rows.size())) +
                               (found.rows.size() == 1 ? " attachment, " : " attachments, ") +
                               HumanBytes(found.bytes));
    }
}

int Find(const Options& options, Found& found, Console& console) {
    const auto filter = IndexFilter::Make(options.filter, DateFromUnixSeconds(std::time(nullptr)));
    if (!filter.ok()) {
        console.Complain({"find", filter.error().description, "see \"trevixctl find --help\""});
        return kExitUsage;
    }
    int exit_code = kExitDone;
    const auto world = OpenToLook(options.store, console, exit_code);
    if (world == nullptr) return exit_code;
    const auto index = OpenSavedIndex(world->state(), console);
    if (index == nullptr) return kExitFailed;
    found = Search(*index, filter.value());
    Show(*index, found, options, console);
    return found.rows.empty() ? kExitFailed : kExitDone;
}

int Run(const Options& options, Console& console) {
    console.json = options.json;
    Found found;
    const int exit_code = Find(options, found, console);
    console.Event({{"event", "summary"},
                   {"exit", exit_code},
                   {"count", found.rows.size()},
                   {"bytes", found.bytes}});
    return exit_code;
}

}  // namespace

Runner AttachFind(CLI::App& app) {
    auto options = std::make_shared<Options>();
    AddStoreOptions(app, options->store);
    AddFilterOptions(app, options->filter);
    auto* json = app.add_flag("--json", options->json, "One JSON object a line");
    auto* csv =
        app.add_flag("--csv", options->csv, "Comma separated values, all columns")->excludes(json);
    app.add_flag("--count", options->count, "Only how many they are")->excludes(csv);
    app.add_flag("--sum", options->sum, "Only the sum of their sizes, in bytes")->excludes(csv);
    return [options](Console& console) { return Run(*options, console); };
}

}  // namespace trevix::cli
