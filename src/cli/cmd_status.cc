// trevixctl status: stores, run lock, totals, and how far each folder was treated.
#include <CLI/App.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/folder_list.h"
#include "cli/looking_world.h"
#include "cli/text_format.h"
#include "store/folder_record_set.h"
#include "store/results_message.h"
#include "util/convert.h"
#include "util/format.h"

namespace trevix::cli {
namespace {

struct Options {
    StoreChoice store;
    bool json = false;
};

struct LockState {
    bool is_held = false;
    bool is_stale = false;  // the next run takes it over
    Date since;
};

struct FolderMark {
    std::string path;
    Date last_compress;
    Date last_html;
    std::int32_t last_zip_bytes = 0;
    std::int32_t last_count = 0;
};

Date DateOf(const Variant& value) {
    const auto date = ToDate(value);
    return date.ok() ? date.value() : Date{};
}

std::int32_t NumberOf(const Variant& value) {
    const auto number = ToLong(value);
    return number.ok() ? number.value() : 0;
}

std::string When(Date date) {
    return date == Date{} ? "never" : FormatGeneralDate(date);
}

// A run that has begun and not ended; after five minutes others take it for dead.
LockState ReadLock(BasCI& state) {
    constexpr int kTimeOutMinutes = 5;
    LockState lock;
    lock.since = DateOf(ResultsProperty(state, "StartCI", kTypeTime));
    lock.is_held = DateOf(ResultsProperty(state, "EndCI", kTypeTime)) < lock.since;
    lock.is_stale = MinutesBetween(lock.since, state.ports.clock.NowLocal()) > kTimeOutMinutes;
    return lock;
}

Variant FieldOf(const RecordSet& records, const char* name) {
    auto value = records.Get(name);
    return value.ok() ? std::move(value).value() : Variant();
}

std::vector<FolderMark> ReadMarks(BasCI& state, const std::vector<FolderEntry>& folders) {
    std::vector<FolderMark> marks;
    if (!GetFolderRST(state) || !IsOpen(state.gFolderRST)) return marks;
    RecordSet& records = *state.gFolderRST;
    if (records.RecordCount() == 0) return marks;
    for (const FolderEntry& folder : folders) {
        if (!FindFolderRecord(records, folder.id, false)) continue;
        marks.push_back({folder.path, DateOf(FieldOf(records, "LastCompress")),
                         DateOf(FieldOf(records, "LastHTML")),
                         NumberOf(FieldOf(records, "LastZipBytes")),
                         NumberOf(FieldOf(records, "LastCount"))});
    }
    return marks;
}

std::string LockText(const LockState& lock) {
    if (!lock.is_held) return "free";
    return "held since " + FormatGeneralDate(lock.since) +
           (lock.is_stale ? " (older than five minutes: the next run takes it over)" : "");
}

void ShowJson(BasCI& state, const LockState& lock, const std::vector<FolderMark>& marks,
              Console& console) {
    for (const FolderMark& mark : marks) {
        console.Event({{"event", "folder"},
                       {"path", mark.path},
                       {"last_compress_utc", When(mark.last_compress)},
                       {"last_html_utc", When(mark.last_html)},
                       {"last_zip_bytes", mark.last_zip_bytes},
                       {"last_count", mark.last_count}});
    }
    console.Event({{"event", "status"},
                   {"lock", lock.is_held ? "held" : "free"},
                   {"lock_since", lock.is_held ? FormatGeneralDate(lock.since) : ""},
                   {"lock_stale", lock.is_held && lock.is_stale},
                   {"original_bytes", state.gOriginalBytes},
                   {"compressed_bytes", state.gCompressedBytes},
                   {"deleted_stationery", state.gDeletedStationery},
                   {"last_index", state.gLastIndex}});
}

void ShowText(BasCI& state, const LockState& lock, const std::vector<FolderMark>& marks,
              Console& console) {
    std::ostream& out = console.out();
    out << "Lock:        " << LockText(lock) << "\n"
        << "Zipped:      " << FormatThousands(state.gOriginalBytes) << " bytes before, "
        << FormatThousands(state.gCompressedBytes) << " after ("
        << SavedPercent(state.gOriginalBytes, state.gCompressedBytes) << "% saved)\n"
        << "Stationery:  " << FormatThousands(state.gDeletedStationery) << " images removed\n"
        << "Last index:  " << (state.gLastIndex.empty() ? "never" : Printable(state.gLastIndex))
        << "\n\n";
    constexpr std::size_t kName = 32;
    constexpr std::size_t kDate = 24;
    out << PadRight("Folder", kName) << PadRight("Compressed (UTC)", kDate)
        << PadRight("Stationery (UTC)", kDate) << PadLeft("From bytes", 10) << PadLeft("Indexed", 9)
        << "\n";
    if (marks.empty()) out << "no folder was treated yet\n";
    for (const FolderMark& mark : marks) {
        out << PadRight(Shortened(Printable(mark.path), kName - 1), kName)
            << PadRight(When(mark.last_compress), kDate) << PadRight(When(mark.last_html), kDate)
            << PadLeft(std::to_string(mark.last_zip_bytes), 10)
            << PadLeft(std::to_string(mark.last_count), 9) << "\n";
    }
}

Status ShowStores(MessagingSession& session, Console& console) {
    auto stores = session.InfoStores();
    if (!stores.ok()) return stores.error();
    for (const auto& store : stores.value()) {
        const auto name = store->Name();
        const auto id = store->Id();
        if (!name.ok()) return name.error();
        if (!id.ok()) return id.error();
        console.Event({{"event", "store"}, {"name", name.value()}, {"id", id.value()}});
        if (!console.json) console.out() << "Store:       " << Printable(name.value()) << "\n";
    }
    return {};
}

int Show(const Options& options, Console& console) {
    int exit_code = kExitDone;
    const auto world = OpenToLook(options.store, console, exit_code);
    if (world == nullptr) return exit_code;
    BasCI& state = world->state();
    const auto folders = ListFolders(*state.gMAPISession);
    if (!folders.ok() || !GetResultsMsg(state)) {
        const std::string why = folders.ok() ? "its hidden messages cannot be read"
                                             : PlainText(folders.error().description);
        console.Complain({"status", why, "\"trevixctl folders\" may say more"});
        return kExitFailed;
    }
    const Status stores = ShowStores(*state.gMAPISession, console);
    if (!stores.ok()) {
        console.Complain({"status", PlainText(stores.error().description), ""});
        return kExitFailed;
    }
    const LockState lock = ReadLock(state);
    const std::vector<FolderMark> marks = ReadMarks(state, folders.value());
    if (console.json) {
        ShowJson(state, lock, marks, console);
    } else {
        ShowText(state, lock, marks, console);
    }
    return exit_code;
}

int Run(const Options& options, Console& console) {
    console.json = options.json;
    return console.EndWith(Show(options, console));
}

}  // namespace

Runner AttachStatus(CLI::App& app) {
    auto options = std::make_shared<Options>();
    AddStoreOptions(app, options->store);
    app.add_flag("--json", options->json, "One JSON object a line");
    return [options](Console& console) { return Run(*options, console); };
}

}  // namespace trevix::cli
