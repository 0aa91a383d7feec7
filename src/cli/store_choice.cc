#include "cli/store_choice.h"

#include <filesystem>

#include "cli/exit_codes.h"
#include "platform/imap/server_address.h"
#include "platform/profiles/profile_file.h"

namespace trevix::cli {
namespace {

constexpr const char* kChooseHint =
    "choose one with --maildir DIR, --server HOST --alias USER or --profile NAME, or name yours "
    "with "
    "\"trevixctl profile add\"";

// Without a choice the only profile is meant, if there is exactly one.
std::optional<StoreName> OnlyProfile(Console& console, int& exit_code) {
    const profiles::ProfileFile file(profiles::ProfileFilePath());
    const auto list = file.List();
    if (!list.ok()) {
        exit_code = kExitFailed;
        console.Complain({"profiles", list.error().description, "correct the file by hand"});
        return std::nullopt;
    }
    if (list.value().size() == 1) return StoreName{list.value().front().name, {}, {}};
    exit_code = kExitUsage;
    if (list.value().empty()) {
        console.Complain({"no mail store given", "there is no profile to take", kChooseHint});
    } else {
        std::string names;
        for (const profiles::Profile& profile : list.value()) {
            names += (names.empty() ? "" : ", ") + profile.name;
        }
        console.Complain({"no mail store given", "there are several profiles",
                          "choose one with --profile: " + names});
    }
    return std::nullopt;
}

// An address is read here already, though whoever opens the store does it again: one that is wrong
// may hold a password, and must get neither into a complaint nor into a log.
std::optional<StoreName> MailboxName(const std::string& text, Console& console, int& exit_code) {
    const auto address = imap::ParseAddress(text);
    if (address.ok()) return StoreName{imap::AddressText(address.value()), {}, {}};
    exit_code = kExitFailed;
    console.Complain({"store address", address.error().description, ""});
    return std::nullopt;
}

}  // namespace

void AddStoreOptions(CLI::App& app, StoreChoice& choice) {
    const std::string group = "Which store (default: your only profile)";
    auto* profile =
        app.add_option("--profile", choice.profile, "A profile's name, or a store's address")
            ->type_name("PROFILE")
            ->group(group);
    auto* maildir = app.add_option("--maildir", choice.maildir, "A mail directory")
                        ->type_name("DIR")
                        ->group(group);
    auto* server = app.add_option("--server", choice.server, "An IMAP server")
                       ->type_name("HOST")
                       ->group(group);
    app.add_option("--alias", choice.alias, "Whose mailbox on that server")
        ->type_name("USER")
        ->needs(server)
        ->group(group);
    profile->excludes(maildir)->excludes(server);
    maildir->excludes(server);
    app.add_flag("--server-mode", choice.server_mode,
                 "Take the settings from the store, as the companion service does")
        ->group(group);
}

std::optional<StoreName> LogonName(const StoreChoice& choice, Console& console, int& exit_code) {
    if (!choice.server.empty()) {
        if (!choice.alias.empty()) return StoreName{{}, choice.server, choice.alias};
        exit_code = kExitUsage;
        console.Complain(
            {choice.server, "whose mailbox there is not said", "name its user with --alias USER"});
        return std::nullopt;
    }
    if (!choice.maildir.empty()) {
        return StoreName{"maildir:" + AbsolutePath(choice.maildir), {}, {}};
    }
    if (choice.profile.find("://") != std::string::npos) {
        return MailboxName(choice.profile, console, exit_code);
    }
    if (!choice.profile.empty()) return StoreName{choice.profile, {}, {}};
    return OnlyProfile(console, exit_code);
}

std::string AbsolutePath(const std::string& path) {
    // Without an error code a vanished working directory would throw.
    std::error_code failure;
    const std::filesystem::path absolute = std::filesystem::absolute(path, failure);
    return failure ? path : absolute.lexically_normal().string();
}

}  // namespace trevix::cli
