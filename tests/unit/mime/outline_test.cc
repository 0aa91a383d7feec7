// Messages that a store hands out in outline, and reading ahead.

#include <cstdio>

#include "platform/mime/read_message.h"
#include "platform/mime/upcoming.h"
#include "unit/mime/mime_world.h"

namespace trevix::mime {
namespace {

// "hello, world" and "second file" as attachments.
std::string TwoAttachments() {
    return "From: a@example.com\r\nSubject: two\r\nMIME-Version: 1.0\r\n"
           "Content-Type: multipart/mixed; boundary=b\r\n\r\n"
           "--b\r\nContent-Type: text/plain\r\n\r\nThe text.\r\n"
           "--b\r\nContent-Type: application/zip; name=one.bin\r\n"
           "Content-Transfer-Encoding: base64\r\n\r\naGVsbG8sIHdvcmxk\r\n"
           "--b\r\nContent-Type: application/zip; name=two.bin\r\n"
           "Content-Transfer-Encoding: base64\r\n\r\nc2Vjb25kIGZpbGU=\r\n"
           "--b--\r\n";
}

// Counts how often somebody asks for the bytes.
class CountedSource final : public Blob::Source {
 public:
    CountedSource(std::string bytes, int& reads) : bytes_(std::move(bytes)), reads_(reads) {}
    std::uint64_t size_bytes() const override { return bytes_.size(); }
    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        ++reads_;
        bytes_.copy(target, count, static_cast<std::size_t>(offset));
        return {};
    }

 private:
    std::string bytes_;
    int& reads_;
};

// The message with the contents of its base64 parts left out.
MailOutline OutlineOf(const std::string& message, int& reads) {
    MailOutline outline;
    outline.exact = false;
    std::string skeleton = message;
    for (const char* content : {"aGVsbG8sIHdvcmxk", "c2Vjb25kIGZpbGU="}) {
        const std::size_t at = skeleton.find(content);
        if (at == std::string::npos) continue;
        const std::string bytes = content;
        skeleton.replace(at, bytes.size(), "x");
        MailOutline::Gap gap;
        gap.offset = at;
        gap.content = Blob(std::make_shared<CountedSource>(bytes, reads));
        gap.decoded_bytes = bytes.ends_with('=') ? 11 : 12;
        outline.gaps.push_back(std::move(gap));
    }
    outline.skeleton = Blob::FromString(std::move(skeleton));
    return outline;
}

TEST(TakeApart, AnOutlineHasThePartsOfItsMessage) {
    int reads = 0;
    const ReadMessage whole = TakeApart(Blob::FromString(TwoAttachments())).value();
    const ReadMessage outline = TakeApart(OutlineOf(TwoAttachments(), reads)).value();

    EXPECT_FALSE(outline.exact);
    ASSERT_EQ(outline.tree.parts.size(), whole.tree.parts.size());
    for (std::size_t i = 0; i < whole.tree.parts.size(); ++i) {
        EXPECT_EQ(outline.tree.parts[i].content_begin, whole.tree.parts[i].content_begin) << i;
        EXPECT_EQ(outline.tree.parts[i].content_end, whole.tree.parts[i].content_end) << i;
    }
    ASSERT_EQ(outline.shape.attachments.size(), 2U);
    EXPECT_EQ(reads, 0) << "nothing is fetched before somebody asks";
    EXPECT_EQ(outline.bytes.ToString().value(), TwoAttachments());
    const auto content = AttachmentContent(outline, outline.shape.attachments[1]);
    EXPECT_EQ(content.value().ToString().value(), "second file");
}

TEST(TakeApart, AnEmptyContentClosesItsGap) {
    int reads = 0;
    std::string text = TwoAttachments();
    MailOutline outline = OutlineOf(text, reads);
    outline.gaps[0].content = Blob();
    outline.gaps[0].decoded_bytes = 0;

    const ReadMessage message = TakeApart(outline).value();

    text.erase(text.find("aGVsbG8sIHdvcmxk"), 16);
    EXPECT_EQ(message.bytes.ToString().value(), text);
    const auto content = AttachmentContent(message, message.shape.attachments[1]);
    EXPECT_EQ(content.value().ToString().value(), "second file");
}

TEST(TakeApart, RefusesAGapThatIsNoContent) {
    int reads = 0;
    MailOutline outline = OutlineOf(TwoAttachments(), reads);
    outline.gaps[0].offset += 1;
    EXPECT_EQ(TakeApart(outline).error().kind, ErrorKind::kMalformed);
}

// A store that hands out outlines of what it holds.
class OutlineStore final : public MailStore {
 public:
    explicit OutlineStore(fakes::FakeMailStore& store) : store_(store) {}
    std::string address() const override { return store_.address(); }
    std::string display_name() const override { return store_.display_name(); }
    std::string inbox_path() const override { return store_.inbox_path(); }
    Result<std::vector<MailFolder>> Folders() override { return store_.Folders(); }
    Result<MailChange> List(const std::string& folder, const MailListing* known) override {
        return store_.List(folder, known);
    }
    Result<Blob> Read(const std::string& folder, const MailEntry& entry) override {
        ++whole_reads;
        return store_.Read(folder, entry);
    }
    void Expect(const std::string&, const std::vector<MailEntry>& entries, MailUse use) override {
        for (const MailEntry& entry : entries)
            expected.emplace_back(entry.key, use);
    }
    Result<MailOutline> Outline(const std::string& folder, const MailEntry& entry) override {
        const auto bytes = store_.Read(folder, entry);
        if (!bytes.ok()) return bytes.error();
        MailOutline outline = OutlineOf(bytes.value().ToString().value(), gap_reads);
        if (lie) outline.gaps.front().offset += 1;
        if (other_name) {
            std::string text = outline.skeleton.ToString().value();
            text.replace(text.find("one.bin"), 7, "uno.bin");
            outline.skeleton = Blob::FromString(text);
        }
        return outline;
    }
    Result<std::unique_ptr<StagedMail>> Stage(const std::string& folder, const MailEntry& entry,
                                              const Blob& content) override {
        return store_.Stage(folder, entry, content);
    }
    HiddenMailStore& Hidden() override { return store_.Hidden(); }

    int whole_reads = 0;
    int gap_reads = 0;
    bool lie = false;
    bool other_name = false;
    std::vector<std::pair<std::string, MailUse>> expected;

 private:
    fakes::FakeMailStore& store_;
};

struct OutlineWorld {
    fakes::FaultPlan plan;
    fakes::FakeMailStore mail{plan};
    OutlineStore store{mail};
    OneStoreProvider provider{store};
    summary_cache::MemorySummaryCache cache;
    fakes::FakeClock clock;
    std::unique_ptr<MessagingFactory> factory = MessagingFactoryOver(provider, cache, clock);
    std::unique_ptr<MessagingSession> session = factory->CreateSession().value();
    std::unique_ptr<Utilities> utilities = factory->CreateUtilities().value();

    OutlineWorld() { EXPECT_TRUE(session->Logon({"fake", ""}).ok()); }

    std::vector<std::string> Ids() {
        auto messages = session->GetDefaultFolder(kInboxFolder).value()->MessageList().value();
        auto table = utilities->CreateTable().value();
        EXPECT_TRUE(table->SetSource(*messages).ok());
        EXPECT_TRUE(table->SetColumns({kTagEntryId}).ok());
        std::vector<std::string> ids;
        for (const auto& row : table->GetRows(table->RowCount().value()).value())
            ids.push_back(utilities->EntryIdText(row[0]).value());
        return ids;
    }

    std::unique_ptr<Message> Open(const std::string& id) {
        return utilities->OpenMessage(id, "").value();
    }
};

TEST(OutlinedMessage, SizesAndNamesCostNoContent) {
    OutlineWorld world;
    world.mail.AddMessage("", TwoAttachments(), 1);

    const auto message = world.Open(world.Ids().front());

    EXPECT_EQ(CountOf(*message), 2);
    EXPECT_EQ(ItemOf(*message, 1)->Name().value(), "one.bin");
    EXPECT_EQ(ItemOf(*message, 1)->Size().value(), 12);
    EXPECT_EQ(ItemOf(*message, 2)->Size().value(), 11);
    EXPECT_EQ(world.store.gap_reads, 0);
    EXPECT_EQ(world.store.whole_reads, 0);
    EXPECT_EQ(DataOf(*ItemOf(*message, 2)), "second file");
    EXPECT_EQ(world.store.whole_reads, 0);
}

TEST(OutlinedMessage, SavingAnAttachmentFetchesThatOneAlone) {
    OutlineWorld world;
    world.mail.AddMessage("", TwoAttachments(), 1);
    const auto message = world.Open(world.Ids().front());
    const std::string path = testing::TempDir() + "outlined-attachment";

    ASSERT_TRUE(ItemOf(*message, 2)->WriteToFile(path).ok());

    EXPECT_EQ(std::remove(path.c_str()), 0);
    EXPECT_EQ(world.store.whole_reads, 0);
}

TEST(OutlinedMessage, IsReadWholeBeforeItIsChanged) {
    OutlineWorld world;
    world.mail.AddMessage("", TwoAttachments(), 1);
    const auto message = world.Open(world.Ids().front());

    ASSERT_TRUE(ItemOf(*message, 1)->SetField(kTagAttachmentData, Bytes("zip")).ok());
    ASSERT_TRUE(message->Update().ok());

    EXPECT_EQ(world.store.whole_reads, 1);
    const std::string& stored = world.mail.root.messages.back().content;
    const std::string before = TwoAttachments();
    const std::size_t changed = before.find("Content-Type: application/zip");
    EXPECT_EQ(stored.substr(0, changed), before.substr(0, changed));
    EXPECT_TRUE(stored.ends_with("\r\n\r\nemlw" + before.substr(before.find("\r\n--b", changed))));
}

TEST(OutlinedMessage, IsLeftAloneWhereTheOutlineTellsOfOtherAttachments) {
    OutlineWorld world;
    world.store.other_name = true;
    world.mail.AddMessage("", TwoAttachments(), 1);
    const auto message = world.Open(world.Ids().front());

    const Status set = ItemOf(*message, 1)->SetField(kTagAttachmentData, Bytes("zip"));

    EXPECT_EQ(set.error().number, static_cast<int>(kNoAccess));
    EXPECT_EQ(world.mail.root.messages.back().content, TwoAttachments());
}

TEST(OutlinedMessage, AnOutlineThatContradictsItselfIsNotUsed) {
    OutlineWorld world;
    world.store.lie = true;
    world.mail.AddMessage("", TwoAttachments(), 1);

    const auto message = world.Open(world.Ids().front());

    EXPECT_EQ(CountOf(*message), 2);
    EXPECT_EQ(world.store.whole_reads, 1);
}

TEST(OutlinedMessage, TheStoreIsToldWhatComesNext) {
    OutlineWorld world;
    for (int i = 0; i < 20; ++i)
        world.mail.AddMessage("", TwoAttachments(), i);
    const auto ids = world.Ids();
    world.store.expected.clear();

    for (const std::string& id : ids)
        world.Open(id);

    ASSERT_EQ(world.store.expected.size(), 20U) << "each once";
    for (std::size_t i = 0; i < 20; ++i) {
        EXPECT_EQ(world.store.expected[i].first, "m" + std::to_string(i + 1));
        EXPECT_EQ(world.store.expected[i].second, MailUse::kIndex);
    }
}

TEST(OutlinedMessage, AfterAChangeTheStoreIsToldToExpectMore) {
    OutlineWorld world;
    for (int i = 0; i < 40; ++i)
        world.mail.AddMessage("", TwoAttachments(), i);
    const auto ids = world.Ids();
    const auto first = world.Open(ids[0]);
    ASSERT_TRUE(ItemOf(*first, 1)->SetField(kTagAttachmentData, Bytes("zip")).ok());
    world.store.expected.clear();
    for (std::size_t i = 1; i < ids.size() && world.store.expected.empty(); ++i)
        world.Open(ids[i]);

    ASSERT_FALSE(world.store.expected.empty());
    EXPECT_EQ(world.store.expected.back().second, MailUse::kChange);
}

std::shared_ptr<const FolderSummary> ListingOf(int count) {
    auto listing = std::make_shared<FolderSummary>();
    for (int i = 0; i < count; ++i)
        listing->messages.emplace_back().entry.key = "k" + std::to_string(i);
    return listing;
}

std::vector<std::uint32_t> Downward(std::uint32_t count) {
    std::vector<std::uint32_t> order;
    while (count > 0)
        order.push_back(--count);
    return order;
}

TEST(Upcoming, ToldKeysFollowTheOrderOfTheRowsAndComeOnce) {
    Upcoming upcoming;
    upcoming.Note("f", ListingOf(300), Downward(300));
    std::vector<std::string> told;
    std::size_t tellings = 0;
    for (int i = 299; i >= 0; --i) {
        const auto entries = upcoming.Follow("f", "k" + std::to_string(i));
        tellings += entries.empty() ? 0 : 1;
        for (const MailEntry& entry : entries)
            told.push_back(entry.key);
    }
    ASSERT_EQ(told.size(), 300U);
    for (int i = 0; i < 300; ++i)
        EXPECT_EQ(told[static_cast<std::size_t>(i)], "k" + std::to_string(299 - i));
    EXPECT_LT(tellings, 20U) << "many at a time";
}

TEST(Upcoming, GuessesNothingAfterAJumpOrElsewhere) {
    Upcoming upcoming;
    upcoming.Note("f", ListingOf(100), Downward(100));
    EXPECT_EQ(upcoming.Next(), nullptr);
    upcoming.Follow("f", "k98");
    EXPECT_EQ(upcoming.Next(), nullptr) << "one message in the middle makes no order";
    upcoming.Follow("f", "k97");
    ASSERT_NE(upcoming.Next(), nullptr);
    EXPECT_EQ(upcoming.Next()->entry.key, "k96");
    upcoming.Follow("f", "k50");
    EXPECT_EQ(upcoming.Next(), nullptr);
    EXPECT_TRUE(upcoming.Follow("other", "k49").empty());
    EXPECT_TRUE(upcoming.Follow("f", "unknown").empty());
    EXPECT_EQ(upcoming.Next(), nullptr);
}

TEST(Upcoming, TellsFewAtFirstWhereItIsToldTo) {
    Upcoming upcoming;
    upcoming.Note("f", ListingOf(1000), Downward(1000), Upcoming::kNarrow);
    EXPECT_EQ(upcoming.Follow("f", "k999").size(), 1 + Upcoming::kNarrow);
    upcoming.Note("f", ListingOf(1000), Downward(1000));
    EXPECT_EQ(upcoming.Follow("f", "k999").size(), 1 + Upcoming::kWide);
}

TEST(Upcoming, TellsTheRestAnewWhenItWasTheWrongThing) {
    Upcoming upcoming;
    upcoming.Note("f", ListingOf(100), Downward(100));
    upcoming.Follow("f", "k99");
    ASSERT_TRUE(upcoming.Follow("f", "k98").empty()) << "told already";

    upcoming.TellAnew();

    const auto entries = upcoming.Follow("f", "k97");
    ASSERT_EQ(entries.size(), 98U);
    EXPECT_EQ(entries.front().key, "k97");
}

TEST(Upcoming, EndsWithTheRows) {
    Upcoming upcoming;
    upcoming.Note("f", ListingOf(3), Downward(3));
    for (const char* key : {"k2", "k1", "k0"})
        upcoming.Follow("f", key);
    EXPECT_EQ(upcoming.Next(), nullptr);
}

// The next message is read while this one is worked on; what happens to it meanwhile counts.
TEST(ReadAhead, AMessageThatChangedMeanwhileIsReadAnew) {
    World world;
    for (int i = 0; i < 4; ++i)
        world.Deliver(TwoAttachments());
    auto messages = world.session->GetDefaultFolder(kInboxFolder).value()->MessageList().value();
    const auto rows = world.Rows(*messages, {kTagEntryId});
    const auto open = [&](std::size_t row) {
        return world.utilities->OpenMessage(world.IdOf(rows[row][0]), "");
    };
    ASSERT_TRUE(open(0).ok());
    ASSERT_TRUE(open(1).ok());
    auto held = open(2);
    ASSERT_TRUE(held.ok());
    const std::string key = world.mail.root.messages[3].key;
    world.mail.SetFlags("", key, "S");

    auto last = open(3);
    ASSERT_TRUE(last.ok());
    ASSERT_TRUE(ItemOf(*last.value(), 1)->SetField(kTagAttachmentData, Bytes("zip")).ok());
    EXPECT_EQ(last.value()->Update().error().kind, ErrorKind::kChanged);
    EXPECT_EQ(world.mail.root.messages[3].content, TwoAttachments());
}

TEST(ReadAhead, AFailureToReadAheadIsNoFailure) {
    World world;
    for (int i = 0; i < 5; ++i)
        world.Deliver(TwoAttachments());
    auto messages = world.session->GetDefaultFolder(kInboxFolder).value()->MessageList().value();
    const auto rows = world.Rows(*messages, {kTagEntryId});
    const int before = static_cast<int>(world.plan.calls().size());
    // The calls are the reads of 1, 2 and 3 (ahead).
    world.plan.FailCall(before + 3, fakes::FaultPlan::Mode::kOnce, MessagingError(kDiskError));
    for (const auto& row : rows) {
        auto message = world.utilities->OpenMessage(world.IdOf(row[0]), "");
        ASSERT_TRUE(message.ok());
        EXPECT_EQ(DataOf(*ItemOf(*message.value(), 1)), "hello, world");
    }
}

}  // namespace
}  // namespace trevix::mime
