// Mailboxes as a whole, and what a server says without being asked.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "unit/imap/imap_world.h"

namespace trevix::imap {
namespace {

using test::Conversation;
using test::Greeting;
using test::kModern;
using test::Script;

TEST(ClientList, AsksForAllThatIsOffered) {
    Conversation talk(
        Script()
            .Send(Greeting(kModern))
            .Expect("LIST \"\" \"*\" RETURN (SPECIAL-USE STATUS (MESSAGES UIDNEXT UIDVALIDITY "
                    "HIGHESTMODSEQ))")
            .Send("* LIST (\\HasNoChildren) \"/\" Inbox\r\n"
                  "* STATUS INBOX (MESSAGES 3 UIDNEXT 9 UIDVALIDITY 1 HIGHESTMODSEQ 12)\r\n"
                  "* LIST (\\Noselect) \"/\" ../x\r\n"
                  "* LIST (\\Sent) \"/\" {6}\r\na\r\n\"b\\\r\n{T} OK done\r\n"));
    ListRequest request;
    request.with_status = true;
    const auto mailboxes = talk->List(request);
    ASSERT_TRUE(mailboxes.ok()) << mailboxes.error().description;
    ASSERT_EQ(mailboxes.value().size(), 3U);
    ASSERT_TRUE(mailboxes.value()[0].status);
    EXPECT_EQ(mailboxes.value()[0].status->uid_next, 9U);
    EXPECT_EQ(mailboxes.value()[1].name, "../x");
    EXPECT_FALSE(mailboxes.value()[1].selectable);
    EXPECT_EQ(mailboxes.value()[2].name, "a\r\n\"b\\");
    EXPECT_EQ(mailboxes.value()[2].attributes, std::vector<std::string>{"\\Sent"});
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientList, AsksPlainlyWhereNothingIsOffered) {
    Conversation talk(
        Script().Send(Greeting("")).Expect("LIST \"\" \"a&-*\"").Send("{T} OK done\r\n"));
    ListRequest request;
    request.pattern = "a&-*";
    request.with_status = true;
    const auto mailboxes = talk->List(request);
    ASSERT_TRUE(mailboxes.ok());
    EXPECT_TRUE(mailboxes.value().empty());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientSelect, TellsWhatIsKnownOfTheMailbox) {
    Conversation talk(Script()
                          .Send(Greeting("CONDSTORE"))
                          .Expect("SELECT \"Sent\" (CONDSTORE)")
                          .Send("* FLAGS (\\Seen \\Deleted)\r\n"
                                "* OK [PERMANENTFLAGS (\\Seen \\*)] Flags permitted.\r\n"
                                "* 172 EXISTS\r\n* 1 RECENT\r\n"
                                "* OK [UIDVALIDITY 3857529045] UIDs valid\r\n"
                                "* OK [UIDNEXT 4392] Predicted next UID\r\n"
                                "* OK [HIGHESTMODSEQ 715194045007]\r\n"
                                "{T} OK [READ-WRITE] done\r\n"));
    const auto selected = talk->Select("Sent", SelectMode::kReadWrite);
    ASSERT_TRUE(selected.ok()) << selected.error().description;
    EXPECT_EQ(selected.value().exists, 172U);
    EXPECT_EQ(selected.value().uid_validity, 3857529045U);
    EXPECT_EQ(selected.value().uid_next, 4392U);
    EXPECT_EQ(selected.value().highest_modseq, 715194045007U);
    EXPECT_FALSE(selected.value().read_only);
    EXPECT_TRUE(selected.value().uids_sticky);
    EXPECT_EQ(selected.value().permanent_flags, (std::vector<std::string>{"\\Seen", "\\*"}));
    EXPECT_EQ(talk->selected(), "Sent");
    EXPECT_FALSE(talk->TakeNews().exists);
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientSelect, ForgetsWhatWasSaidOfTheMailboxBefore) {
    Conversation talk(Script()
                          .Send(Greeting("QRESYNC"))
                          .Expect("EXAMINE \"a\" (CONDSTORE)")
                          .Send("* 5 EXISTS\r\n* OK [UIDVALIDITY 1]\r\n* OK [UIDNOTSTICKY]\r\n"
                                "* OK [CLOSED] was closed\r\n* 2 EXISTS\r\n* OK [NOMODSEQ]\r\n"
                                "{T} OK [READ-ONLY] done\r\n"));
    const auto selected = talk->Select("a", SelectMode::kReadOnly);
    ASSERT_TRUE(selected.ok());
    EXPECT_EQ(selected.value().exists, 2U);
    EXPECT_EQ(selected.value().uid_validity, 0U);
    EXPECT_TRUE(selected.value().uids_sticky);
    EXPECT_TRUE(selected.value().read_only);
    EXPECT_FALSE(selected.value().highest_modseq);
}

TEST(ClientSelect, AReadOnlyMailboxIsKnownAsSuch) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("SELECT \"a\"")
                          .Send("* 0 EXISTS\r\n{T} OK [READ-ONLY] done\r\n")
                          .Expect("SELECT \"gone\"")
                          .Send("{T} NO [NONEXISTENT] Mailbox doesn't exist: gone\r\n"));
    EXPECT_TRUE(talk->Select("a", SelectMode::kReadWrite).value().read_only);
    const auto gone = talk->Select("gone", SelectMode::kReadWrite);
    ASSERT_FALSE(gone.ok());
    EXPECT_EQ(gone.error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(talk->selected(), "");
    EXPECT_TRUE(talk->connected());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientStatus, SendsAllBeforeTheFirstAnswer) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("STATUS \"inbox\" (MESSAGES UIDNEXT UIDVALIDITY)")
                          .Expect("STATUS \"b\" (MESSAGES UIDNEXT UIDVALIDITY)")
                          .Expect("STATUS \"c\" (MESSAGES UIDNEXT UIDVALIDITY)")
                          .Send("* STATUS c (MESSAGES 3)\r\n{T} OK\r\n"
                                "* STATUS INBOX (MESSAGES 1)\r\n{T2} OK\r\n"
                                "{T1} NO [NOPERM] not yours\r\n"));
    const auto statuses = talk->StatusOf(std::vector<std::string>{"inbox", "b", "c"});
    ASSERT_TRUE(statuses.ok()) << statuses.error().description;
    ASSERT_EQ(statuses.value().size(), 3U);
    EXPECT_EQ(statuses.value()[0].value().messages, 1U);
    EXPECT_EQ(statuses.value()[1].error().kind, ErrorKind::kDenied);
    EXPECT_EQ(statuses.value()[2].value().messages, 3U);
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientStatus, AMailboxThatIsNotSpokenOfHasNoStatus) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("STATUS \"a\" *")
                          .Send("* STATUS b (MESSAGES 1)\r\n{T} OK\r\n"));
    const auto status = talk->StatusOf("a");
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, ErrorKind::kMalformed);
    EXPECT_TRUE(talk->connected());
}

TEST(ClientStatus, NamesAreSentAsTheyAre) {
    Conversation talk(Script()
                          .Send(Greeting("LITERAL+"))
                          .Expect("STATUS {5+}")
                          .TakeContent(5)
                          .ExpectRaw(" (MESSAGES UIDNEXT UIDVALIDITY)")
                          .Send("* STATUS {5}\r\na\r\n\xE9\x7F (MESSAGES 1)\r\n{T} OK\r\n"));
    const auto status = talk->StatusOf("a\r\n\xE9\x7F");
    ASSERT_TRUE(status.ok()) << status.error().description;
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientEnable, TellsWhatIsOn) {
    Conversation talk(Script()
                          .Send(Greeting("ENABLE"))
                          .Expect("ENABLE QRESYNC UTF8=ACCEPT")
                          .Send("* ENABLED qresync\r\n{T} OK\r\n"));
    EXPECT_EQ(talk->Enable({"QRESYNC", "UTF8=ACCEPT"}).value(),
              std::vector<std::string>{"QRESYNC"});
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientNews, ArePutTogetherUntilTheyAreTaken) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("NOOP")
                          .Send("* 7 EXISTS\r\n* 2 EXPUNGE\r\n* VANISHED 5:6\r\n"
                                "* 3 FETCH (FLAGS (\\Seen))\r\n* OK [ALERT] disk\x07 is full\r\n"
                                "* OK [UIDVALIDITY 77] new\r\n* CAPABILITY IMAP4rev1 MOVE\r\n"
                                "{T} OK\r\n"));
    ASSERT_TRUE(talk->Noop().ok());
    const News news = talk->TakeNews();
    EXPECT_EQ(news.exists, 6U);
    EXPECT_EQ(news.expunged, 1U);
    EXPECT_EQ(news.vanished.ToText(), "5:6");
    EXPECT_TRUE(news.flags_changed);
    EXPECT_EQ(news.uid_validity, 77U);
    EXPECT_EQ(news.alerts, std::vector<std::string>{"disk  is full"});
    EXPECT_TRUE(talk->Offers("MOVE"));
    EXPECT_FALSE(talk->TakeNews().exists);
}

TEST(ClientCreate, ANameThatIsTakenIsToldApart) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("CREATE \"a\"")
                          .Send("{T} OK\r\n")
                          .Expect("CREATE \"a\"")
                          .Send("{T} NO [ALREADYEXISTS] is there\r\n")
                          .Expect("CREATE \"a\"")
                          .Send("{T} NO Mailbox already exists\r\n")
                          .Expect("STATUS \"a\" *")
                          .Send("* STATUS a (MESSAGES 0)\r\n{T} OK\r\n")
                          .Expect("CREATE \"b\"")
                          .Send("{T} NO I will not\r\n")
                          .Expect("STATUS \"b\" *")
                          .Send("{T} NO there is none\r\n"));
    EXPECT_TRUE(talk->Create("a").ok());
    EXPECT_EQ(talk->Create("a").error().kind, ErrorKind::kExists);
    EXPECT_EQ(talk->Create("a").error().kind, ErrorKind::kExists);
    EXPECT_EQ(talk->Create("b").error().kind, ErrorKind::kOther);
    EXPECT_EQ(talk->refusal().text, "I will not");
    EXPECT_FALSE(talk->fate_unknown());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientLogOut, ClosesAndStaysClosed) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("LOGOUT")
                          .Send("* BYE so long\r\n{T} OK done\r\n")
                          .HangUp());
    EXPECT_TRUE(talk->LogOut().ok());
    EXPECT_FALSE(talk->connected());
    EXPECT_EQ(talk->Noop().error().kind, ErrorKind::kIo);
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientSearch, UsesTheShortFormWhereOffered) {
    Conversation talk(Script()
                          .Send(Greeting("ESEARCH"))
                          .Expect("UID SEARCH RETURN (ALL) UID 5:* LARGER 100")
                          .Send("* ESEARCH (TAG \"{T}\") UID ALL 5,9:12\r\n{T} OK\r\n"));
    EXPECT_EQ(talk->Search("UID 5:* LARGER 100").value().ToText(), "5,9:12");
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientSearch, AddsUpSeveralReplies) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("UID SEARCH ALL")
                          .Send("* SEARCH 7 6\r\n* SEARCH 1\r\n{T} OK\r\n"));
    EXPECT_EQ(talk->Search("ALL").value().ToText(), "1,6:7");
    EXPECT_EQ(talk->Search("ALL\r\nT9 EXPUNGE").error().kind, ErrorKind::kOther);
    EXPECT_TRUE(talk->connected());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientStore, LeavesAloneWhatWasChanged) {
    Conversation talk(
        Script()
            .Send(Greeting("CONDSTORE"))
            .Expect("UID STORE 5:9 (UNCHANGEDSINCE 12) +FLAGS.SILENT (\\Deleted)")
            .Send("* 1 FETCH (UID 5 MODSEQ (13))\r\n{T} OK [MODIFIED 7,9] Conditional STORE\r\n")
            .Expect("UID STORE 7 (UNCHANGEDSINCE 12) +FLAGS.SILENT (\\Deleted)")
            .Send("{T} NO [MODIFIED 7] no\r\n")
            .Expect("UID STORE 5 -FLAGS.SILENT (\\Deleted $x)")
            .Send("{T} NO [READ-ONLY] no\r\n"));
    const auto left = talk->Store(UidSet::Between(5, 9), FlagChange::kAdd, {"\\Deleted"}, 12);
    ASSERT_TRUE(left.ok());
    EXPECT_EQ(left.value().ToText(), "7,9");
    EXPECT_EQ(talk->Store(UidSet::Of(7), FlagChange::kAdd, {"\\Deleted"}, 12).value(),
              UidSet::Of(7));
    const auto refused =
        talk->Store(UidSet::Of(5), FlagChange::kRemove, {"\\Deleted", "\\Recent", "$x"});
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error().kind, ErrorKind::kDenied);
    EXPECT_FALSE(talk->fate_unknown());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientStore, AFlagThatIsNoWordIsNotSent) {
    Conversation talk(Script().Send(Greeting("")));
    for (const char* const flag : {"", "a b", "a)", "a\r\nT9 EXPUNGE", "{5}", "\""}) {
        EXPECT_FALSE(talk->Store(UidSet::Of(5), FlagChange::kAdd, {flag}).ok()) << flag;
    }
    EXPECT_EQ(talk.Finish(), "");
    EXPECT_EQ(talk.server().received(), "");
}

TEST(ClientExpunge, RemovesSingleMessagesOrNone) {
    Conversation talk(Script()
                          .Send(Greeting("UIDPLUS"))
                          .Expect("UID EXPUNGE 5")
                          .Send("* 1 EXPUNGE\r\n{T} OK\r\n"));
    EXPECT_TRUE(talk->Expunge(UidSet::Of(5)).ok());
    EXPECT_TRUE(talk->Expunge(UidSet()).ok());
    EXPECT_EQ(talk.Finish(), "");
    Conversation old(Script().Send(Greeting("")));
    EXPECT_EQ(old->Expunge(UidSet::Of(5)).error().kind, ErrorKind::kUnsupported);
    EXPECT_EQ(old.Finish(), "");
    EXPECT_EQ(old.server().received(), "");
}

}  // namespace
}  // namespace trevix::imap
