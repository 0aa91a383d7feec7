#include "cli/index_phase.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "cli/exit_codes.h"
#include "cli/index_report.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

// The text of an event is several lines for a message box.
std::string OneLine(const std::string& text) {
    std::string line;
    for (const std::string& piece : Split(text, "\r\n")) {
        if (piece.empty()) continue;
        if (!line.empty()) line += ' ';
        line += piece;
    }
    return line;
}

}  // namespace

IndexPhase::IndexPhase(Runs& runs, RunErrors& errors, std::string store_name, Console& console)
    : runs_(runs),
      errors_(errors),
      store_name_(std::move(store_name)),
      console_(console),
      view_(runs, console) {}

int IndexPhase::Follow() {
    Clock& clock = runs_.clock();
    errors_.Forget();
    errors_.In(&view_.folder());
    const auto start = clock.UnixNanoseconds();
    // A run without a results message ends without a word.
    constexpr int kLookMs = 250;
    const auto look = runs_.loop().ArmTimer(kLookMs, [&] {
        if (!runs_.IsIndexing()) runs_.loop().Quit();
    });
    if (view_.end() == IndexView::End::kNone) runs_.loop().Run();
    runs_.loop().DisarmTimer(look);
    view_.Finish();
    errors_.In(nullptr);
    elapsed_ms_ = (clock.UnixNanoseconds() - start) / 1000000;
    const int exit_code = ExitCode();
    if (view_.end() == IndexView::End::kComplete && !console_.json && !console_.quiet) {
        console_.out() << IndexSummaryLine(runs_.IndexingSummary(), elapsed_ms_) << '\n';
    }
    return exit_code;
}

int IndexPhase::ExitCode() {
    const IndexSummary& summary = runs_.IndexingSummary();
    switch (view_.end()) {
        case IndexView::End::kComplete:
            if (summary.messages_failed + summary.folders_failed > 0) return kExitSomeFailed;
            return errors_.count() > 0 ? kExitFailed : kExitDone;
        case IndexView::End::kCancelled:
            console_.Complain({store_name_, "the index run was cancelled",
                               "the saved index is as it was before"});
            return kExitCancelled;
        case IndexView::End::kHeld:
            console_.Complain(
                {store_name_, "another run holds the store",
                 "wait until it ends; \"trevixctl status\" tells since when it runs"});
            return kExitHeld;
        case IndexView::End::kFailed:
        case IndexView::End::kNone: break;
    }
    if (errors_.is_disk_full() || errors_.is_temporary_full()) {
        console_.Complain({store_name_, "the disk is full, the index was not saved",
                           "make room for the store and in TMPDIR (default /tmp), then start "
                           "again"});
        return kExitFailed;
    }
    if (!runs_.Loss().empty()) {
        console_.Complain(LossComplaint(runs_.Loss()));
        return kExitFailed;
    }
    const std::string why = OneLine(view_.abort_message());
    console_.Complain({store_name_, why.empty() ? "the index run ended without a result" : why,
                       "the errors above and \"trevixctl log\" say more"});
    return kExitFailed;
}

nlohmann::json IndexPhase::SummaryFields() const {
    return IndexSummaryFields(runs_.IndexingSummary(), elapsed_ms_);
}

}  // namespace trevix::cli
