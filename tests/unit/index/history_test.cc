// After any history of deliveries, removals, moves, changes, renamed folders, compression runs and
// index runs that were cancelled, failed or died, an update gives the rows of a new index.
#include <gtest/gtest.h>

#include <random>

#include "index_world.h"

namespace trevix {
namespace {

using fakes::FaultPlan;
using fakes::FolderData;
using fakes::MessageData;
using test::IndexWorld;
using test::World;

// Makes up one history, the same for the same seed.
class History {
 public:
    explicit History(unsigned seed) : dice_(seed) {
        world_.Setting("ErrorLogLevel", "1");
        folders_.push_back(world_.inbox);
        folders_.push_back(&world_.AddStore("52").root.Add("F2", "Elsewhere"));
        for (int i = 0; i < 3; ++i)
            AddFolder();
        for (int i = 0; i < 8; ++i)
            Deliver();
        Run(true);
    }

    IndexWorld& world() { return world_; }
    const std::string& Told() const { return told_; }

    void Step() {
        // Most things happen while time passes, some within the same second.
        if (Roll(3) > 0) world_.clock.AdvanceMinutes(Roll(2000) / 10.0);
        switch (Roll(22)) {
            case 0:
            case 1:
            case 2: Deliver(); break;
            case 3: Remove(); break;
            case 4: Move(); break;
            case 5: Change(); break;
            case 6: Flag(); break;
            case 7: AddFolder(); break;
            case 8: RenameFolder(); break;
            case 9: RemoveFolder(); break;
            case 10: Compress(); break;
            case 11: CancelledRun(); break;
            case 12: FailingRun(); break;
            case 13: Restart(); break;
            case 14: DeliverDuringRun(); break;
            case 15: KeepSaved(); break;
            case 16: FoldersOfAnOlderRun(); break;
            case 17: LocalCopyOfAnOlderIndex(); break;
            case 18: LoseIndex(); break;
            case 19: ResetFolders(); break;
            case 20: OneStoreOnly(); break;
            default: Update(); break;
        }
    }

    void Update() {
        Tell("update");
        world_.clock.AdvanceMinutes(10);  // whoever died lets go of the lock
        Run(false);
    }

    // What a new index over the same stores is, made by another process.
    std::vector<std::string> NewIndex() {
        IndexWorld other;
        other.clock = world_.clock;
        other.Setting("ErrorLogLevel", "1");
        other.messaging.state.stores.clear();
        for (const auto& store : world_.messaging.state.stores) {
            auto copy = std::make_unique<fakes::StoreData>();
            copy->id = store->id;
            copy->name = store->name;
            Copy(store->root, copy->root);
            other.messaging.state.stores.push_back(std::move(copy));
        }
        other.messaging.state.hidden = world_.messaging.state.hidden;
        other.index().TargetStoreIDs("51;52");
        other.Rebuild();
        EXPECT_TRUE(other.End().starts_with("Complete ")) << other.End();
        return other.SortedRows();
    }

 private:
    void Run(bool recreate, const char* stores = "51;52") {
        if (world_.session == nullptr) world_.Logon();
        if (CIndex* index = world_.session->Index()) index->TargetStoreIDs(stores);
        world_.RunIndex(recreate);
    }
    int Roll(int sides) { return static_cast<int>(dice_() % static_cast<unsigned>(sides)); }
    void Tell(const std::string& what) { told_ += what + "; "; }

    static void Copy(const FolderData& from, FolderData& to) {
        to.id = from.id;
        to.name = from.name;
        to.container_class = from.container_class;
        to.messages = from.messages;
        for (const auto& folder : from.folders)
            Copy(*folder, to.Add(folder->id, folder->name));
    }

    FolderData& AnyFolder() {
        return *folders_[static_cast<std::size_t>(Roll(static_cast<int>(folders_.size())))];
    }

    std::vector<fakes::AttachmentData> SomeAttachments() {
        std::vector<fakes::AttachmentData> list;
        const int count = Roll(4);
        for (int i = 0; i < count; ++i) {
            const std::string number = std::to_string(++made_);
            switch (Roll(7)) {
                case 0:
                    list.push_back(World::File(
                        "z" + number + ".zip",
                        test::Zips::Archive({{"in" + number + ".txt", number}, {"b", "bb"}})));
                    break;
                case 1: list.push_back(World::File("bad" + number + ".zip", "no archive")); break;
                case 2: list.push_back(World::File("", "nameless")); break;
                case 3:
                    list.push_back(World::File("m", "inside"));
                    list.back().type = kAttachmentEmbeddedMessage;
                    break;
                default: list.push_back(World::File("a" + number + ".txt", number)); break;
            }
        }
        return list;
    }

    // Mostly new; sometimes with a time of long ago, as a restored backup has.
    void DeliverTo(FolderData& folder) {
        MessageData& message =
            world_.AddMessage(folder, "s" + std::to_string(made_), SomeAttachments());
        message.modified =
            Roll(4) == 0 ? Date{world_.clock.utc.days - 100 - Roll(50)} : world_.clock.utc;
        message.received = message.modified;
        if (Roll(20) == 0) message.subject = std::string(300, 's');
    }
    void Deliver() {
        Tell("deliver");
        DeliverTo(AnyFolder());
    }
    void Remove() {
        FolderData& folder = AnyFolder();
        if (folder.messages.empty()) return;
        Tell("remove");
        folder.messages.erase(folder.messages.begin() +
                              Roll(static_cast<int>(folder.messages.size())));
    }
    void Move() {
        FolderData& from = AnyFolder();
        FolderData& to = AnyFolder();
        if (from.messages.empty()) return;
        Tell("move");
        const auto at = from.messages.begin() + Roll(static_cast<int>(from.messages.size()));
        const MessageData message = *at;
        from.messages.erase(at);
        to.messages.push_back(message);
    }
    MessageData* AnyMessage() {
        FolderData& folder = AnyFolder();
        if (folder.messages.empty()) return nullptr;
        return &folder.messages[static_cast<std::size_t>(
            Roll(static_cast<int>(folder.messages.size())))];
    }
    void Change() {
        MessageData* message = AnyMessage();
        if (message == nullptr) return;
        Tell("change");
        message->attachments = SomeAttachments();
        ++message->revision;
        message->modified = world_.clock.utc;
    }
    void Flag() {
        if (MessageData* message = AnyMessage()) message->modified = world_.clock.utc;
    }
    void AddFolder() {
        Tell("add folder");
        const std::string id = "FF" + std::to_string(++folder_ids_);
        folders_.push_back(&AnyFolder().Add(id, "Folder" + id));
    }
    void RenameFolder() {
        Tell("rename folder");
        FolderData& folder = AnyFolder();
        if (!IsTop(folder)) folder.name += "x";
    }
    static bool IsTop(const FolderData& folder) { return folder.id == "F1" || folder.id == "F2"; }
    void Forget(const FolderData& folder) {
        std::erase(folders_, &folder);
        for (const auto& child : folder.folders)
            Forget(*child);
    }
    void RemoveFolder() {
        FolderData& folder = AnyFolder();
        if (IsTop(folder)) return;
        Tell("remove folder");
        Forget(folder);
        std::erase_if(folder.parent->folders,
                      [&](const auto& child) { return child.get() == &folder; });
    }
    void Compress() {
        Tell("compress");
        world_.clock.AdvanceMinutes(10);
        world_.Run();
    }
    void CancelledRun() {
        Tell("cancelled run");
        world_.clock.AdvanceMinutes(10);
        const int when = 1 + Roll(12);
        const int before = world_.loop.pumps;
        world_.loop.on_pump = [this, when, before](int pump) {
            if (pump == before + when) world_.index().Cancel(true);
        };
        Run(Roll(3) == 0);
        world_.loop.on_pump = nullptr;
    }
    void FailingRun() {
        world_.clock.AdvanceMinutes(10);
        if (world_.session == nullptr) world_.Logon();
        const int nth = static_cast<int>(world_.plan.calls().size()) + 1 + Roll(900);
        const bool dies = Roll(2) == 0;
        Tell(dies ? "run dies" : "run with a fault");
        world_.plan.FailCall(nth, dies ? FaultPlan::Mode::kFromThenOn : FaultPlan::Mode::kOnce,
                             MessagingError(kDiskError));
        Run(Roll(4) == 0);
        world_.plan.Clear();
        if (dies) world_.Restart();
    }
    void Restart() {
        Tell("restart");
        world_.Restart();
    }
    // Mail comes and changes while the scan goes on.
    void DeliverDuringRun() {
        Tell("deliver during run");
        world_.clock.AdvanceMinutes(10);
        const int when = world_.loop.pumps + 1 + Roll(8);
        FolderData* folder = &AnyFolder();
        world_.loop.on_pump = [this, when, folder](int pump) {
            if (pump == when) DeliverTo(*folder);
            if (pump == when + 1) Change();
            if (Roll(2) == 0) world_.clock.AdvanceMinutes(0.05);
        };
        Run(false);
        world_.loop.on_pump = nullptr;
    }
    fakes::AttachmentData* Saved(const std::string& name) {
        if (world_.Results() == nullptr) return nullptr;
        for (auto& attachment : world_.Results()->attachments) {
            if (attachment.name == name) return &attachment;
        }
        return nullptr;
    }
    void KeepSaved() {
        const fakes::AttachmentData* folders = Saved("txfolders.zip");
        const fakes::AttachmentData* index = Saved("txattach.zip");
        if (folders != nullptr) older_folders_ = folders->data;
        const bool whole = index != nullptr && !world_.zip.EntriesOf(index->data).empty();
        if (whole) older_index_ = index->data;
    }
    // Another process saved the records that it had read before our last run.
    void FoldersOfAnOlderRun() {
        fakes::AttachmentData* folders = Saved("txfolders.zip");
        if (folders == nullptr || older_folders_.empty()) return;
        Tell("older folders");
        folders->data = older_folders_;
    }
    // What a program that died in the middle of a load left behind.
    void LocalCopyOfAnOlderIndex() {
        if (older_index_.empty() || world_.session == nullptr) return;
        Tell("local copy");
        const std::string path = world_.ci.gZipTemp + "txattach.";
        world_.files.Put(path + "zip", older_index_);
        world_.files.Put(path + "adtg", world_.zip.EntriesOf(older_index_).front().second);
    }
    void LoseIndex() {
        fakes::AttachmentData* index = Saved("txattach.zip");
        if (index == nullptr) return;
        Tell("lose index");
        if (Roll(2) == 0) {
            index->data = "damaged";
        } else {
            std::erase_if(world_.Results()->attachments,
                          [](const auto& attachment) { return attachment.name == "txattach.zip"; });
        }
    }
    void ResetFolders() {
        Tell("reset folders");
        world_.Setting("ResetFolderRST", "True");
    }
    void OneStoreOnly() {
        Tell("one store only");
        world_.clock.AdvanceMinutes(10);
        Run(Roll(4) == 0, Roll(2) == 0 ? "51" : "52");
    }

    IndexWorld world_;
    std::mt19937 dice_;
    std::vector<FolderData*> folders_;
    int made_ = 0;
    int folder_ids_ = 0;
    std::string told_;
    std::string older_folders_;
    std::string older_index_;
};

TEST(IndexHistory, AnUpdateGivesTheRowsOfANewIndexAfterAnyHistory) {
    for (unsigned seed = 1; seed <= 200; ++seed) {
        History history(seed);
        for (int step = 0; step < 42; ++step) {
            history.Step();
            if (step % 7 != 6) continue;
            history.Update();
            ASSERT_TRUE(history.world().End().starts_with("Complete "))
                << seed << ": " << history.world().End() << "\n"
                << history.Told();
            ASSERT_EQ(history.world().SortedRows(), history.NewIndex())
                << "seed " << seed << ": " << history.Told();
        }
    }
}

}  // namespace
}  // namespace trevix
