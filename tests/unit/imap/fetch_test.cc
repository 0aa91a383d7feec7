// Messages on their way.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "unit/imap/imap_world.h"

namespace trevix::imap {
namespace {

using test::Conversation;
using test::Greeting;
using test::kModern;
using test::Script;

FetchRequest Sizes(UidSet uids) {
    FetchRequest request;
    request.uids = std::move(uids);
    request.size = true;
    return request;
}

FetchRequest Body(std::uint32_t uid) {
    FetchRequest request;
    request.uids = UidSet::Of(uid);
    request.sections.push_back({});
    return request;
}

// Collects "uid:size" or "uid:content".
struct Collected {
    std::vector<std::string> texts;
    FetchSink Sink() {
        return [this](FetchedMessage&& message) -> Status {
            std::string text = std::to_string(message.uid) + ":";
            if (message.size_bytes) text += std::to_string(*message.size_bytes);
            for (const FetchedSection& section : message.sections) {
                text += section.content ? section.content->ToString().value() : "nil";
            }
            texts.push_back(text);
            return {};
        };
    }
};

using Texts = std::vector<std::string>;

TEST(ClientFetch, AsksForAllItems) {
    Conversation talk(
        Script()
            .Send(Greeting(kModern))
            .Expect("UID FETCH 1:5,9 (UID FLAGS INTERNALDATE RFC822.SIZE MODSEQ SAVEDATE EMAILID "
                    "BODYSTRUCTURE BODY.PEEK[HEADER.FIELDS (From To)] BODY.PEEK[1]<0.100> "
                    "BODY.PEEK[2]<44.256>) (CHANGEDSINCE 7)")
            .Send("{T} OK\r\n"));
    FetchRequest request;
    request.uids = UidSet::Between(1, 5);
    request.uids.Add(9);
    request.flags = request.internal_date = request.size = request.body_structure = true;
    request.modseq = request.save_date = request.email_id = true;
    request.sections = {{"HEADER.FIELDS (From To)", {}}, {"1", {{0, 100}}}, {"2", {{44, 256}}}};
    request.changed_since = 7;
    Collected collected;
    EXPECT_TRUE(talk->Fetch(request, collected.Sink()).ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, NothingIsAskedForNothing) {
    Conversation talk(Script().Send(Greeting("")));
    Collected collected;
    EXPECT_TRUE(talk->Fetch(Sizes({}), collected.Sink()).ok());
    FetchRequest empty;
    empty.uids = UidSet::Of(1);
    EXPECT_TRUE(talk->Fetch(empty, collected.Sink()).ok());
    EXPECT_TRUE(talk->Fetch(std::vector<FetchRequest>(), collected.Sink()).ok());
    EXPECT_EQ(talk.Finish(), "");
    EXPECT_EQ(talk.server().received(), "");
}

TEST(ClientFetch, HandsOutOnlyWhatWasAskedFor) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("UID FETCH 5:7 (UID RFC822.SIZE)")
                          .Send("* 1 FETCH (UID 5 RFC822.SIZE 50)\r\n"
                                "* 2 FETCH (UID 4 RFC822.SIZE 40)\r\n"  // not of the set
                                "* 3 FETCH (UID 6 FLAGS (\\Seen))\r\n"  // somebody has read it
                                "* 4 FETCH (RFC822.SIZE 70)\r\n"        // of whom?
                                "* 9 EXISTS\r\n"
                                "* 5 FETCH (UID 7 RFC822.SIZE 70 BODY[] {3}\r\nabc)\r\n"
                                "{T} OK\r\n"));
    Collected collected;
    ASSERT_TRUE(talk->Fetch(Sizes(UidSet::Between(5, 7)), collected.Sink()).ok());
    EXPECT_EQ(collected.texts, (Texts{"5:50", "7:70"}));
    EXPECT_TRUE(talk->TakeNews().flags_changed);
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, SendsManyRequestsBeforeTheFirstAnswer) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("UID FETCH 1 (UID BODY.PEEK[])")
                          .Expect("UID FETCH 2 (UID BODY.PEEK[])")
                          .Expect("UID FETCH 3 (UID BODY.PEEK[])")
                          .Send("* 1 FETCH (UID 1 BODY[] {1}\r\na)\r\n{T2} OK\r\n"
                                "* 3 FETCH (BODY[] {1}\r\nc UID 3)\r\n{T} OK\r\n"
                                "* 2 FETCH (UID 2 BODY[] {1}\r\nb)\r\n{T1} OK\r\n"));
    Collected collected;
    const Status status = talk->Fetch({Body(1), Body(2), Body(3)}, collected.Sink());
    ASSERT_TRUE(status.ok()) << status.error().description;
    EXPECT_EQ(collected.texts, (Texts{"1:a", "3:c", "2:b"}));
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, GoesOnAfterOneRequestIsRefused) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("UID FETCH 1 *")
                          .Expect("UID FETCH 2 *")
                          .Send("{T1} NO [EXPUNGEISSUED] some are gone\r\n"
                                "* 1 FETCH (UID 2 RFC822.SIZE 20)\r\n{T} OK\r\n"));
    Collected collected;
    const auto first = talk->StartFetch(Sizes(UidSet::Of(1)), collected.Sink());
    const auto second = talk->StartFetch(Sizes(UidSet::Of(2)), collected.Sink());
    ASSERT_TRUE(first.ok() && second.ok());
    EXPECT_TRUE(talk->Finish(second.value()).ok());
    EXPECT_EQ(talk->Finish(first.value()).error().kind, ErrorKind::kGone);
    EXPECT_EQ(talk->refusal().code, "EXPUNGEISSUED");
    EXPECT_EQ(collected.texts, Texts{"2:20"});
    EXPECT_FALSE(talk->Finish(first.value()).ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, AnyOtherCallFinishesWhatWasStarted) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("UID FETCH 1 *")
                          .Send("* 1 FETCH (UID 1 RFC822.SIZE 10)\r\n{T} OK\r\n")
                          .Expect("NOOP")
                          .Send("{T} OK\r\n"));
    Collected collected;
    const auto ticket = talk->StartFetch(Sizes(UidSet::Of(1)), collected.Sink());
    ASSERT_TRUE(ticket.ok());
    EXPECT_TRUE(talk->Noop().ok());
    EXPECT_EQ(collected.texts, Texts{"1:10"});
    EXPECT_TRUE(talk->Finish(ticket.value()).ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, ASinkThatFailsEndsItsRequestOnly) {
    Conversation talk(
        Script()
            .Send(Greeting(""))
            .Expect("UID FETCH 1:3 *")
            .Send("* 1 FETCH (UID 1 RFC822.SIZE 1)\r\n* 2 FETCH (UID 2 RFC822.SIZE 2)\r\n"
                  "{T} OK\r\n")
            .Expect("NOOP")
            .Send("{T} OK\r\n"));
    int calls = 0;
    const Status status =
        talk->Fetch(Sizes(UidSet::Between(1, 3)), [&calls](FetchedMessage&&) -> Status {
            ++calls;
            return MessagingError(kNotEnoughDisk, "mine");
        });
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, ErrorKind::kNoSpace);
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(talk->Noop().ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, ASinkMayNotCallTheClient) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("UID FETCH 1 *")
                          .Send("* 1 FETCH (UID 1 RFC822.SIZE 1)\r\n{T} OK\r\n"));
    Client& client = talk.client();
    EXPECT_FALSE(
        client.Fetch(Sizes(UidSet::Of(1)), [&client](FetchedMessage&&) { return client.Noop(); })
            .ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, BreaksLongSetsIntoSeveralCommands) {
    UidSet uids;
    for (std::uint32_t uid = 1'000'000; uid < 1'001'600; uid += 2) {
        uids.Add(uid);
    }
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("UID FETCH 1000000,*")
                          .Expect("UID FETCH *")
                          .Send("* 1 FETCH (UID 1000000 RFC822.SIZE 1)\r\n{T1} OK\r\n"
                                "* 2 FETCH (UID 1001598 RFC822.SIZE 2)\r\n{T} OK\r\n"));
    Collected collected;
    ASSERT_TRUE(talk->Fetch(Sizes(uids), collected.Sink()).ok());
    EXPECT_EQ(collected.texts, (Texts{"1000000:1", "1001598:2"}));
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, DoesNotSendMoreAheadThanTheLimits) {
    Script script;
    script.Send(Greeting(""));
    std::vector<FetchRequest> requests;
    // Three at a time: the server says nothing before it has seen three, and then answers one.
    for (std::uint32_t uid = 1; uid <= 6; ++uid) {
        requests.push_back(Sizes(UidSet::Of(uid)));
        script.Expect("UID FETCH " + std::to_string(uid) + " *");
        if (uid >= 3) script.Send("{T2} OK\r\n");
    }
    script.Send("{T1} OK\r\n{T} OK\r\n");
    Limits limits;
    limits.in_flight = 3;
    limits.silence = std::chrono::milliseconds(10'000);
    Conversation talk(script, {}, &limits);
    Collected collected;
    EXPECT_TRUE(talk->Fetch(requests, collected.Sink()).ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, TellsWhatIsGoneSince) {
    Conversation talk(Script()
                          .Send(Greeting("QRESYNC"))
                          .Expect("UID FETCH 1:* (UID FLAGS) (CHANGEDSINCE 10 VANISHED)")
                          .Send("* VANISHED (EARLIER) 3:4\r\n* VANISHED (EARLIER) 9\r\n"
                                "* 1 FETCH (UID 1 FLAGS ())\r\n{T} OK\r\n"));
    FetchRequest request;
    request.uids = UidSet::From(1);
    request.flags = true;
    request.changed_since = 10;
    Collected collected;
    const auto gone = talk->FetchChanges(request, collected.Sink());
    ASSERT_TRUE(gone.ok());
    EXPECT_EQ(gone.value().ToText(), "3:4,9");
    EXPECT_EQ(collected.texts, Texts{"1:"});
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientFetch, LargeContentComesAsAFile) {
    const std::string large(3'000'000, 'q');
    Conversation talk(
        Script()
            .Send(Greeting(""))
            .Expect("UID FETCH 1 (UID BODY.PEEK[])")
            .Send("* 1 FETCH (UID 1 BODY[] {3000000}\r\n" + large + ")\r\n{T} OK\r\n"));
    Blob content;
    ASSERT_TRUE(talk->Fetch(Body(1),
                            [&content](FetchedMessage&& message) -> Status {
                                content = *message.Find("")->content;
                                return {};
                            })
                    .ok());
    EXPECT_EQ(talk.Finish(), "");
    EXPECT_EQ(content.in_memory(), nullptr);
    EXPECT_EQ(content.ToString().value(), large);
}

TEST(ClientFetch, ContentThatIsTooLargeEndsTheConnection) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect("UID FETCH 1 *")
                          .Send("* 1 FETCH (UID 1 BODY[] {4000000}\r\n"));
    FetchRequest request = Body(1);
    request.most_content_bytes = 3'000'000;
    Collected collected;
    const Status status = talk->Fetch(request, collected.Sink());
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, ErrorKind::kMalformed);
    EXPECT_FALSE(talk->connected());
}

TEST(ClientFetch, AnUnusableSpoolIsTheLocalDisksError) {
    test::ScriptedServer server(Script()
                                    .Send(Greeting(""))
                                    .Expect("UID FETCH 1 *")
                                    .Send("* 1 FETCH (UID 1 BODY[] {100000}\r\n")
                                    .Repeat("0123456789", 10'000));
    ConnectSettings settings = test::SettingsFor(server);
    settings.spool_directory = "/nonexistent/spool";
    auto client = Client::Connect(settings);
    ASSERT_TRUE(client.ok());
    Collected collected;
    const Status status = client.value()->Fetch(Body(1), collected.Sink());
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, ErrorKind::kIo);
    EXPECT_NE(status.error().description.find("/nonexistent/spool"), std::string::npos);
    EXPECT_FALSE(client.value()->connected());
}

TEST(ClientFetch, ASectionThatCannotBeSentIsNot) {
    Conversation talk(Script().Send(Greeting("")));
    FetchRequest request = Body(1);
    request.sections[0].section = "1]\r\nT9 EXPUNGE";
    Collected collected;
    EXPECT_FALSE(talk->Fetch(request, collected.Sink()).ok());
    EXPECT_EQ(talk.Finish(), "");
    EXPECT_EQ(talk.server().received(), "");
}

}  // namespace
}  // namespace trevix::imap
