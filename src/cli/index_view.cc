#include "cli/index_view.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "cli/text_format.h"
#include "store/run_lock.h"
#include "util/format.h"

namespace trevix::cli {
namespace {

constexpr std::uint32_t kRedrawMs = 100;
constexpr std::size_t kNameColumns = 24;

// The text of a progress event that is about no folder.
constexpr const char* kSavingText = "Updating index, please wait...";

}  // namespace

IndexView::IndexView(Runs& runs, Console& console)
    : runs_(runs), summary_(runs.IndexingSummary()), console_(console) {
    runs_.IndexingEvents(this);
}

void IndexView::Cancel() {
    is_cancelled_ = true;
    runs_.CancelIndexing();
}

void IndexView::FolderChange(const std::string& folder_name, std::int32_t count) {
    if (is_cancelled_) runs_.CancelIndexing();
    ShowFolder();
    folder_ = folder_name;
    std::replace(folder_.begin(), folder_.end(), '\\', '/');
    folder_count_ = count;
    messages_before_ = summary_.messages_indexed;
    rows_before_ = summary_.rows_added;
    drawn_ = false;
    console_.Event(
        {{"event", "folder"}, {"run", "index"}, {"folder", folder_}, {"messages", count}});
    Draw(0);
}

void IndexView::Progress(const std::string& text, std::int32_t count) {
    if (is_cancelled_) runs_.CancelIndexing();
    if (text != kSavingText) {
        Draw(count);
        return;
    }
    ShowFolder();
    console_.Event({{"event", "progress"}, {"run", "index"}, {"saving", true}});
    if (!console_.json && !console_.quiet) console_.Redraw("saving the index");
}

void IndexView::Draw(std::int32_t done) {
    const auto passed = static_cast<std::uint32_t>(runs_.clock().TickCount()) -
                        static_cast<std::uint32_t>(last_drawn_);
    if (drawn_ && passed < kRedrawMs) return;
    last_drawn_ = runs_.clock().TickCount();
    drawn_ = true;
    const std::int64_t rows = summary_.rows_added;
    console_.Event({{"event", "progress"},
                    {"run", "index"},
                    {"folder", folder_},
                    {"done", done},
                    {"messages", folder_count_},
                    {"rows_added", rows}});
    if (console_.json || console_.quiet) return;
    console_.Redraw(Shortened(Printable(folder_), kNameColumns) + " " + std::to_string(done) + "/" +
                    std::to_string(folder_count_) + ", " + FormatThousands(rows) +
                    " attachments indexed");
}

void IndexView::ShowFolder() {
    if (folder_.empty() || console_.json || console_.quiet || console_.err_is_terminal()) return;
    const std::int64_t messages = summary_.messages_indexed - messages_before_;
    const std::int64_t rows = summary_.rows_added - rows_before_;
    std::string line = Printable(folder_) + ": ";
    if (messages == 0) {
        line += "nothing new for the index";
    } else {
        line += FormatThousands(messages) + (messages == 1 ? " message" : " messages") +
                " indexed, " + FormatThousands(rows) + (rows == 1 ? " attachment" : " attachments");
    }
    console_.Note(line);
    folder_.clear();
}

void IndexView::Complete(std::int32_t elapsed_ms) {
    end_ = End::kComplete;
    console_.Event({{"event", "complete"}, {"run", "index"}, {"elapsed_ms", elapsed_ms}});
    runs_.loop().Quit();
}

void IndexView::Abort(const std::string& message) {
    abort_message_ = message;
    if (message == kIndexLockTexts.conflict_message) {
        end_ = End::kHeld;
    } else {
        const bool cancelled = message.starts_with("Attachment index canceled");
        end_ = cancelled ? End::kCancelled : End::kFailed;
    }
    console_.Event({{"event", "abort"}, {"run", "index"}, {"message", message}});
    runs_.loop().Quit();
}

void IndexView::Finish() {
    ShowFolder();
    console_.ClearLine();
}

}  // namespace trevix::cli
