// A store over a server that changes its mind: nothing is written that could harm, and nothing is
// taken for what it is not.
#include <filesystem>
#include <functional>

#include "unit/imap/scripted_store.h"

namespace trevix::imap {
namespace {

TEST(HostileStoreUids, AnotherValidityMeansThatTheMessageIsGone) {
    ScriptedStore store({Listed().HangUp(), Script()
                                                .Send(Greeting("UIDPLUS LITERAL+"))
                                                .Expect("EXAMINE \"INBOX\"")
                                                .Send(Opened(8, 1, 6))
                                                .Expect("SELECT \"INBOX\"")
                                                .Send(Opened(8, 1, 6))});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok()) << listing.error().description;
    ASSERT_EQ(listing.value().listing.entries.size(), 1U);
    const MailEntry entry = listing.value().listing.entries[0];
    const auto content = store->Read("INBOX", entry);
    ASSERT_FALSE(content.ok());
    EXPECT_EQ(content.error().kind, ErrorKind::kGone) << content.error().description;
    const auto staged = store->Stage("INBOX", entry, Blob::FromString("new\r\n"));
    ASSERT_FALSE(staged.ok());
    EXPECT_EQ(staged.error().kind, ErrorKind::kGone) << staged.error().description;
    store.Finish();
    for (const char* const command : {"APPEND", "STORE", "EXPUNGE", "REPLACE"}) {
        EXPECT_FALSE(store.WasSent(command)) << command;
    }
}

TEST(HostileStoreUids, AMailboxWithoutLastingNumbersIsNotUsed) {
    Script script;
    script.Send(Greeting("UIDPLUS"));
    ScriptedStore store({Status(script, 7, 1, 6)
                             .Expect("EXAMINE \"INBOX\"")
                             .Send("* 1 EXISTS\r\n* OK [UIDNOTSTICKY] x\r\n* OK [UIDVALIDITY 7] "
                                   "x\r\n{T} OK\r\n")
                             .Expect("UID FETCH 1:* *")
                             .Send(std::string(kMessage) + "{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_FALSE(listing.ok());
    EXPECT_EQ(listing.error().kind, ErrorKind::kUnsupported);
}

TEST(HostileStoreListing, AMailboxThatShrinksMeanwhileIsListedAgainNextTime) {
    Script script;
    script.Send(Greeting("UIDPLUS"));
    ScriptedStore store({Status(script, 7, 3, 6)
                             .Expect("EXAMINE \"INBOX\"")
                             .Send(Opened(7, 3, 6))
                             .Expect("UID FETCH 1:* *")
                             .Send("* 1 EXISTS\r\n" + std::string(kMessage) +
                                   "* 9 EXPUNGE\r\n* 0 EXISTS\r\n{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok()) << listing.error().description;
    EXPECT_EQ(listing.value().listing.entries.size(), 1U);
    EXPECT_EQ(listing.value().listing.stamp, "");
}

TEST(HostileStoreListing, MessagesThatNobodyAskedForAreNotListed) {
    Script script;
    script.Send(Greeting("UIDPLUS"));
    ScriptedStore store(
        {Status(script, 7, 1, 6)
             .Expect("EXAMINE \"INBOX\"")
             .Send(Opened(7, 1, 6))
             .Expect("UID FETCH 1:* *")
             .Send(std::string(kMessage) + kMessage +
                   "* 2 FETCH (UID 0 FLAGS () INTERNALDATE NIL RFC822.SIZE 1)\r\n"
                   "* 3 FETCH (UID 9 FLAGS (\\Seen))\r\n* 4 FETCH (FLAGS ())\r\n{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok()) << listing.error().description;
    ASSERT_EQ(listing.value().listing.entries.size(), 1U);
    EXPECT_EQ(listing.value().listing.entries[0].key.find("7/5"), 0U);
}

TEST(HostileStoreListing, GoesOnWithANewConnectionWhenOneIsLost) {
    Script lost;
    lost.Send(Greeting("UIDPLUS"));
    Status(lost, 7, 1, 6)
        .Expect("EXAMINE \"INBOX\"")
        .Send(Opened(7, 1, 6))
        .Expect("UID FETCH 1:* *")
        .Send("* 1 FETCH (UID 5 FLAGS (")
        .HangUp();
    ScriptedStore store({lost, Script()
                                   .Send(Greeting("UIDPLUS"))
                                   .Expect("EXAMINE \"INBOX\"")
                                   .Send(Opened(7, 1, 6))
                                   .Expect("UID FETCH 1:* *")
                                   .Send(std::string(kMessage) + "{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok()) << listing.error().description;
    EXPECT_EQ(listing.value().listing.entries.size(), 1U);
    EXPECT_EQ(store.Finish(), "");
}

TEST(HostileStoreFolders, NamesAreDataAndNoPaths) {
    const auto before = std::filesystem::exists("../x");
    ScriptedStore store(
        {Script()
             .Send(Greeting("UIDPLUS"))
             .Expect("LIST *")
             .Send("* LIST () \"/\" ../x\r\n* LIST () \"/\" \"/etc/passwd\"\r\n"
                   "* LIST () \"/\" \"\"\r\n* LIST () \"/\" \"//\"\r\n"
                   "* LIST () \"/\" {4}\r\na\r\nb\r\n* LIST () NIL \"flat/name\"\r\n"
                   "* LIST () \".\" \"..\"\r\n* LIST () \"/\" INBOX\r\n"
                   "* LIST () \"/\" ../x\r\n* LIST () \"ab\" odd\r\n"
                   "* LIST () \"/\" caf\xE9\r\n{T} OK\r\n")});
    const auto folders = store->Folders();
    ASSERT_TRUE(folders.ok()) << folders.error().description;
    bool inbox = false;
    bool climbing = false;
    for (const MailFolder& folder : folders.value()) {
        EXPECT_FALSE(folder.path.empty());
        inbox = inbox || folder.path == "INBOX";
        climbing = climbing || folder.path == "../x";
    }
    EXPECT_TRUE(inbox);
    EXPECT_TRUE(climbing);
    EXPECT_EQ(store.Finish(), "");
    EXPECT_EQ(std::filesystem::exists("../x"), before);
}

TEST(HostileStoreRead, ContentOfAnotherMessageIsNotTaken) {
    ScriptedStore store({Listed()
                             .Expect("NOOP")
                             .Send("{T} OK\r\n")
                             .Expect("UID FETCH 5 *")
                             .Send("* 2 FETCH (UID 6 BODY[] {3}\r\nbad)\r\n"
                                   "* 1 FETCH (BODY[] {3}\r\nbad)\r\n"
                                   "* 1 FETCH (UID 5 BODY[1] {3}\r\nbad)\r\n"
                                   "* 1 FETCH (UID 5 BODY[]<10> {3}\r\nbad)\r\n{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok());
    const auto content = store->Read("INBOX", listing.value().listing.entries.at(0));
    ASSERT_FALSE(content.ok());
    EXPECT_EQ(content.error().kind, ErrorKind::kGone) << content.error().description;
    EXPECT_EQ(store.Finish(), "");
}

TEST(HostileStoreListing, OfAMailboxThatIsRefusedTakesNothingThatComesAllTheSame) {
    Script script;
    script.Send(Greeting("UIDPLUS"));
    ScriptedStore store({Status(script, 7, 1, 6)
                             .Expect("EXAMINE \"INBOX\"")
                             .Expect("UID FETCH 1:* *")
                             .Send("{T1} NO [NOPERM] not yours\r\n" + std::string(kMessage) +
                                   "{T} BAD nothing is selected\r\n")});

    const auto listing = store->List("INBOX", nullptr);

    ASSERT_FALSE(listing.ok());
    EXPECT_EQ(listing.error().kind, ErrorKind::kDenied);
    EXPECT_NE(listing.error().description.find("not yours"), std::string::npos);
    EXPECT_EQ(store.Finish(), "");
}

// One look at messages, as the replacement of one takes many.
Script& Look(Script& script, const std::string& uids, const std::string& answer) {
    return script.Expect("NOOP")
        .Send("{T} OK\r\n")
        .Expect("UID FETCH " + uids + " (UID FLAGS *")
        .Send(answer + "{T} OK\r\n");
}

std::string Seen(unsigned uid, const std::string& flags) {
    const std::string text = std::to_string(uid);
    return "* " + text + " FETCH (UID " + text + " FLAGS (" + flags +
           ") INTERNALDATE \"13-Sep-2020 12:26:40 +0000\" RFC822.SIZE 5)\r\n";
}

TEST(HostileStoreReplacement, KeepsTheOldMessageWhenTheNewOneVanishesWhileItIsMarked) {
    Script script = Listed();
    script.Expect("SELECT \"INBOX\"").Send(Opened(7, 1, 6));
    Look(script, "5", Seen(5, ""));
    script.Expect("APPEND \"INBOX\" *")
        .TakeContent(5)
        .ExpectRaw("")
        .Send("{T} OK [APPENDUID 7 6] done\r\n")
        .Expect("UID FETCH 6 *")
        .Send(
            "* 2 FETCH (UID 6 INTERNALDATE \"13-Sep-2020 12:26:40 +0000\" BODY[] {5}\r\n"
            "new\r\n)\r\n{T} OK\r\n");
    Look(script, "5:6", Seen(5, "") + Seen(6, ""));
    script.Expect("UID STORE 5 +FLAGS.SILENT (\\Deleted)").Send("* VANISHED 6\r\n{T} OK\r\n");
    Look(script, "5", Seen(5, "\\Deleted"));
    script.Expect("UID STORE 5 -FLAGS.SILENT (\\Deleted)").Send("{T} OK\r\n");
    for (int look = 0; look < 2; ++look)
        Look(script, "5", Seen(5, ""));
    Look(script, "6", "");
    ScriptedStore store({std::move(script)});
    const MailEntry entry = store->List("INBOX", nullptr).value().listing.entries.at(0);
    const auto staged = store->Stage("INBOX", entry, Blob::FromString("new\r\n"));
    ASSERT_TRUE(staged.ok()) << staged.error().description;

    const auto committed = staged.value()->Commit();

    ASSERT_FALSE(committed.ok());
    EXPECT_EQ(committed.error().kind, ErrorKind::kGone);
    EXPECT_EQ(store.Finish(), "");
    EXPECT_FALSE(store.WasSent("EXPUNGE"));
}

}  // namespace
}  // namespace trevix::imap
