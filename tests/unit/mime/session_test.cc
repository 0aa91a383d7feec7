// Sessions, folders, listings, tables and entry IDs.

#include <cmath>

#include "platform/mime/dates.h"
#include "platform/mime/entry_id.h"
#include "unit/mime/mime_world.h"

namespace trevix::mime {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

int ReadsOf(const World& world) {
    int reads = 0;
    for (const std::string& call : world.plan.calls())
        reads += call == "mail.Read" ? 1 : 0;
    return reads;
}

std::unique_ptr<Messages> InboxMessages(World& world) {
    return world.session->GetDefaultFolder(kInboxFolder).value()->MessageList().value();
}

TEST(MessagingSession, RefusesEverythingBeforeTheLogon) {
    World world;
    auto session = world.factory->CreateSession().value();
    EXPECT_EQ(session->GetDefaultFolder(1).error().number, static_cast<int>(kNotInitialized));
    EXPECT_EQ(session->InfoStores().error().number, static_cast<int>(kNotInitialized));
    EXPECT_EQ(session->CurrentUserName().value(), "");
    EXPECT_EQ(session->Logon({"nobody", ""}).error().number, static_cast<int>(kLogonFailed));
}

TEST(MessagingSession, KnowsItsUserUntilTheLogoff) {
    World world;
    EXPECT_EQ(world.session->CurrentUserName().value(), "me");
    ASSERT_TRUE(world.session->Logoff().ok());
    EXPECT_EQ(world.session->CurrentUserName().value(), "");
    EXPECT_EQ(world.utilities->OpenMessage("00", "").error().number,
              static_cast<int>(kNotInitialized));
}

TEST(FolderTree, BeginsWithTheInboxAndNests) {
    World world;
    world.mail.AddFolder("Archive", "Archive");
    world.mail.AddFolder("Archive/2007", "2007");
    world.mail.AddFolder("Lost/Parent", "Parent");
    world.mail.AddFolder("Archive/2007/May", "May");

    auto root = world.session->GetInfoStore("").value()->RootFolder().value();
    EXPECT_EQ(root->Name().value(), "IPM_SUBTREE");
    EXPECT_EQ(root->FolderId().error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(root->MessageList().value()->Count().value(), 0);
    auto top = root->Folders().value();
    ASSERT_EQ(top.size(), 3U);
    EXPECT_EQ(top[0]->Name().value(), "Inbox");
    EXPECT_EQ(top[1]->Name().value(), "Archive");
    EXPECT_EQ(top[2]->Name().value(), "Parent");
    EXPECT_EQ(root->FolderCount().value(), 3);
    EXPECT_EQ(top[1]->FolderId().value(), root->Id().value());
    auto years = top[1]->Folders().value();
    ASSERT_EQ(years.size(), 1U);
    EXPECT_EQ(years[0]->Folders().value()[0]->Name().value(), "May");
    EXPECT_EQ(years[0]->FolderId().value(), top[1]->Id().value());
    EXPECT_EQ(std::get<std::string>(top[1]->Field(kTagContainerClass).value()), "IPF.Note");

    auto again = world.session->GetFolder(years[0]->Id().value(), root->StoreId().value()).value();
    EXPECT_TRUE(again->IsSameAs(*years[0]).value());
    EXPECT_FALSE(again->IsSameAs(*root).value());
    EXPECT_TRUE(world.session->GetDefaultFolder(kInboxFolder).value()->IsSameAs(*top[0]).value());
}

TEST(FolderTree, ShowsNewFoldersAtTheNextWalk) {
    World world;
    auto store = world.session->GetInfoStore("").value();
    EXPECT_EQ(store->RootFolder().value()->FolderCount().value(), 1);
    world.mail.AddFolder("New", "New");
    EXPECT_EQ(store->RootFolder().value()->FolderCount().value(), 2);
}

TEST(EntryIds, HaveTheirSizesAndTheirErrors) {
    World world;
    auto message = world.Open("Subject: x\n\nbody");
    auto inbox = world.session->GetDefaultFolder(kInboxFolder).value();
    EXPECT_EQ(inbox->StoreId().value().size(), 38U * 2);
    EXPECT_EQ(inbox->Id().value().size(), 46U * 2);
    const std::string id = world.IdOf(message->Field(kTagEntryId).value());
    EXPECT_EQ(id.size(), 70U * 2);
    EXPECT_EQ(id.find_first_not_of("0123456789ABCDEF"), std::string::npos);

    EXPECT_EQ(world.utilities->OpenMessage("xyz", "").error().number,
              static_cast<int>(kInvalidEntryId));
    EXPECT_EQ(world.utilities->OpenMessage(inbox->Id().value(), "").error().number,
              static_cast<int>(kInvalidEntryId));
    std::string unknown = id;
    unknown[95] = unknown[95] == '0' ? '1' : '0';
    EXPECT_EQ(world.utilities->OpenMessage(unknown, "").error().number,
              static_cast<int>(kNotFound));
    EXPECT_EQ(world.session->GetFolder(id, "").error().number, static_cast<int>(kInvalidEntryId));
    std::string lower = id;
    for (char& c : lower)
        c = static_cast<char>(std::tolower(c));
    EXPECT_TRUE(world.utilities->OpenMessage(lower, inbox->StoreId().value()).ok());
}

TEST(EntryIds, FindAMessageThatMovedToAnotherFolder) {
    World world;
    world.mail.AddFolder("Archive", "Archive");
    auto message = world.Open(TwoFiles());
    const std::string id = world.IdOf(message->Field(kTagEntryId).value());
    auto moved = world.mail.root.messages.back();
    world.mail.RemoveMessage("", moved.key);
    world.mail.Find("Archive")->messages.push_back(moved);
    ++world.mail.Find("Archive")->generation;

    auto found = world.utilities->OpenMessage(id, "");

    ASSERT_TRUE(found.ok()) << found.error().description;
    EXPECT_EQ(found.value()->Subject().value(), "two");
    EXPECT_NE(world.IdOf(found.value()->Field(kTagEntryId).value()), id);
}

TEST(MessageListing, ParsesAMessageOnceInItsLife) {
    World world;
    for (int i = 0; i < 200; ++i)
        world.Deliver(TwoFiles());
    EXPECT_EQ(InboxMessages(world)->Count().value(), 200);
    EXPECT_EQ(ReadsOf(world), 200);
    InboxMessages(world);
    EXPECT_EQ(ReadsOf(world), 200);

    // A later session takes the summaries from the cache.
    auto later = world.factory->CreateSession().value();
    ASSERT_TRUE(later->Logon({"fake", ""}).ok());
    auto messages = later->GetDefaultFolder(kInboxFolder).value()->MessageList().value();
    EXPECT_EQ(ReadsOf(world), 200);
    EXPECT_EQ(messages->Count().value(), 200);
    world.Deliver("Subject: new\n\nx");
    EXPECT_EQ(later->GetDefaultFolder(1).value()->MessageList().value()->Count().value(), 201);
    EXPECT_EQ(ReadsOf(world), 201);
}

TEST(MessageListing, GivesRowsWithTheAskedColumns) {
    World world;
    world.mail.now_ns = 1'191'585'600 * kSecond + 123'456'789;  // 2007-10-05 12:00 UTC
    world.Deliver(TwoFiles());
    auto messages = InboxMessages(world);
    const auto rows =
        world.Rows(*messages, {kTagLongTermEntryId, kTagEntryId, kTagLastModification, 0x0037001F,
                               kTagMessageClass, kTagArticleNumber, 0x3613001E});
    ASSERT_EQ(rows.size(), 1U);
    ASSERT_EQ(rows[0].size(), 7U);
    EXPECT_EQ(world.IdOf(rows[0][0]), world.IdOf(rows[0][1]));
    const double expected = 39360.5 + 0.123456789 / 86400;
    EXPECT_NEAR(std::get<Date>(rows[0][2]).days, expected, 1e-11);
    EXPECT_EQ(std::get<std::string>(rows[0][3]), "two");
    EXPECT_EQ(std::get<std::string>(rows[0][4]), "IPM.Note");
    EXPECT_TRUE(std::holds_alternative<std::int32_t>(rows[0][5]));
    EXPECT_EQ(std::get<ErrorValue>(rows[0][6]).code, kNotFound);
}

TEST(MessageListing, FiltersAndSortsNewestFirst) {
    World world;
    const std::string with = TwoFiles();
    for (int i = 0; i < 4; ++i) {
        world.mail.now_ns += (i == 2 ? 0 : kSecond);
        std::string text = i == 1 ? "Subject: s1\n\nx" : with;
        world.Deliver(
            text.replace(text.find("Subject: ") + 9, i == 1 ? 2 : 3, "s" + std::to_string(i)));
    }
    auto messages = InboxMessages(world);
    ASSERT_TRUE(messages->AddFilter(kTagHasAttachments, true).ok());
    EXPECT_EQ(messages->Count().value(), 3);
    ASSERT_TRUE(messages->Sort(kSortDescending, kTagLastModification).ok());
    std::vector<std::string> subjects;
    for (const auto& row : world.Rows(*messages, {kTagSubject})) {
        subjects.push_back(std::get<std::string>(row[0]));
    }
    EXPECT_EQ(subjects, (std::vector<std::string>{"s3", "s2", "s0"}));
    EXPECT_EQ(messages->AddFilter(kTagRtfBody, true).error().number, static_cast<int>(kTooComplex));
    ASSERT_TRUE(messages->ClearFilter().ok());
    EXPECT_EQ(messages->Count().value(), 4);
}

TEST(MessageListing, KeepsTheOrderOfEqualTimes) {
    World world;
    for (int i = 0; i < 5; ++i)
        world.Deliver("Subject: s" + std::to_string(i) + "\n\nx");
    auto messages = InboxMessages(world);
    ASSERT_TRUE(messages->Sort(kSortDescending, kTagLastModification).ok());
    const auto rows = world.Rows(*messages, {kTagSubject});
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(std::get<std::string>(rows[i][0]), "s" + std::to_string(i));
    }
}

TEST(ModificationTime, IsTheFirstSightOfWhatComesLater) {
    World world;
    world.mail.now_ns = 1'000'000'000 * kSecond;  // long before the clock's time
    world.Deliver("Subject: old\n\nx");
    InboxMessages(world);
    world.Deliver("Subject: moved in\n\nx");

    const auto rows = world.Rows(*InboxMessages(world), {kTagLastModification});

    EXPECT_NEAR(std::get<Date>(rows[0][0]).days, DateFromUnixNs(world.mail.now_ns).days, 1e-9);
    EXPECT_NEAR(std::get<Date>(rows[1][0]).days, world.clock.utc.days, 2e-5);
}

TEST(ModificationTime, OfOwnReplacementsIsTheirWrite) {
    World world;
    world.mail.now_ns = 1'000'000'000 * kSecond;
    world.Deliver("Subject: first contact\n\nx");
    InboxMessages(world);
    auto message = world.Open(TwoFiles());  // first seen at the clock's time
    ASSERT_TRUE(ItemOf(*message, 1)->SetField(kTagAttachmentData, Bytes("zip")).ok());
    world.mail.now_ns = 1'100'000'000 * kSecond;
    ASSERT_TRUE(message->Update().ok());

    const auto rows = world.Rows(*InboxMessages(world), {kTagLastModification});
    EXPECT_NEAR(std::get<Date>(rows[1][0]).days, DateFromUnixNs(world.mail.now_ns).days, 1e-9);
    EXPECT_NEAR(std::get<Date>(message->Field(kTagLastModification).value()).days,
                DateFromUnixNs(world.mail.now_ns).days, 1e-9);
}

TEST(ModificationTime, OfOwnReplacementsIsNotLaterThanAMarkOfTheSameSecond) {
    World world;
    auto message = world.Open(TwoFiles());
    ASSERT_TRUE(ItemOf(*message, 1)->SetField(kTagAttachmentData, Bytes("zip")).ok());
    world.mail.now_ns = 2'100'000'000 * kSecond + 999'999'999;
    ASSERT_TRUE(message->Update().ok());
    const Date second = DateFromUnixNs(2'100'000'000 * kSecond);

    const auto rows = world.Rows(*InboxMessages(world), {kTagLastModification});

    EXPECT_EQ(std::get<Date>(rows[0][0]), second);
    EXPECT_EQ(std::get<Date>(message->Field(kTagLastModification).value()), second);
}

TEST(ModificationTime, OfOthersChangesIsLaterThanAMarkOfTheSameSecond) {
    World world;
    world.mail.now_ns = 2'100'000'000 * kSecond + 1000;
    world.Deliver("Subject: theirs\n\nx");

    const auto rows = world.Rows(*InboxMessages(world), {kTagLastModification});

    EXPECT_GT(std::get<Date>(rows[0][0]).days, DateFromUnixNs(2'100'000'000 * kSecond).days);
}

TEST(ModificationTime, IsKeptBetweenSessions) {
    World world;
    world.mail.now_ns = 1'000'000'000 * kSecond;
    world.Deliver("Subject: old\n\nx");
    InboxMessages(world);
    world.Deliver("Subject: new\n\nx");
    const auto before = world.Rows(*InboxMessages(world), {kTagLastModification});
    world.clock.AdvanceMinutes(1000);

    auto later = world.factory->CreateSession().value();
    ASSERT_TRUE(later->Logon({"fake", ""}).ok());
    auto messages = later->GetDefaultFolder(1).value()->MessageList().value();
    const auto after = world.Rows(*messages, {kTagLastModification});

    EXPECT_EQ(std::get<Date>(after[0][0]), std::get<Date>(before[0][0]));
    EXPECT_EQ(std::get<Date>(after[1][0]), std::get<Date>(before[1][0]));
}

TEST(MessageListing, DoesNotReadOwnReplacementsAgain) {
    World world;
    auto message = world.Open(TwoFiles());
    ASSERT_TRUE(ItemOf(*message, 1)->SetField(kTagAttachmentData, Bytes("zip")).ok());
    ASSERT_TRUE(message->Update().ok());
    const int reads = ReadsOf(world);

    EXPECT_EQ(InboxMessages(world)->Count().value(), 1);

    EXPECT_EQ(ReadsOf(world), reads);
}

TEST(MessageListing, OfAFolderWeWroteToIsCurrentForTheNextSession) {
    World world;
    auto message = world.Open(TwoFiles());
    ASSERT_TRUE(ItemOf(*message, 1)->SetField(kTagAttachmentData, Bytes("zip")).ok());
    ASSERT_TRUE(message->Update().ok());
    message.reset();
    world.session.reset();

    MailListing known;
    known.stamp = world.cache.Load(world.mail.address(), "").value().stamp;

    EXPECT_FALSE(world.mail.List("", &known).value().changed);
}

TEST(MessageListing, CountsWhatCannotBeReadAsHavingAttachments) {
    World world;
    world.Deliver("Subject: x\n\nx");
    world.plan.FailCalls("mail.Read", MessagingError(kDiskError));
    auto messages = InboxMessages(world);
    ASSERT_TRUE(messages->AddFilter(kTagHasAttachments, true).ok());
    EXPECT_EQ(messages->Count().value(), 1);

    // It is tried again as soon as somebody looks.
    world.plan.Clear();
    messages = InboxMessages(world);
    ASSERT_TRUE(messages->AddFilter(kTagHasAttachments, true).ok());
    EXPECT_EQ(messages->Count().value(), 0);
}

TEST(MessageListing, ShowsAMessageBeyondTheLimitsSoThatItIsReported) {
    std::string deep = "Subject: deep\n";
    for (int i = 0; i < 150; ++i) {
        const std::string b = "b" + std::to_string(i);
        deep += "Content-Type: multipart/mixed; boundary=" + b + "\n\n--" + b + "\n";
    }
    World world;
    world.Deliver(deep);
    auto messages = InboxMessages(world);
    ASSERT_TRUE(messages->AddFilter(kTagHasAttachments, true).ok());
    const auto rows = world.Rows(*messages, {kTagEntryId});
    ASSERT_EQ(rows.size(), 1U);
    const auto opened = world.utilities->OpenMessage(world.IdOf(rows[0][0]), "");
    EXPECT_EQ(opened.error().number, static_cast<int>(kCorruptData));
    EXPECT_NE(opened.error().description.find("skipped"), std::string::npos);
}

TEST(MessageListing, LeavesOutWhatVanishes) {
    World world;
    world.Deliver("Subject: x\n\nx");
    world.plan.FailCalls("mail.Read", MessagingError(kObjectDeleted));
    EXPECT_EQ(InboxMessages(world)->Count().value(), 0);
}

class BrokenCache final : public SummaryCache {
 public:
    Result<bool> KnowsStore(const std::string&) override { return MessagingError(kDiskError); }
    Result<FolderSummary> Load(const std::string&, const std::string&) override {
        return MessagingError(kDiskError);
    }
    Status Save(const std::string&, const std::string&, const FolderSummary&,
                const FolderSummary&) override {
        return MessagingError(kDiskError);
    }
};

TEST(MessageListing, LivesWithoutACache) {
    World world;
    world.Deliver(TwoFiles());
    BrokenCache cache;
    auto factory = MessagingFactoryOver(world.provider, cache, world.clock);
    auto session = factory->CreateSession().value();
    ASSERT_TRUE(session->Logon({"fake", ""}).ok());
    EXPECT_EQ(session->GetDefaultFolder(1).value()->MessageList().value()->Count().value(), 1);
}

TEST(MessageListing, SurvivesAFailureOfAnyCall) {
    World dry;
    dry.Open(TwoFiles());
    const int calls = static_cast<int>(dry.plan.calls().size());
    for (int nth = 1; nth <= calls; ++nth) {
        World world;
        world.Deliver(TwoFiles());
        world.plan.FailCall(static_cast<int>(world.plan.calls().size()) + nth,
                            fakes::FaultPlan::Mode::kOnce, MessagingError(kDiskError));
        auto inbox = world.session->GetDefaultFolder(kInboxFolder);
        if (!inbox.ok()) continue;
        auto messages = inbox.value()->MessageList();
        if (messages.ok()) {
            EXPECT_EQ(messages.value()->Count().value(), 1);
        }
    }
}

TEST(DateFromUnixNs, NeverRoundsDown) {
    for (std::int64_t i = 0; i < 2000; ++i) {
        const std::int64_t ns = 1'700'000'000 * kSecond + i * 7'919'317;
        const long double exact = 25569.0L + static_cast<long double>(ns) /
                                                 (86400.0L * static_cast<long double>(kSecond));
        const auto days = static_cast<long double>(DateFromUnixNs(ns).days);
        EXPECT_GE(days - exact, -1e-15L * exact);
        EXPECT_LT(days - exact, 2e-11L);
    }
    EXPECT_EQ(DateFromUnixNs(0).days, 25569.0);
    EXPECT_EQ(DateFromUnixNs(-25569 * std::int64_t{86400} * kSecond - 18 * 3600 * kSecond).days,
              -1.25);
}

TEST(DateFromUnixNs, GivesAWholeSecondAsTheClockGivesIt) {
    for (std::int64_t second = 1'700'000'000; second < 1'700'002'000; ++second) {
        EXPECT_EQ(DateFromUnixNs(second * kSecond).days,
                  static_cast<double>(second + 25569 * std::int64_t{86400}) / 86400.0);
    }
}

}  // namespace
}  // namespace trevix::mime
