#include "cli/store_choice.h"

#include <filesystem>

#include "cli/exit_codes.h"
#include "platform/profiles/profile_file.h"

namespace trevix::cli {
namespace {

constexpr const char* kChooseHint =
    "choose one with --maildir DIR or --profile NAME, or name yours with "
    "\"trevixctl profile add\"";

// Without a choice the only profile is meant, if there is exactly one.
std::optional<std::string> OnlyProfile(Console& console, int& exit_code) {
    const profiles::ProfileFile file(profiles::ProfileFilePath());
    const auto list = file.List();
    if (!list.ok()) {
        exit_code = kExitFailed;
        console.Complain({"profiles", list.error().description, "correct the file by hand"});
        return std::nullopt;
    }
    if (list.value().size() == 1) return list.value().front().name;
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

}  // namespace

void AddStoreOptions(CLI::App& app, StoreChoice& choice) {
    const std::string group = "Which store (default: your only profile)";
    auto* profile = app.add_option("--profile", choice.profile, "A profile of profiles.conf")
                        ->type_name("PROFILE")
                        ->group(group);
    auto* maildir = app.add_option("--maildir", choice.maildir, "A mail directory")
                        ->type_name("DIR")
                        ->group(group);
    auto* server = app.add_option("--server", choice.server, "An IMAP server (not in this version)")
                       ->type_name("HOST")
                       ->group(group);
    app.add_option("--alias", choice.alias, "The mailbox on that server")
        ->type_name("USER")
        ->needs(server)
        ->group(group);
    profile->excludes(maildir)->excludes(server);
    maildir->excludes(server);
    app.add_flag("--server-mode", choice.server_mode,
                 "Take the settings from the store, as the companion service does")
        ->group(group);
}

std::optional<std::string> LogonName(const StoreChoice& choice, Console& console, int& exit_code) {
    if (!choice.server.empty()) {
        exit_code = kExitFailed;
        console.Complain({choice.server, "IMAP stores are not part of this version",
                          "synchronise the mail into a Maildir and use --maildir DIR"});
        return std::nullopt;
    }
    if (!choice.maildir.empty()) return "maildir:" + AbsolutePath(choice.maildir);
    if (!choice.profile.empty()) return choice.profile;
    return OnlyProfile(console, exit_code);
}

std::string AbsolutePath(const std::string& path) {
    // Without an error code a vanished working directory would throw.
    std::error_code failure;
    const std::filesystem::path absolute = std::filesystem::absolute(path, failure);
    return failure ? path : absolute.lexically_normal().string();
}

}  // namespace trevix::cli
