// A store over servers that offer less than others do.
#include "unit/imap/scripted_store.h"

namespace trevix::imap {
namespace {

MailEntry OnlyEntry(ScriptedStore& store) {
    const auto listing = store->List("INBOX", nullptr);
    EXPECT_TRUE(listing.ok()) << listing.error().description;
    if (!listing.ok() || listing.value().listing.entries.size() != 1) return {};
    return listing.value().listing.entries[0];
}

void ExpectNothingWasChanged(ScriptedStore& store) {
    EXPECT_EQ(store.Finish(), "");
    for (const char* const command : {"APPEND", "STORE", "EXPUNGE", "REPLACE"})
        EXPECT_FALSE(store.WasSent(command)) << command;
}

TEST(ModestServer, ReplacesNothingWhereASingleMessageCannotBeRemoved) {
    Script script;
    script.Send(Greeting("LITERAL+"));
    ScriptedStore store({Status(script, 7, 1, 6)
                             .Expect("EXAMINE \"INBOX\"")
                             .Send(Opened(7, 1, 6))
                             .Expect("UID FETCH 1:* *")
                             .Send(std::string(kMessage) + "{T} OK\r\n")});

    const auto staged = store->Stage("INBOX", OnlyEntry(store), Blob::FromString("new\r\n"));

    ASSERT_FALSE(staged.ok());
    EXPECT_EQ(staged.error().kind, ErrorKind::kUnsupported);
    EXPECT_NE(staged.error().description.find("UIDPLUS"), std::string::npos);
    ExpectNothingWasChanged(store);
}

TEST(ModestServer, ReplacesNothingInAMailboxThatMayOnlyBeRead) {
    ScriptedStore store({Listed()
                             .Expect("SELECT \"INBOX\"")
                             .Send("* 1 EXISTS\r\n* OK [UIDVALIDITY 7] ok\r\n"
                                   "* OK [UIDNEXT 6] ok\r\n{T} OK [READ-ONLY] ok\r\n")});

    const auto staged = store->Stage("INBOX", OnlyEntry(store), Blob::FromString("new\r\n"));

    ASSERT_FALSE(staged.ok());
    EXPECT_EQ(staged.error().kind, ErrorKind::kDenied);
    EXPECT_NE(staged.error().description.find("read-only"), std::string::npos);
    ExpectNothingWasChanged(store);
}

std::string Told(unsigned uid, unsigned modseq) {
    const std::string text = std::to_string(uid);
    return "* " + text + " FETCH (UID " + text +
           " INTERNALDATE \"13-Sep-2020 12:26:40 +0000\" RFC822.SIZE 10 MODSEQ (" +
           std::to_string(modseq) + "))\r\n";
}

Script& StatusWithModseq(Script& script, unsigned messages, unsigned next, unsigned modseq) {
    return script.Expect("STATUS \"INBOX\" (MESSAGES UIDNEXT UIDVALIDITY HIGHESTMODSEQ)")
        .Send("* STATUS INBOX (MESSAGES " + std::to_string(messages) + " UIDNEXT " +
              std::to_string(next) + " UIDVALIDITY 7 HIGHESTMODSEQ " + std::to_string(modseq) +
              ")\r\n{T} OK\r\n");
}

TEST(ModestServer, IsAskedForNothingThatItDoesNotKnow) {
    Script script;
    script.Send(Greeting(""));
    ScriptedStore store({Status(script, 7, 1, 6)
                             .Expect("EXAMINE \"INBOX\"")
                             .Send(Opened(7, 1, 6))
                             .Expect("UID FETCH 1:* (UID INTERNALDATE RFC822.SIZE)")
                             .Send(std::string(kMessage) + "{T} OK\r\n")});

    EXPECT_NE(OnlyEntry(store).locator, "");
    EXPECT_EQ(store.Finish(), "");
}

// Without QRESYNC it does not tell which messages went: a search of all does.
TEST(ModestServer, ListsWhatChangedWhereItCountsModificationsOnly) {
    Script script;
    script.Send(Greeting("CONDSTORE UIDPLUS"));
    StatusWithModseq(script, 3, 4, 20)
        .Expect("EXAMINE \"INBOX\" (CONDSTORE)")
        .Send(Opened(7, 3, 4))
        .Expect("UID FETCH 1:* *")
        .Send(Told(1, 10) + Told(2, 11) + Told(3, 20) + "{T} OK\r\n")
        .Expect("NOOP")
        .Send("{T} OK\r\n");
    StatusWithModseq(script, 3, 5, 31)
        .Expect("NOOP")
        .Send("* 2 EXPUNGE\r\n* 3 EXISTS\r\n{T} OK\r\n")
        .Expect("UID FETCH 1:* (UID INTERNALDATE RFC822.SIZE MODSEQ) (CHANGEDSINCE 20)")
        .Send(Told(3, 30) + Told(4, 31) + "{T} OK\r\n")
        .Expect("UID SEARCH ALL")
        .Send("* SEARCH 1 3 4\r\n{T} OK\r\n");
    ScriptedStore store({std::move(script)});
    const MailListing first = store->List("INBOX", nullptr).value().listing;
    ASSERT_EQ(first.entries.size(), 3U);

    const auto change = store->List("INBOX", &first);

    ASSERT_TRUE(change.ok()) << change.error().description << store.Finish();
    ASSERT_TRUE(change.value().changed);
    const std::vector<MailEntry>& entries = change.value().listing.entries;
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries[0].locator, first.entries[0].locator);
    EXPECT_NE(entries[1].locator, first.entries[2].locator) << "changed";
    EXPECT_EQ(entries[2].key.find("7/4"), 0U);
    EXPECT_EQ(store.Finish(), "");
}

}  // namespace
}  // namespace trevix::imap
