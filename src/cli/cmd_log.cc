// trevixctl log: the diagnostic log of this user's runs.
#include <CLI/App.hpp>
#include <algorithm>
#include <memory>
#include <string>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/interrupt.h"
#include "cli/text_format.h"
#include "platform/posix/poll_loop.h"
#include "platform/posix/posix_file_system.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

struct Options {
    int lines = 0;
    bool follow = false;
};

// A line that is cut off at the end of what was read waits for its rest.
std::string WholeLines(const std::string& text) {
    const std::size_t last = text.rfind('\n');
    return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

void Show(const std::string& text, Console& console) {
    for (std::string line : Split(text, "\n")) {
        if (line.ends_with('\r')) line.pop_back();
        console.out() << Printable(line) << "\n";
    }
    console.out() << std::flush;
}

// The last `count` lines of whole lines.
std::string LastLines(const std::string& text, int count) {
    std::size_t begin = text.size();
    while (count-- > 0 && begin > 0) {
        const std::size_t before = begin < 2 ? std::string::npos : text.rfind('\n', begin - 2);
        begin = before == std::string::npos ? 0 : before + 1;
    }
    return text.substr(begin);
}

// What `now` has behind what was seen before. The log loses its oldest line when a line is added,
// so the old end is looked for, not the old length.
std::string Added(const std::string& before, const std::string& now) {
    if (now.size() >= before.size() && now.compare(0, before.size(), before) == 0) {
        return now.substr(before.size());
    }
    for (std::size_t cut = before.find('\n'); cut != std::string::npos && cut + 1 < before.size();
         cut = before.find('\n', cut + 1)) {
        const std::size_t kept = before.size() - cut - 1;
        if (now.size() >= kept && now.compare(0, kept, before, cut + 1, kept) == 0) {
            return now.substr(kept);
        }
    }
    return now;
}

void Follow(FileSystem& files, const std::string& path, std::string seen, Console& console) {
    constexpr int kLookMs = 250;
    posix::PollLoop loop;
    const Interrupt interrupt(loop, kEndedAtOnceText, [&loop] { loop.Quit(); });
    loop.ArmTimer(kLookMs, [&] {
        const auto text = files.ReadText(path);
        if (!text.ok()) return;
        std::string now = WholeLines(text.value());
        if (now == seen) return;
        std::string added = Added(seen, now);
        if (added.ends_with('\n')) added.pop_back();
        if (!added.empty()) Show(added, console);
        seen = std::move(now);
    });
    loop.Run();
}

int Run(const Options& options, Console& console) {
    posix::PosixFileSystem files;
    const std::string path = files.TemporaryPath() + "ZipTemp/trevix.log";
    const auto text = files.ReadText(path);
    if (!text.ok() && !options.follow) {
        const bool is_absent = text.error().kind == ErrorKind::kNotFound;
        console.Complain({path, is_absent ? "no log was written yet" : text.error().description,
                          "\"trevixctl config get log-size\" tells whether one is kept at all"});
        return kExitFailed;
    }
    const std::string seen = text.ok() ? WholeLines(text.value()) : std::string();
    std::string shown = options.lines > 0 ? LastLines(seen, options.lines) : seen;
    if (shown.ends_with('\n')) shown.pop_back();
    if (!shown.empty()) Show(shown, console);
    if (options.follow) Follow(files, path, seen, console);
    return options.follow ? kExitCancelled : kExitDone;
}

}  // namespace

Runner AttachLog(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("-n,--lines", options->lines, "The last lines only")
        ->type_name("LINES")
        ->check(CLI::Range(1, 1000000000));
    app.add_flag("-f,--follow", options->follow, "Go on with new lines until Ctrl-C");
    return [options](Console& console) { return Run(*options, console); };
}

}  // namespace trevix::cli
