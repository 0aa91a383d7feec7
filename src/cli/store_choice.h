// Which mail store a command works on: the options that choose it, and what they mean.
#pragma once

#include <CLI/App.hpp>
#include <optional>
#include <string>

#include "cli/console.h"
#include "cli/store_name.h"

namespace trevix::cli {

struct StoreChoice {
    std::string profile;
    std::string maildir;
    std::string server;
    std::string alias;
    bool server_mode = false;
};

void AddStoreOptions(CLI::App& app, StoreChoice& choice);

// What to log on with. Nothing when the choice names no store; the complaint was made then and
// `exit_code` set.
std::optional<StoreName> LogonName(const StoreChoice& choice, Console& console, int& exit_code);

// The absolute form of a path that the user gave. Relative ones start at the working directory.
std::string AbsolutePath(const std::string& path);

}  // namespace trevix::cli
