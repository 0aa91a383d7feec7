// Every port call of an index run fails once, and from then on. Whatever fails: the mail and the
// index that was saved before stand or a whole new one is there, the run ends with an event or a
// log line, nothing temporary stays behind, and the next run gives what a new index gives.
#include <gtest/gtest.h>

#include <set>

#include "../unit/index/index_world.h"

namespace trevix {
namespace {

using fakes::FaultPlan;
using test::IndexWorld;
using test::World;

struct Shape {
    const char* name;
    bool recreate;
};

class IndexFaults : public testing::TestWithParam<Shape> {
 protected:
    // A store with an index, and with changes since.
    static void Arrange(IndexWorld& world) {
        world.AddMessage(*world.inbox, "first", {World::File("a.txt", "alpha")});
        world.AddMessage(*world.inbox, "second",
                         {World::File("z.zip", test::Zips::Archive({{"x", "1"}}))});
        world.AddMessage(*world.inbox, "gone", {World::File("g.txt", "gone")});
        auto& sub = world.inbox->Add("F2", "Sub");
        world.AddMessage(sub, "third", {World::File("c.txt", "gamma"), World::File("", "x")});
        world.Rebuild();
        ASSERT_EQ(world.End(), "Complete 0");
        world.inbox->messages.pop_back();
        sub.messages[0].attachments[0].name = "changed.txt";
        sub.messages[0].modified = world.clock.utc;
        fakes::MessageData& late =
            world.AddMessage(*world.inbox, "late",
                             {World::File("y.zip", test::Zips::Archive({{"y", "2"}})),
                              World::File("l.txt", "late")});
        late.modified = world.clock.utc;
        late.sender_type = "SMTP";
        late.sender_address = "eva@example.org";
        late.recipients = {{1, "anna@example.org"}};
        world.index_recorder.events.clear();
        world.clock.AdvanceMinutes(10);
    }

    static void ExpectNothingTemporary(World& world) {
        for (const auto& [path, bytes] : world.files.files) {
            EXPECT_EQ(path.find("/stage-"), std::string::npos) << path;
        }
    }

    static std::vector<std::string> Wanted() {
        IndexWorld world;
        Arrange(world);
        world.Rebuild();
        return world.SortedRows();
    }
};

TEST_P(IndexFaults, AnySingleFailureAndAnyLastingFailureIsHarmlessAndHealedByTheNextRun) {
    const std::vector<std::string> wanted = Wanted();
    ASSERT_EQ(wanted.size(), 5U);
    IndexWorld dry;
    Arrange(dry);
    const int before = static_cast<int>(dry.plan.calls().size());
    const std::vector<std::string> old = dry.SortedRows();
    dry.RunIndex(GetParam().recreate);
    ASSERT_EQ(dry.End(), "Complete 0");
    ASSERT_EQ(dry.SortedRows(), wanted);
    const int calls = static_cast<int>(dry.plan.calls().size());
    ASSERT_GT(calls, before + 200);

    for (const auto mode : {FaultPlan::Mode::kOnce, FaultPlan::Mode::kFromThenOn}) {
        for (int nth = before + 1; nth <= calls; ++nth) {
            SCOPED_TRACE(std::to_string(nth) + " " +
                         dry.plan.calls()[static_cast<std::size_t>(nth) - 1] +
                         (mode == FaultPlan::Mode::kOnce ? " once" : " from then on"));
            IndexWorld world;
            Arrange(world);
            const std::size_t lines = world.Log().size();
            world.plan.FailCall(nth, mode, MessagingError(kDiskError));

            world.RunIndex(GetParam().recreate);
            world.plan.Clear();
            EXPECT_TRUE(!world.index_recorder.events.empty() || world.Log().size() > lines);
            const bool completed = world.End() == "Complete 0";
            if (!completed) {
                EXPECT_EQ(world.SortedRows(), old) << world.End();
            }
            ExpectNothingTemporary(world);

            world.Restart();
            world.clock.AdvanceMinutes(10);
            world.Update();
            EXPECT_EQ(world.End(), "Complete 0");
            EXPECT_EQ(world.SortedRows(), wanted);
            ExpectNothingTemporary(world);
            if (testing::Test::HasFailure()) return;
        }
    }
}

// What the sweep above fails, call by call: nothing that a run can fail on is left out of it.
TEST_P(IndexFaults, EveryPortOfARunIsAmongWhatFails) {
    IndexWorld world;
    Arrange(world);
    const std::size_t before = world.plan.calls().size();
    world.RunIndex(GetParam().recreate);

    std::set<std::string> failed;
    for (std::size_t i = before; i < world.plan.calls().size(); ++i)
        failed.insert(world.plan.calls()[i]);
    std::set<std::string> expected = {"session.GetInfoStore",
                                      "session.GetDefaultFolder",
                                      "store.Name",
                                      "store.RootFolder",
                                      "folder.Field",
                                      "folder.Id",
                                      "folder.Name",
                                      "folder.StoreId",
                                      "folder.FolderCount",
                                      "folder.Folders",
                                      "folder.MessageList",
                                      "messages.AddFilter",
                                      "messages.Count",
                                      "messages.Sort",
                                      "table.SetSource",
                                      "table.SetColumns",
                                      "table.RowCount",
                                      "table.GetRows",
                                      "table.Restrict",
                                      "utils.CreateTable",
                                      "utils.EntryIdText",
                                      "utils.HiddenItems",
                                      "utils.OpenMessage",
                                      "message.Subject",
                                      "message.Field",
                                      "message.AttachmentList",
                                      "message.Recipients",
                                      "message.NamedProperty",
                                      "message.SetField",
                                      "message.Update",
                                      "attachments.Count",
                                      "attachments.Item",
                                      "attachments.Add",
                                      "attachment.Name",
                                      "attachment.Field",
                                      "attachment.Size",
                                      "attachment.WriteToFile",
                                      "attachment.Delete",
                                      "files.MakeStaging",
                                      "files.FileExists",
                                      "files.FindFile",
                                      "files.Delete",
                                      "recordset.CreateRecordSet",
                                      "recordset.Append",
                                      "recordset.AddNew",
                                      "recordset.Set",
                                      "recordset.Update",
                                      "recordset.Get",
                                      "recordset.SetFilter",
                                      "recordset.MoveFirst",
                                      "recordset.MoveNext",
                                      "recordset.Find",
                                      "recordset.Save",
                                      "recordset.Close",
                                      "zip.Action4",
                                      "zip.Action1",
                                      "zip.Action2"};
    if (!GetParam().recreate) {
        expected.insert({"recordset.OpenFile", "recordset.Delete", "zip.Action8"});
    } else {
        expected.insert("recordset.Open");
    }
    for (const std::string& call : expected)
        EXPECT_TRUE(failed.contains(call)) << call;
}

constexpr Shape kShapes[] = {{"Update", false}, {"NewIndex", true}};

INSTANTIATE_TEST_SUITE_P(Shapes, IndexFaults, testing::ValuesIn(kShapes),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace trevix
