// trevixctl extract: attachments, and files inside zip attachments, saved as files.
#include <fcntl.h>
#include <sys/stat.h>

#include <CLI/App.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/index_filter.h"
#include "cli/interrupt.h"
#include "cli/loaded_index.h"
#include "cli/looking_world.h"
#include "cli/row_extractor.h"
#include "cli/text_format.h"
#include "platform/unique_descriptor.h"
#include "util/format.h"

namespace trevix::cli {
namespace {

struct Options {
    StoreChoice store;
    FilterOptions filter;
    std::vector<RowNumber> rows;
    bool all = false;
    std::string into = ".";
    bool json = false;
    bool quiet = false;
};

struct Outcome {
    int exit_code = kExitFailed;
    std::int64_t saved = 0;
    std::int64_t failed = 0;
    bool index_is_old = false;
};

std::vector<RowNumber> Choose(RecordSet& index, const Options& options, const IndexFilter& filter) {
    std::vector<RowNumber> wanted = options.rows;
    std::sort(wanted.begin(), wanted.end());
    std::vector<RowNumber> chosen;
    ForEachRow(index, [&](RowNumber row) {
        const bool asked = wanted.empty() || std::binary_search(wanted.begin(), wanted.end(), row);
        if (asked && filter.Matches(index)) chosen.push_back(row);
    });
    return chosen;
}

// The directory, made when only its last name is missing.
UniqueDescriptor OpenDirectory(const std::string& path, Console& console) {
    if (::mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) {
        console.Complain({path, std::strerror(errno), "choose another place with --into DIR"});
        return {};
    }
    UniqueDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.valid()) {
        console.Complain({path, std::strerror(errno), "choose another place with --into DIR"});
    }
    return directory;
}

void ShowSaved(const WantedRow& row, const std::string& path, const Options& options,
               Console& console) {
    console.Event({{"event", "file"}, {"row", row.number}, {"path", path}});
    if (!console.json && !options.quiet) {
        console.out() << (console.out_columns > 0 ? Printable(path) : path) << "\n";
    }
}

// False when no other row can fare better.
bool ShowFailure(const WantedRow& row, const Error& error, const Options& options, Outcome& outcome,
                 Console& console) {
    ++outcome.failed;
    if (error.kind == ErrorKind::kNoSpace) {
        console.Complain({options.into, "the disk is full: " + row.file_name + " was not saved",
                          "make room, or choose another place with --into DIR"});
        return false;
    }
    const bool is_old = error.kind == ErrorKind::kGone || error.kind == ErrorKind::kNotFound;
    outcome.index_is_old = outcome.index_is_old || is_old;
    console.Complain({"row " + std::to_string(row.number) + ", " + row.file_name,
                      PlainText(error.description), ""});
    return true;
}

void Extract(World& world, const std::vector<WantedRow>& rows, int directory,
             const Options& options, Outcome& outcome, Console& console) {
    bool cancelled = false;
    const Interrupt interrupt(world.loop(), kEndedAtOnceText, [&cancelled] { cancelled = true; });
    RowExtractor extractor(world.state(), directory);
    const std::string prefix =
        options.into == "." ? "" : options.into + (options.into.ends_with('/') ? "" : "/");
    bool is_full = false;
    for (const WantedRow& row : rows) {
        world.loop().Pump();
        if (cancelled || is_full) break;
        const auto name = extractor.Save(row);
        if (name.ok()) {
            ++outcome.saved;
            ShowSaved(row, prefix + name.value(), options, console);
        } else {
            is_full = !ShowFailure(row, name.error(), options, outcome, console);
        }
    }
    if (cancelled) {
        outcome.exit_code = kExitCancelled;
    } else if (is_full || outcome.saved == 0) {
        outcome.exit_code = kExitFailed;
    } else {
        outcome.exit_code = outcome.failed > 0 ? kExitSomeFailed : kExitDone;
    }
}

int UsageProblem(const std::string& why, Console& console) {
    console.Complain({"extract", why, "see \"trevixctl extract --help\""});
    return kExitUsage;
}

Outcome Run(const Options& options, Console& console) {
    Outcome outcome;
    const auto filter = IndexFilter::Make(options.filter, DateFromUnixSeconds(std::time(nullptr)));
    if (!filter.ok()) {
        outcome.exit_code = UsageProblem(filter.error().description, console);
        return outcome;
    }
    const bool chooses = options.filter.AsksForAnything() || !options.rows.empty();
    if (chooses == options.all) {
        outcome.exit_code = UsageProblem(
            chooses ? "--all takes no choice beside it"
                    : "nothing was chosen: give words, filters or --row, or --all for everything",
            console);
        return outcome;
    }
    const auto world = OpenToLook(options.store, console, outcome.exit_code);
    if (world == nullptr) return outcome;
    const auto index = OpenSavedIndex(world->state(), console);
    if (index == nullptr) return outcome;
    const std::vector<WantedRow> rows =
        ReadWantedRows(*index, Choose(*index, options, filter.value()));
    if (rows.empty()) {
        console.Note("no attachment matches");
        return outcome;
    }
    const UniqueDescriptor directory = OpenDirectory(options.into, console);
    if (!directory.valid()) return outcome;
    Extract(*world, rows, directory.get(), options, outcome, console);
    if (outcome.index_is_old) {
        console.Note("hint: the index is older than the store; \"trevixctl index\" updates it");
    }
    if (!console.json && !options.quiet) {
        std::string line = FormatThousands(outcome.saved) + " saved";
        if (outcome.failed > 0) line += ", " + FormatThousands(outcome.failed) + " failed";
        console.Note(line);
    }
    return outcome;
}

int RunCommand(const Options& options, Console& console) {
    console.json = options.json;
    const Outcome outcome = Run(options, console);
    console.Event({{"event", "summary"},
                   {"exit", outcome.exit_code},
                   {"saved", outcome.saved},
                   {"failed", outcome.failed}});
    return outcome.exit_code;
}

}  // namespace

Runner AttachExtract(CLI::App& app) {
    auto options = std::make_shared<Options>();
    AddStoreOptions(app, options->store);
    AddFilterOptions(app, options->filter);
    app.add_option("--row", options->rows,
                   "The row of this number, as \"find\" shows it; may be given several times")
        ->type_name("N")
        ->check(CLI::PositiveNumber)
        ->allow_extra_args(false);
    app.add_flag("--all", options->all, "Everything that the index knows");
    app.add_option("--into", options->into, "The directory for the files (default: this one)")
        ->type_name("DIR");
    app.add_flag("--json", options->json, "One JSON object a line");
    app.add_flag("-q,--quiet", options->quiet, "Errors only");
    return [options](Console& console) { return RunCommand(*options, console); };
}

}  // namespace trevix::cli
