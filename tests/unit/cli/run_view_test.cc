#include "cli/run_view.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/run_report.h"
#include "store/run_lock.h"
#include "support/world.h"

namespace trevix::cli {
namespace {

using testing::HasSubstr;
using testing::Not;

struct ViewWorld {
    explicit ViewWorld(bool is_terminal = false) : console(out, err, is_terminal) {
        world.Setting("CombineCompress", "0");
        world.Logon();
    }

    // A whole run over the fakes, seen through the view.
    void Run() {
        CManage& run = *world.session->Manage();
        RunView view(run.Summary(), world.clock, world.loop, console);
        run.Compress(true);
        run.Events(&view);
        run.Manage(false);
        world.loop.FireTimers();
        view.Finish();
        run.Events(nullptr);
        end = view.end();
        folders = view.folders();
    }

    std::vector<nlohmann::json> Events() const {
        std::vector<nlohmann::json> events;
        std::istringstream lines(out.str());
        for (std::string line; std::getline(lines, line);) {
            events.push_back(nlohmann::json::parse(line));
        }
        return events;
    }

    test::World world;
    std::ostringstream out;
    std::ostringstream err;
    Console console;
    RunView::End end = RunView::End::kNone;
    std::vector<FolderOutcome> folders;
};

const std::string kText(2000, 'a');

TEST(RunViewFolders, CountsWhatWasSavedInEachFolder) {
    ViewWorld view;
    auto& root = view.world.messaging.state.stores.front()->root;
    view.world.AddMessage(*view.world.inbox, "m1", {test::World::File("a.txt", kText)});
    auto& archive = root.Add("F2", "Archive");
    auto& old = archive.Add("F3", "Old");
    view.world.AddMessage(old, "m2", {test::World::File("b.txt", kText)});
    view.world.AddMessage(old, "m3", {test::World::File("c.txt", kText)});
    root.Add("F4", "Empty");

    view.Run();

    EXPECT_EQ(view.end, RunView::End::kComplete);
    ASSERT_EQ(view.folders.size(), 4U);
    EXPECT_EQ(view.folders[0].path, "Inbox");
    EXPECT_EQ(view.folders[0].attachments, 1);
    EXPECT_EQ(view.folders[0].bytes_before, 2000);
    EXPECT_EQ(view.folders[1].path, "Archive");
    EXPECT_EQ(view.folders[1].attachments, 0);
    EXPECT_EQ(view.folders[2].path, "Archive/Old");
    EXPECT_EQ(view.folders[2].attachments, 2);
    EXPECT_EQ(view.folders[2].bytes_before, 4000);
    EXPECT_EQ(view.folders[3].attachments, 0);
}

TEST(RunViewProgress, GivesAPipeOneLineAFolder) {
    ViewWorld view;
    view.world.AddMessage(*view.world.inbox, "m1", {test::World::File("a.txt", kText)});

    view.Run();

    EXPECT_THAT(view.err.str(), HasSubstr("Inbox: 1 zipped, 1.95 KB -> "));
    EXPECT_THAT(view.err.str(), Not(HasSubstr("\r")));
    EXPECT_THAT(view.err.str(), Not(HasSubstr("Top of Information Store")));
    EXPECT_EQ(view.out.str(), "");
}

TEST(RunViewProgress, RedrawsATerminalsLineTenTimesASecondAtMost) {
    ViewWorld view(true);
    for (int i = 0; i < 50; ++i) {
        view.world.AddMessage(*view.world.inbox, "m", {test::World::File("a.txt", kText)});
    }
    view.world.clock.tick_step = 10;  // each look at the clock takes 10 ms

    view.Run();

    const std::string shown = view.err.str();
    const auto redraws = std::count(shown.begin(), shown.end(), '\r');
    EXPECT_GE(redraws, 3);
    EXPECT_LE(redraws, 20);
    EXPECT_THAT(shown, HasSubstr("Inbox 0/50, 0 bytes saved"));
    EXPECT_THAT(shown, HasSubstr(" left"));
    EXPECT_THAT(shown, testing::EndsWith("\r\x1b[K"));
}

TEST(RunViewProgress, IsSilentWhenQuiet) {
    ViewWorld view;
    view.console.quiet = true;
    view.world.AddMessage(*view.world.inbox, "m1", {test::World::File("a.txt", kText)});

    view.Run();

    EXPECT_EQ(view.err.str(), "");
    EXPECT_EQ(view.out.str(), "");
}

TEST(RunViewProgress, WritesOneObjectALineForPrograms) {
    ViewWorld view;
    view.console.json = true;
    view.world.AddMessage(*view.world.inbox, "m1", {test::World::File("a.txt", kText)});

    view.Run();

    const auto events = view.Events();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0],
              (nlohmann::json{{"event", "folder"}, {"folder", "Inbox"}, {"messages", 1}}));
    EXPECT_EQ(events[1]["event"], "progress");
    EXPECT_EQ(events[2]["event"], "complete");
    EXPECT_EQ(view.err.str(), "");
}

TEST(RunViewAbort, TellsAHeldStoreFromACancelledRun) {
    ViewWorld view;
    RunView shown(view.world.session->Manage()->Summary(), view.world.clock, view.world.loop,
                  view.console);

    shown.Abort("Cancelled");
    EXPECT_EQ(shown.end(), RunView::End::kCancelled);
    shown.Abort(kManageLockTexts.conflict_message);
    EXPECT_EQ(shown.end(), RunView::End::kHeld);
    shown.Abort("Aborting procedure: hidden message not available");
    EXPECT_EQ(shown.end(), RunView::End::kRefused);
    EXPECT_EQ(shown.abort_message(), "Aborting procedure: hidden message not available");
}

RunSummary SomeSummary() {
    RunSummary summary;
    summary.messages_changed = 1;
    summary.messages_failed = 2;
    summary.messages_left = 3;
    summary.attachments_zipped = 3;
    summary.original_bytes = 4096;
    summary.compressed_bytes = 1024;
    return summary;
}

TEST(SummaryLine, SaysAllOfIt) {
    EXPECT_EQ(SummaryLine(SomeSummary(), 3200, false),
              "1 message changed, 3 attachments zipped, 4.00 KB -> 1.00 KB (75% saved), "
              "3 left as they are, 2 failures, 3.2 s");
    EXPECT_THAT(SummaryLine(SomeSummary(), 3200, true),
                testing::StartsWith("dry run, nothing was written: 1 message would change, "));
}

TEST(SummaryEvent, CarriesTheNumbersAndTheExitStatus) {
    const auto event = SummaryEvent(SomeSummary(), {{"Inbox", 3, 4096, 1024}}, 3200, true, 3);

    EXPECT_EQ(event["event"], "summary");
    EXPECT_EQ(event["exit"], 3);
    EXPECT_EQ(event["dry_run"], true);
    EXPECT_EQ(event["bytes_saved"], 3072);
    EXPECT_EQ(event["percent_saved"], 75);
    EXPECT_EQ(event["folders"][0]["path"], "Inbox");
}

TEST(FolderTable, ListsWhatChangesAndItsSum) {
    EXPECT_EQ(FolderTable({{"Inbox", 0, 0, 0}}), "");
    EXPECT_EQ(FolderTable({{"Inbox", 2, 4096, 1024}, {"Idle", 0, 0, 0}, {"Old", 1, 2048, 1024}}),
              "Folder       Attachments      Before       After        Gain\n"
              "Inbox                  2     4.00 KB     1.00 KB     3.00 KB\n"
              "Old                    1     2.00 KB     1.00 KB     1.00 KB\n"
              "Total                  3     6.00 KB     2.00 KB     4.00 KB\n");
}

}  // namespace
}  // namespace trevix::cli
