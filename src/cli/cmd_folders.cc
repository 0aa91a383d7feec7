// trevixctl folders: the folder tree with message counts.
#include <CLI/App.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/folder_list.h"
#include "cli/looking_world.h"
#include "cli/text_format.h"
#include "util/format.h"

namespace trevix::cli {
namespace {

struct Options {
    StoreChoice store;
    bool ids = false;
    bool json = false;
};

struct Counts {
    std::int32_t messages = 0;
    std::int32_t with_attachments = 0;
};

Result<Counts> CountMessages(MessagingSession& session, const FolderEntry& entry) {
    auto folder = session.GetFolder(entry.id, entry.store_id);
    if (!folder.ok()) return folder.error();
    auto messages = folder.value()->MessageList();
    if (!messages.ok()) return messages.error();
    const auto all = messages.value()->Count();
    if (!all.ok()) return all.error();
    TREVIX_RETURN_IF_ERROR(messages.value()->AddFilter(kTagHasAttachments, true));
    const auto some = messages.value()->Count();
    if (!some.ok()) return some.error();
    return Counts{all.value(), some.value()};
}

void ShowEntry(const FolderEntry& entry, const Counts& counts, const Options& options,
               Console& console) {
    if (console.json) {
        console.Event({{"event", "folder"},
                       {"store", entry.store_name},
                       {"path", entry.path},
                       {"messages", counts.messages},
                       {"with_attachments", counts.with_attachments},
                       {"store_id", entry.store_id},
                       {"folder_id", entry.id}});
        return;
    }
    constexpr std::size_t kName = 40;
    const std::string name =
        std::string(static_cast<std::size_t>(entry.depth) * 2 + 2, ' ') + Printable(entry.name);
    console.out() << PadRight(Shortened(name, kName), kName)
                  << PadLeft(FormatThousands(counts.messages), 10)
                  << PadLeft(FormatThousands(counts.with_attachments), 18);
    if (options.ids) console.out() << "  " << entry.store_id << "," << entry.id;
    console.out() << "\n";
}

int Show(const Options& options, Console& console) {
    int exit_code = kExitDone;
    const auto world = OpenToLook(options.store, console, exit_code);
    if (world == nullptr) return exit_code;
    MessagingSession& session = *world->state().gMAPISession;
    const auto folders = ListFolders(session);
    if (!folders.ok()) {
        console.Complain({"folders", PlainText(folders.error().description), ""});
        return kExitFailed;
    }
    if (!console.json) {
        console.out() << PadRight("Folder", 40) << PadLeft("Messages", 10)
                      << PadLeft("With attachments", 18) << (options.ids ? "  ID" : "") << "\n";
    }
    std::string store_id;
    for (const FolderEntry& entry : folders.value()) {
        if (!console.json && entry.store_id != store_id) {
            console.out() << Printable(entry.store_name) << "\n";
        }
        store_id = entry.store_id;
        const auto counts = CountMessages(session, entry);
        if (!counts.ok()) {
            console.Complain({entry.path, PlainText(counts.error().description), ""});
            exit_code = kExitFailed;
            continue;
        }
        ShowEntry(entry, counts.value(), options, console);
    }
    return exit_code;
}

int Run(const Options& options, Console& console) {
    console.json = options.json;
    return console.EndWith(Show(options, console));
}

}  // namespace

Runner AttachFolders(CLI::App& app) {
    auto options = std::make_shared<Options>();
    AddStoreOptions(app, options->store);
    app.add_flag("--ids", options->ids, "Show the IDs of store and folder as well");
    app.add_flag("--json", options->json, "One JSON object a line");
    return [options](Console& console) { return Run(*options, console); };
}

}  // namespace trevix::cli
