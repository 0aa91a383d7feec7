// Replacing messages on real servers: what stays, what other programs do meanwhile, and what a
// death or a cut connection at any moment leaves.
#include "platform/imap/replacement.h"

#include <signal.h>
#include <sys/wait.h>

#include <array>

#include "unit/imap/cutting_proxy.h"
#include "unit/imap/store_world.h"

namespace trevix::imap {
namespace {

constexpr std::int64_t kPatience = std::int64_t{3600} * 1'000'000'000;

const std::string kOld = StoreWorld::MailOf("the old message");
const std::string kNew = StoreWorld::MailOf("the new message, not of the same length");

Result<MailEntry> Replace(MailStore& store, const MailEntry& entry, const std::string& content) {
    auto staged = store.Stage("INBOX", entry, Blob::FromString(content));
    if (!staged.ok()) return staged.error();
    return staged.value()->Commit();
}

class Replacement : public testing::TestWithParam<const char*> {
 protected:
    void SetUp() override {
        world_ = std::make_unique<StoreWorld>(GetParam());
        TREVIX_NEEDS(*world_);
    }
    std::unique_ptr<StoreWorld> world_;
};

INSTANTIATE_TEST_SUITE_P(Servers, Replacement, testing::Values("dovecot", "cyrus"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(Replacement, KeepsFlagsKeywordsAndReceivedTime) {
    world_->Deliver(kOld, {"\\Seen", "\\Flagged", "$Work", "later"});
    world_->Deliver(StoreWorld::MailOf("another"), {"\\Deleted"});
    const DateTime received = world_->Mail().front().received;
    auto store = world_->Open();

    const auto placed = Replace(*store, Listed(*store).front(), kNew);

    ASSERT_TRUE(placed.ok()) << placed.error().description;
    store.reset();
    const std::vector<SeenMail> mails = world_->Mail();
    ASSERT_EQ(mails.size(), 2U) << "a message that others have marked is not expunged with it";
    EXPECT_EQ(mails[0].content, StoreWorld::MailOf("another"));
    EXPECT_EQ(mails[1].content, kNew);
    EXPECT_EQ(mails[1].flags, ComparableFlags({"\\Seen", "\\Flagged", "$Work", "later"}));
    EXPECT_EQ(mails[1].received.unix_seconds, kReceivedSeconds);
    EXPECT_EQ(mails[1].received, received) << "with its time zone, where the server keeps that";
    EXPECT_TRUE(world_->Journals().empty());
}

TEST_P(Replacement, LeavesAMessageAloneThatIsMarkedAsDeleted) {
    world_->Deliver(kOld, {"\\Deleted"});
    auto store = world_->Open();

    const auto placed = Replace(*store, Listed(*store).front(), kNew);

    ASSERT_FALSE(placed.ok());
    EXPECT_EQ(placed.error().kind, ErrorKind::kDenied);
    EXPECT_EQ(world_->Mail().size(), 1U);
    EXPECT_EQ(world_->Mail().front().content, kOld);
}

TEST_P(Replacement, IsWholeAfterADeathAtEachStep) {
    for (const Step step : {Step::kStaged, Step::kCompared, Step::kRecorded, Step::kAppended,
                            Step::kProved, Step::kMarked, Step::kExpunged}) {
        SCOPED_TRACE(static_cast<int>(step));
        world_->Clear();
        world_->Deliver(kOld, {"\\Seen", "$Work"});
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            auto store = world_->Open();
            store->SetStepHook([step](Step now) {
                if (now == step) ::kill(::getpid(), SIGKILL);
            });
            (void)Replace(*store, Listed(*store).front(), kNew).ok();
            ::_exit(1);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));

        world_->clock.now_ns += kPatience;
        world_->Open().reset();

        const std::vector<SeenMail> mails = world_->Mail();
        ASSERT_EQ(mails.size(), 1U);
        EXPECT_EQ(mails[0].content, step < Step::kAppended ? kOld : kNew);
        EXPECT_EQ(mails[0].flags, ComparableFlags({"\\Seen", "$Work"}));
        EXPECT_TRUE(world_->Journals().empty());
    }
}

TEST_P(Replacement, CarriesOverWhatChangesMeanwhile) {
    for (const Step step : {Step::kCompared, Step::kRecorded, Step::kAppended, Step::kProved}) {
        SCOPED_TRACE(static_cast<int>(step));
        world_->Clear();
        world_->Deliver(kOld, {"\\Seen", "$Work"});
        auto store = world_->Open();
        const MailEntry entry = Listed(*store).front();
        const std::uint32_t uid = DecodeLocator(entry.locator)->uid;
        store->SetStepHook([&](Step now) {
            if (now != step) return;
            world_->Change(uid, FlagChange::kAdd, {"\\Answered"});
            world_->Change(uid, FlagChange::kRemove, {"\\Seen"});
        });

        const auto placed = Replace(*store, entry, kNew);

        ASSERT_TRUE(placed.ok()) << placed.error().description;
        const std::vector<SeenMail> mails = world_->Mail();
        ASSERT_EQ(mails.size(), 1U);
        EXPECT_EQ(mails[0].content, kNew);
        EXPECT_EQ(mails[0].flags, ComparableFlags({"\\Answered", "$Work"}));
    }
}

TEST_P(Replacement, GivesWayToWhoRemovesTheMessage) {
    for (const Step step : {Step::kCompared, Step::kRecorded, Step::kAppended, Step::kProved}) {
        SCOPED_TRACE(static_cast<int>(step));
        world_->Clear();
        world_->Deliver(kOld);
        auto store = world_->Open();
        const MailEntry entry = Listed(*store).front();
        store->SetStepHook([&](Step now) {
            if (now == step) world_->Remove(DecodeLocator(entry.locator)->uid);
        });

        const auto placed = Replace(*store, entry, kNew);

        ASSERT_FALSE(placed.ok());
        EXPECT_EQ(placed.error().kind, ErrorKind::kGone);
        EXPECT_TRUE(world_->Mail().empty());
        store.reset();
        EXPECT_TRUE(world_->Journals().empty());
    }
}

TEST_P(Replacement, GivesWayToWhoMarksTheMessageAsDeleted) {
    for (const Step step : {Step::kCompared, Step::kAppended, Step::kProved}) {
        SCOPED_TRACE(static_cast<int>(step));
        world_->Clear();
        world_->Deliver(kOld);
        auto store = world_->Open();
        const MailEntry entry = Listed(*store).front();
        store->SetStepHook([&](Step now) {
            if (now != step) return;
            world_->Change(DecodeLocator(entry.locator)->uid, FlagChange::kAdd, {kDeleted});
        });

        const auto placed = Replace(*store, entry, kNew);

        ASSERT_FALSE(placed.ok());
        EXPECT_EQ(placed.error().kind, ErrorKind::kChanged);
        const std::vector<SeenMail> mails = world_->Mail();
        ASSERT_EQ(mails.size(), 1U);
        EXPECT_EQ(mails[0].content, kOld);
        EXPECT_EQ(mails[0].flags, Flags{kDeleted}) << "it stays marked by whoever did it";
    }
}

TEST_P(Replacement, KeepsTheOldMessageWhenTheNewOneIsTakenAway) {
    for (const Step step : {Step::kAppended, Step::kProved}) {
        SCOPED_TRACE(static_cast<int>(step));
        world_->Clear();
        world_->Deliver(kOld);
        auto store = world_->Open();
        store->SetStepHook([&](Step now) {
            if (now == step) world_->Remove(world_->Mail().back().uid);
        });

        EXPECT_FALSE(Replace(*store, Listed(*store).front(), kNew).ok());

        const std::vector<SeenMail> mails = world_->Mail();
        ASSERT_EQ(mails.size(), 1U);
        EXPECT_EQ(mails[0].content, kOld);
        EXPECT_TRUE(mails[0].flags.empty());
    }
}

// A store whose connection goes through a proxy, without encryption: so the bytes can be counted.
std::unique_ptr<ImapStore> OpenThrough(StoreWorld& world, const CuttingProxy& proxy) {
    auto store = ImapStore::Open(
        world.Plan(),
        [&]() -> Result<std::unique_ptr<Client>> {
            ConnectSettings settings;
            settings.host = "127.0.0.1";
            settings.port = proxy.port();
            settings.security = Security::kPlainLoopbackOnly;
            auto client = Client::Connect(settings);
            if (!client.ok()) return client.error();
            const std::string password = world.server.password("ann");
            Credentials credentials;
            credentials.user = "ann";
            credentials.secret = password;
            const Status logged_in = client.value()->LogIn(credentials);
            if (!logged_in.ok()) return logged_in.error();
            return client;
        },
        [](std::chrono::milliseconds) {}, world.clock);
    EXPECT_TRUE(store.ok()) << store.error().description;
    return store.ok() ? std::move(store).value() : nullptr;
}

// Commits with the connection cut after `budget` bytes in one direction; true when it was done.
bool CommitAndCut(StoreWorld& world, CuttingProxy& proxy, int direction, std::int64_t budget,
                  std::int64_t* passed) {
    world.Clear();
    world.Deliver(kOld, {"\\Seen", "$Work"});
    auto store = OpenThrough(world, proxy);
    auto staged = store->Stage("INBOX", Listed(*store).front(), Blob::FromString(kNew));
    EXPECT_TRUE(staged.ok());
    proxy.CutAfter(direction == 0 ? budget : CuttingProxy::kNever,
                   direction == 1 ? budget : CuttingProxy::kNever);
    const bool done = staged.value()->Commit().ok();
    if (passed != nullptr) *passed = proxy.Passed(direction, budget);
    proxy.CutAfter(CuttingProxy::kNever, CuttingProxy::kNever);
    return done;
}

void CutEverywhere(StoreWorld& world, int direction) {
    CuttingProxy proxy(static_cast<std::uint16_t>(world.server.port()));
    constexpr std::int64_t kPlenty = 1'000'000;
    std::int64_t whole = 0;
    ASSERT_TRUE(CommitAndCut(world, proxy, direction, kPlenty, &whole));
    ASSERT_GT(whole, 300);
    // Not every byte: the steps of the dialogue are longer than this.
    constexpr std::int64_t kStride = 11;
    for (std::int64_t budget = 0; budget < whole; budget += kStride) {
        SCOPED_TRACE(budget);
        const bool done = CommitAndCut(world, proxy, direction, budget, nullptr);
        world.clock.now_ns += kPatience;
        world.Open().reset();

        const std::vector<SeenMail> mails = world.Mail();
        ASSERT_EQ(mails.size(), 1U);
        ASSERT_TRUE(mails[0].content == kOld || mails[0].content == kNew);
        ASSERT_TRUE(!done || mails[0].content == kNew);
        ASSERT_EQ(mails[0].flags, ComparableFlags({"\\Seen", "$Work"}));
        ASSERT_EQ(mails[0].received.unix_seconds, kReceivedSeconds);
        ASSERT_TRUE(world.Journals().empty());
    }
}

TEST_P(Replacement, IsWholeWhereverWhatIsSentIsCut) {
    CutEverywhere(*world_, 0);
}

TEST_P(Replacement, IsWholeWhereverTheAnswersAreCut) {
    CutEverywhere(*world_, 1);
}

TEST_P(Replacement, TouchesNothingInAMailboxThatWasMadeAnew) {
    JournalRecord record;
    record.mailbox = "INBOX";
    record.uid_validity = 1;
    record.old_uid = 1;
    record.least_new_uid = 2;
    record.size_bytes = 5;
    record.digest = "x";
    world_->Deliver(kOld);
    const pid_t child = ::fork();
    if (child == 0) {
        auto journal = Journal::Create(world_->state(), world_->Plan().address);
        (void)journal.value()->Begin(record).ok();
        ::kill(::getpid(), SIGKILL);
    }
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);

    std::vector<std::string> told;
    StorePlan plan = world_->Plan();
    plan.tell = [&told](const std::string& sentence) { told.push_back(sentence); };
    const auto store = world_->Open(std::move(plan));

    ASSERT_EQ(told.size(), 1U);
    EXPECT_NE(told[0].find("INBOX"), std::string::npos);
    EXPECT_EQ(world_->Mail().size(), 1U);
    EXPECT_TRUE(world_->Journals().empty());
}

}  // namespace
}  // namespace trevix::imap
