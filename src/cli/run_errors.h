// RunErrors: shows the errors of a run as they happen, and remembers what they say about its end.
#pragma once

#include <string>

#include "cli/console.h"
#include "shell/event_echo.h"

namespace trevix::cli {

class RunErrors {
 public:
    // `store_name` stands for the folder while there is none.
    RunErrors(std::string store_name, Console& console)
        : store_name_(std::move(store_name)), console_(console) {}
    RunErrors(const RunErrors&) = delete;
    RunErrors& operator=(const RunErrors&) = delete;

    // For a world's plan. This object outlives that world.
    EventEcho::Show Shower();

    // The folder at hand, borrowed; null while no run goes on: the outcome is told in other words
    // then.
    void In(const std::string* folder) { folder_ = folder; }

    // Those of the run at hand.
    void Forget() { noted_ = {}; }
    int count() const { return noted_.count; }
    bool is_disk_full() const { return noted_.is_disk_full; }
    bool is_temporary_full() const { return noted_.is_temporary_full; }

 private:
    struct Noted {
        int count = 0;
        bool is_disk_full = false;
        bool is_temporary_full = false;
    };

    void Show(int type, const std::string& procedure, const std::string& text);

    std::string store_name_;
    Console& console_;
    const std::string* folder_ = nullptr;
    Noted noted_;
};

}  // namespace trevix::cli
