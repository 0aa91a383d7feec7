// Messages on their way to the server, and what is known of them when it goes wrong.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/errors.h"
#include "unit/imap/imap_world.h"

namespace trevix::imap {
namespace {

using test::Conversation;
using test::Greeting;
using test::Script;
using test::ServerManners;

AppendRequest Mail(std::string content = "a mail\r\n") {
    AppendRequest request;
    request.mailbox = "Sent";
    request.flags = {"\\Seen", "\\Recent", "$Label1"};
    request.internal_date = DateTime{1612321506, 60};
    request.content = Blob::FromString(std::move(content));
    return request;
}

constexpr const char* kLine = "APPEND \"Sent\" (\\Seen $Label1) \" 3-Feb-2021 04:05:06 +0100\" ";

// Bytes that cannot be read to their end.
class BrokenSource final : public Blob::Source {
 public:
    std::uint64_t size_bytes() const override { return 600'000; }
    Status ReadAt(std::uint64_t offset, char* target, std::size_t count) const override {
        if (offset > 0) return MessagingError(kDiskError, "disk");
        std::fill_n(target, count, 'x');
        return {};
    }
};

TEST(ClientAppend, WaitsUntilTheServerIsWilling) {
    Conversation talk(Script()
                          .Send(Greeting("UIDPLUS"))
                          .Expect(std::string(kLine) + "{8}")
                          .Send("* 5 EXISTS\r\n+ OK\r\n")
                          .TakeContent(8)
                          .ExpectRaw("")
                          .Send("* 6 EXISTS\r\n{T} OK [APPENDUID 38505 3955] done\r\n"));
    const auto appended = talk->Append(Mail());
    ASSERT_TRUE(appended.ok()) << appended.error().description;
    ASSERT_TRUE(appended.value());
    EXPECT_EQ(appended.value()->uid_validity, 38505U);
    EXPECT_EQ(appended.value()->uid, 3955U);
    EXPECT_FALSE(talk->fate_unknown());
    EXPECT_EQ(talk.Finish(), "");
    EXPECT_NE(talk.server().received().find("{8}\r\na mail\r\n\r\n"), std::string::npos);
}

TEST(ClientAppend, DoesNotWaitWhereItNeedNot) {
    Conversation talk(Script()
                          .Send(Greeting("LITERAL-"))
                          .Expect(std::string(kLine) + "{4096+}")
                          .TakeContent(4096)
                          .ExpectRaw("")
                          .Send("{T} OK done\r\n")
                          .Expect(std::string(kLine) + "{4097}")
                          .Send("{T} NO [TRYCREATE] no such mailbox\r\n"));
    const auto appended = talk->Append(Mail(std::string(4096, 'x')));
    ASSERT_TRUE(appended.ok());
    EXPECT_FALSE(appended.value());
    const auto refused = talk->Append(Mail(std::string(4097, 'x')));
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error().kind, ErrorKind::kNotFound);
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientAppend, AsksBeforeItSendsMuch) {
    const std::string much(std::size_t{3} << 20, 'x');
    Conversation talk(Script()
                          .Send(Greeting("LITERAL+"))
                          .Expect(std::string(kLine) + "{3145728}")
                          .Send("{T} NO [OVERQUOTA] Quota exceeded (mailbox for user is full)\r\n")
                          .Expect("NOOP")
                          .Send("{T} OK\r\n"));
    const auto appended = talk->Append(Mail(much));
    ASSERT_FALSE(appended.ok());
    EXPECT_EQ(appended.error().kind, ErrorKind::kNoSpace);
    EXPECT_EQ(appended.error().description.find(
                  "127.0.0.1: [OVERQUOTA] Quota exceeded (mailbox for user is full)"),
              0U);
    EXPECT_EQ(talk->refusal().code, "OVERQUOTA");
    EXPECT_FALSE(talk->fate_unknown());
    EXPECT_TRUE(talk->Noop().ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientAppend, StreamsALargeMail) {
    const std::string much(std::size_t{3} << 20, 'x');
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect(std::string(kLine) + "{3145728}")
                          .Send("+ go\r\n")
                          .TakeContent(much.size())
                          .ExpectRaw("")
                          .Send("{T} OK [APPENDUID 1 2]\r\n"));
    EXPECT_TRUE(talk->Append(Mail(much)).ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientAppend, SendsAnEmptyMail) {
    Conversation talk(Script()
                          .Send(Greeting("LITERAL+"))
                          .Expect(std::string(kLine) + "{0+}")
                          .ExpectRaw("")
                          .Send("{T} NO empty\r\n"));
    EXPECT_FALSE(talk->Append(Mail("")).ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientAppend, ContentThatCannotBeReadIsNotStored) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect(std::string(kLine) + "{600000}")
                          .Send("+ go\r\n")
                          .TakeContent(600'000));
    AppendRequest request = Mail();
    request.content = Blob(std::make_shared<BrokenSource>());
    const auto appended = talk->Append(request);
    ASSERT_FALSE(appended.ok());
    EXPECT_EQ(appended.error().number, MessagingError(kDiskError).number);
    EXPECT_FALSE(talk->connected());
    EXPECT_FALSE(talk->fate_unknown());
    EXPECT_EQ(talk.Finish(), "");
    EXPECT_LT(talk.server().received().size(), 600'000U);
}

TEST(ClientAppend, AnAnswerThatIsLostLeavesTheFateUnknown) {
    Conversation talk(Script()
                          .Send(Greeting("LITERAL+"))
                          .Expect(std::string(kLine) + "{8+}")
                          .TakeContent(8)
                          .ExpectRaw("")
                          .HangUp());
    const auto appended = talk->Append(Mail());
    ASSERT_FALSE(appended.ok());
    EXPECT_EQ(appended.error().kind, ErrorKind::kIo);
    EXPECT_FALSE(talk->connected());
    EXPECT_TRUE(talk->fate_unknown());
}

TEST(ClientAppend, ARefusalLeavesNothingUnknown) {
    Conversation talk(Script()
                          .Send(Greeting("LITERAL+"))
                          .Expect(std::string(kLine) + "{8+}")
                          .TakeContent(8)
                          .ExpectRaw("")
                          .Send("{T} NO [INUSE] locked\r\n"));
    const auto appended = talk->Append(Mail());
    ASSERT_FALSE(appended.ok());
    EXPECT_EQ(appended.error().kind, ErrorKind::kBusy);
    EXPECT_TRUE(talk->connected());
    EXPECT_FALSE(talk->fate_unknown());
}

TEST(ClientAppend, DoneBeforeTheContentIsNonsense) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect(std::string(kLine) + "{8}")
                          .Send("{T} OK [APPENDUID 1 2] done already\r\n"));
    const auto appended = talk->Append(Mail());
    ASSERT_FALSE(appended.ok());
    EXPECT_EQ(appended.error().kind, ErrorKind::kMalformed);
    EXPECT_FALSE(talk->connected());
}

TEST(ClientAppend, TheLastWordsOfTheServerAreReported) {
    Conversation talk(Script()
                          .Send(Greeting(""))
                          .Expect(std::string(kLine) + "{8}")
                          .Send("* BYE shutting down\r\n")
                          .HangUp());
    const auto appended = talk->Append(Mail());
    ASSERT_FALSE(appended.ok());
    EXPECT_EQ(appended.error().description.find(
                  "127.0.0.1: the server ended the connection: shutting down"),
              0U);
    EXPECT_FALSE(talk->fate_unknown());
}

// The answer may be cut, and the command may be cut: at no byte does the client believe what is not
// so, and it says "unknown" exactly when the server may have all it needs.
TEST(ClientAppend, CutAtEachByteSentByTheServer) {
    const std::string answer = "* 6 EXISTS\r\nT1 OK [APPENDUID 38505 3955] done\r\n";
    const std::string greeting = Greeting("");
    const std::string prompt = "+ OK\r\n";
    for (std::size_t cut = 0; cut <= prompt.size() + answer.size(); ++cut) {
        ServerManners manners;
        manners.cut_after_sent = greeting.size() + cut;
        Conversation talk(Script()
                              .Send(greeting)
                              .Expect(std::string(kLine) + "{8}")
                              .Send(prompt)
                              .TakeContent(8)
                              .ExpectRaw("")
                              .Send(answer),
                          manners);
        if (cut == 0) {
            // It hangs up right behind the greeting.
            if (talk.connected()) {
                EXPECT_FALSE(talk->Append(Mail()).ok());
            }
            continue;
        }
        ASSERT_TRUE(talk.connected());
        const auto appended = talk->Append(Mail());
        if (cut == prompt.size() + answer.size()) {
            EXPECT_TRUE(appended.ok()) << cut;
            continue;
        }
        ASSERT_FALSE(appended.ok()) << cut;
        EXPECT_EQ(appended.error().kind, ErrorKind::kIo) << cut << appended.error().description;
        EXPECT_FALSE(talk->connected());
        if (cut < prompt.size()) {
            EXPECT_FALSE(talk->fate_unknown()) << cut;
        }
        if (cut > prompt.size()) {
            EXPECT_TRUE(talk->fate_unknown()) << cut;
        }
    }
}

TEST(ClientAppend, CutAtEachByteReceivedByTheServer) {
    const std::string command = "T1 " + std::string(kLine) + "{8}\r\n";
    const std::size_t whole = command.size() + 8 + 2;
    for (std::size_t cut = 1; cut < whole; ++cut) {
        ServerManners manners;
        manners.cut_after_received = cut;
        Conversation talk(Script()
                              .Send(Greeting(""))
                              .Expect(std::string(kLine) + "{8}")
                              .Send("+ OK\r\n")
                              .TakeContent(8)
                              .ExpectRaw("")
                              .Send("{T} OK done\r\n"),
                          manners);
        ASSERT_TRUE(talk.connected());
        const auto appended = talk->Append(Mail());
        ASSERT_FALSE(appended.ok()) << cut;
        EXPECT_EQ(appended.error().kind, ErrorKind::kIo) << cut << appended.error().description;
        EXPECT_FALSE(talk->connected());
        if (cut < command.size()) {
            EXPECT_FALSE(talk->fate_unknown()) << cut;
        }
    }
}

}  // namespace
}  // namespace trevix::imap
