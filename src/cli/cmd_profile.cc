// trevixctl profile: names for the mail stores that a person uses.
#include <CLI/App.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/store_choice.h"
#include "cli/text_format.h"
#include "platform/imap/server_address.h"
#include "platform/posix/posix_file_system.h"
#include "platform/profiles/profile_file.h"

namespace trevix::cli {
namespace {

struct Options {
    std::string name;
    std::string user;
    std::vector<std::string> maildirs;
    std::vector<std::string> addresses;
    std::string inbox;
    bool json = false;
};

profiles::ProfileFile File() {
    return profiles::ProfileFile(profiles::ProfileFilePath());
}

int Complain(const Error& error, Console& console) {
    std::string hint = "\"trevixctl profile list\" shows the profiles";
    if (error.kind == ErrorKind::kMalformed)
        hint = "correct the file by hand; it was left as it is";
    if (error.kind == ErrorKind::kDenied) hint = "give this user permission to write there";
    console.Complain({"profile", error.description, hint});
    return kExitFailed;
}

// A mailbox's address in its usual spelling. Nothing after a complaint, which does not repeat the
// text: a password may stand in it.
std::optional<std::string> MailboxAddress(const std::string& text, Console& console) {
    const auto address = imap::ParseAddress(text);
    if (address.ok()) return imap::AddressText(address.value());
    console.Complain({"store address", address.error().description, ""});
    return std::nullopt;
}

// The stores of the options in the order that they have in the profile: directories before servers.
bool TakeStores(const Options& options, profiles::Profile& profile, Console& console) {
    posix::PosixFileSystem files;
    for (const std::string& directory : options.maildirs) {
        const std::string path = AbsolutePath(directory);
        if (!files.DirectoryExists(path)) {
            console.Complain({path, "no such directory", "give the directory of a Maildir"});
            return false;
        }
        profile.stores.push_back("maildir:" + path);
    }
    for (const std::string& text : options.addresses) {
        const auto address = MailboxAddress(text, console);
        if (!address) return false;
        profile.stores.push_back(*address);
    }
    if (options.inbox.empty()) return true;
    if (options.inbox.find("://") == std::string::npos) {
        profile.inbox = "maildir:" + AbsolutePath(options.inbox);
        return true;
    }
    const auto inbox = MailboxAddress(options.inbox, console);
    if (inbox) profile.inbox = *inbox;
    return inbox.has_value();
}

int Add(const Options& options, Console& console) {
    if (options.name.find(':') != std::string::npos) {
        console.Complain({options.name, "a profile's name has no colon", "choose another name"});
        return kExitUsage;
    }
    if (options.maildirs.empty() && options.addresses.empty()) {
        console.Complain({options.name, "a profile needs a store",
                          "give one with --maildir DIR or --store ADDRESS"});
        return kExitUsage;
    }
    profiles::Profile profile;
    profile.name = options.name;
    profile.user = options.user;
    if (!TakeStores(options, profile, console)) return kExitFailed;
    const Status added = File().Add(profile);
    return added.ok() ? kExitDone : Complain(added.error(), console);
}

int List(const Options& options, Console& console) {
    console.json = options.json;
    const auto list = File().List();
    if (!list.ok()) return Complain(list.error(), console);
    for (const profiles::Profile& profile : list.value()) {
        if (console.json) {
            console.Event({{"event", "profile"},
                           {"name", profile.name},
                           {"user", profile.user},
                           {"stores", profile.stores},
                           {"inbox", profile.inbox}});
            continue;
        }
        console.out() << Printable(profile.name);
        if (!profile.user.empty()) console.out() << " (" << Printable(profile.user) << ")";
        console.out() << "\n";
        for (const std::string& store : profile.stores) {
            console.out() << "    " << Printable(store)
                          << (store == profile.inbox ? "  (Inbox)" : "") << "\n";
        }
    }
    return console.EndWith(kExitDone);
}

int Remove(const Options& options, Console& console) {
    const Status removed = File().Remove(options.name);
    return removed.ok() ? kExitDone : Complain(removed.error(), console);
}

}  // namespace

Runner AttachProfile(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.require_subcommand(1);

    CLI::App* add =
        AddSubCommand(app, "add", "Add a profile", "profile add NAME [OPTIONS]",
                      "trevixctl profile add home --maildir ~/Maildir --user \"Ann Example\"\n"
                      "trevixctl profile add work --store imaps://ann@imap.example.org");
    add->add_option("NAME", options->name, "Its name")->required();
    add->add_option("--maildir", options->maildirs, "A mail directory; may be given several times")
        ->type_name("DIR")
        ->allow_extra_args(false);
    add->add_option("--store", options->addresses,
                    "A mailbox on a server, \"imaps://user@host\"; may be given several times")
        ->type_name("ADDRESS")
        ->allow_extra_args(false);
    add->add_option("--inbox", options->inbox,
                    "Which of them holds the Inbox, a directory or an address (default: the first "
                    "directory, else the first address)")
        ->type_name("DIR");
    add->add_option("--user", options->user, "The owner's name (default: the login name)")
        ->type_name("NAME");

    CLI::App* list = AddSubCommand(app, "list", "Show the profiles", "profile list [--json]",
                                   "trevixctl profile list");
    list->add_flag("--json", options->json, "One JSON object a line");

    CLI::App* remove = AddSubCommand(app, "remove", "Remove a profile; its mail stays where it is",
                                     "profile remove PROFILE", "trevixctl profile remove home");
    remove->add_option("PROFILE", options->name, "Its name")->required();

    return [=](Console& console) {
        if (add->parsed()) return Add(*options, console);
        if (list->parsed()) return List(*options, console);
        return Remove(*options, console);
    };
}

}  // namespace trevix::cli
