#include "cli/run_view.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "cli/text_format.h"
#include "store/run_lock.h"

namespace trevix::cli {
namespace {

constexpr std::int64_t kRedrawMs = 100;
constexpr std::size_t kNameColumns = 24;

// The part of the store that holds no messages of its own.
constexpr const char* kTopFolder = "Top of Information Store";

}  // namespace

// The tick count wraps; differences do not care.
std::int64_t RunView::ElapsedMs(std::int32_t since) const {
    return static_cast<std::uint32_t>(clock_.TickCount()) - static_cast<std::uint32_t>(since);
}

void RunView::FolderChange(const std::string& folder_name, std::int32_t count) {
    TakeFinishedFolders();
    folder_ = folder_name;
    folder_count_ = count;
    folder_start_ = clock_.TickCount();
    drawn_ = false;
    console_.Event({{"event", "folder"}, {"folder", folder_name}, {"messages", count}});
    Draw(0);
}

void RunView::Progress(const std::string& folder_name, std::int32_t count) {
    folder_ = folder_name;
    Draw(count);
}

void RunView::Draw(std::int32_t done) {
    if (drawn_ && ElapsedMs(last_drawn_) < kRedrawMs) return;
    last_drawn_ = clock_.TickCount();
    drawn_ = true;
    const std::int64_t saved = summary_.original_bytes - summary_.compressed_bytes;
    if (console_.json) {
        console_.Event({{"event", "progress"},
                        {"folder", folder_},
                        {"done", done},
                        {"messages", folder_count_},
                        {"bytes_saved", saved}});
        return;
    }
    if (console_.quiet) return;
    std::string line = Shortened(Printable(folder_), kNameColumns) + " " + std::to_string(done) +
                       "/" + std::to_string(folder_count_) + ", " + HumanBytes(saved) + " saved";
    // The message at hand is not done yet.
    if (done > 1) {
        const std::int64_t left =
            ElapsedMs(folder_start_) * (folder_count_ - done + 1) / (done - 1);
        line += ", " + HumanDuration(left) + " left";
    }
    console_.Redraw(line);
}

// Of the folders that have ended since the last look only the first can have changed: the others
// had no message to treat, or their beginning would have been announced.
void RunView::TakeFinishedFolders() {
    const RunSummary& now = summary_;
    for (; reports_taken_ < now.folders.size(); ++reports_taken_) {
        FolderOutcome folder;
        folder.path = now.folders[reports_taken_].path;
        std::replace(folder.path.begin(), folder.path.end(), '\\', '/');
        folder.attachments = now.attachments_zipped - taken_.attachments;
        folder.bytes_before = now.original_bytes - taken_.bytes_before;
        folder.bytes_after = now.compressed_bytes - taken_.bytes_after;
        taken_ = {"", now.attachments_zipped, now.original_bytes, now.compressed_bytes};
        if (folder.path == kTopFolder) continue;
        ShowFolder(folder);
        folders_.push_back(std::move(folder));
    }
}

void RunView::ShowFolder(const FolderOutcome& folder) {
    if (console_.json || console_.quiet || console_.err_is_terminal()) return;
    std::string line = Printable(folder.path) + ": ";
    if (folder.attachments == 0) {
        line += "nothing zipped";
    } else {
        line += std::to_string(folder.attachments) + " zipped, " + HumanBytes(folder.bytes_before) +
                " -> " + HumanBytes(folder.bytes_after);
    }
    console_.Note(line);
}

void RunView::Complete(std::int32_t elapsed_ms) {
    end_ = End::kComplete;
    console_.Event({{"event", "complete"}, {"elapsed_ms", elapsed_ms}});
    loop_.Quit();
}

void RunView::Abort(const std::string& message) {
    abort_message_ = message;
    if (message == "Cancelled") {
        end_ = End::kCancelled;
    } else {
        end_ = message == kManageLockTexts.conflict_message ? End::kHeld : End::kRefused;
    }
    console_.Event({{"event", "abort"}, {"message", message}});
    loop_.Quit();
}

void RunView::Finish() {
    TakeFinishedFolders();
    console_.ClearLine();
}

}  // namespace trevix::cli
