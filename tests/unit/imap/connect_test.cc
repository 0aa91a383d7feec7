// Greeting, capabilities, log-in.
#include <gtest/gtest.h>

#include <string>

#include "unit/imap/imap_world.h"

namespace trevix::imap {
namespace {

using test::Conversation;
using test::Greeting;
using test::Script;
using test::ScriptedServer;
using test::SettingsFor;

Credentials Alice() {
    Credentials credentials;
    credentials.user = "alice";
    credentials.secret = "pa\"ss";
    return credentials;
}

TEST(ClientConnect, AsksForCapabilitiesThatWereNotTold) {
    Conversation talk(Script()
                          .Send("* OK ready\r\n")
                          .Expect("CAPABILITY")
                          .Send("* CAPABILITY IMAP4rev1 Uidplus\r\n{T} OK done\r\n"));
    ASSERT_TRUE(talk.connected()) << talk.connect_error().description;
    EXPECT_TRUE(talk->Offers("uidplus"));
    EXPECT_FALSE(talk->Offers("REPLACE"));
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientConnect, ReportsWhyTheServerDoesNotWantUs) {
    Conversation talk(Script().Send("* BYE too many of \x1b[1m you \xC2\x9B \xFF\r\n").HangUp());
    ASSERT_FALSE(talk.connected());
    EXPECT_EQ(talk.connect_error().kind, ErrorKind::kIo);
    EXPECT_EQ(talk.connect_error().description.find(
                  "127.0.0.1: the server does not want us: too many of  [1m you   \xEF\xBF\xBD"),
              0U);
}

TEST(ClientConnect, GreetingsThatAreNoneAreRefused) {
    for (const char* const greeting :
         {"* NO go away\r\n", "T1 OK hello\r\n", "+ go ahead\r\n", "220 smtp.example ESMTP\r\n",
          "SSH-2.0-OpenSSH_9.2\r\n", "* CAPABILITY IMAP4rev1\r\n"}) {
        Conversation talk(Script().Send(greeting).HangUp());
        ASSERT_FALSE(talk.connected()) << greeting;
        EXPECT_EQ(talk.connect_error().kind, ErrorKind::kMalformed) << greeting;
    }
}

TEST(ClientConnect, AServerThatSaysNothingIsGivenUp) {
    ScriptedServer server(Script{});
    ConnectSettings settings = SettingsFor(server);
    settings.limits.handshake = std::chrono::milliseconds(50);
    const auto client = Client::Connect(settings);
    ASSERT_FALSE(client.ok());
    EXPECT_EQ(client.error().kind, ErrorKind::kIo);
    EXPECT_EQ(client.error().description.find("127.0.0.1: the server does not answer"), 0U);
}

TEST(ClientConnect, AServerThatDribblesIsGivenUpToo) {
    ScriptedServer server(Script().Repeat("*", 1'000'000'000));
    ConnectSettings settings = SettingsFor(server);
    settings.limits.skipped_bytes = 100'000;
    const auto client = Client::Connect(settings);
    ASSERT_FALSE(client.ok());
    EXPECT_EQ(client.error().kind, ErrorKind::kMalformed);
}

TEST(ClientConnect, APortWhereNobodyListensIsAnError) {
    ConnectSettings settings;
    {
        const ScriptedServer server(Script{});
        settings = SettingsFor(server);
    }
    const auto client = Client::Connect(settings);
    ASSERT_FALSE(client.ok());
    EXPECT_EQ(client.error().kind, ErrorKind::kIo);
    EXPECT_EQ(client.error().description.find("127.0.0.1: Connection refused"), 0U);
}

TEST(ClientConnect, WithoutEncryptionOnlyThisMachineIsSpokenTo) {
    ConnectSettings settings;
    settings.host = "192.0.2.1";  // an address for documents: nobody is there
    settings.security = Security::kPlainLoopbackOnly;
    const auto client = Client::Connect(settings);
    ASSERT_FALSE(client.ok());
    EXPECT_EQ(client.error().kind, ErrorKind::kDenied);
}

TEST(ClientLogIn, SendsPlainWithTheCommandWhereItMay) {
    Conversation talk(Script()
                          .Send("* OK [CAPABILITY IMAP4rev1 SASL-IR AUTH=PLAIN] hi\r\n")
                          .Expect("AUTHENTICATE PLAIN Ym9iAGFsaWNlAHBhInNz")
                          .Send("{T} OK [CAPABILITY IMAP4rev1 REPLACE] in\r\n"));
    ASSERT_TRUE(talk.connected());
    Credentials credentials = Alice();
    credentials.authorisation = "bob";
    const Status status = talk->LogIn(credentials);
    EXPECT_TRUE(status.ok());
    EXPECT_TRUE(talk->Offers("REPLACE"));
    EXPECT_FALSE(talk->Offers("AUTH=PLAIN"));
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientLogIn, WaitsToBeAskedForPlainWhereItMust) {
    Conversation talk(Script()
                          .Send("* OK [CAPABILITY IMAP4rev1 AUTH=PLAIN] hi\r\n")
                          .Expect("AUTHENTICATE PLAIN")
                          .Send("+ \r\n")
                          .ExpectRaw("AGFsaWNlAHBhInNz")
                          .Send("{T} OK in\r\n")
                          .Expect("CAPABILITY")
                          .Send("* CAPABILITY IMAP4rev1 IDLE\r\n{T} OK\r\n"));
    ASSERT_TRUE(talk.connected());
    const Status status = talk->LogIn(Alice());
    EXPECT_TRUE(status.ok());
    EXPECT_TRUE(talk->Offers("IDLE"));
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientLogIn, FallsBackToLogin) {
    Conversation talk(Script()
                          .Send("* OK [CAPABILITY IMAP4rev1] hi\r\n")
                          .Expect("LOGIN \"alice\" \"pa\\\"ss\"")
                          .Send("* CAPABILITY IMAP4rev1 IDLE\r\n{T} OK in\r\n"));
    ASSERT_TRUE(talk.connected());
    const Status status = talk->LogIn(Alice());
    EXPECT_TRUE(status.ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientLogIn, SendsAPasswordThatCannotBeQuotedAsALiteral) {
    Conversation talk(Script()
                          .Send("* OK [CAPABILITY IMAP4rev1] hi\r\n")
                          .Expect("LOGIN \"alice\" {3}")
                          .Send("+ go on\r\n")
                          .TakeContent(3)
                          .ExpectRaw("")
                          .Send("{T} OK [CAPABILITY IMAP4rev1] in\r\n"));
    ASSERT_TRUE(talk.connected());
    Credentials credentials = Alice();
    credentials.secret = "\xC3\xA4\n";
    const Status status = talk->LogIn(credentials);
    EXPECT_TRUE(status.ok());
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientLogIn, DoesNotSendAPasswordThatIsNotWanted) {
    Conversation talk(Script().Send("* OK [CAPABILITY IMAP4rev1 LOGINDISABLED] hi\r\n"));
    ASSERT_TRUE(talk.connected());
    const Status status = talk->LogIn(Alice());
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, ErrorKind::kUnsupported);
    EXPECT_EQ(talk.Finish(), "");
    EXPECT_EQ(talk.server().received(), "");
}

TEST(ClientLogIn, DoesNotLogInForSomebodyElseByLogin) {
    Conversation talk(Script().Send("* OK [CAPABILITY IMAP4rev1] hi\r\n"));
    ASSERT_TRUE(talk.connected());
    Credentials credentials = Alice();
    credentials.authorisation = "bob";
    const Status status = talk->LogIn(credentials);
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(talk.Finish(), "");
    EXPECT_EQ(talk.server().received(), "");
}

TEST(ClientLogIn, WrongCredentialsAreDenied) {
    for (const char* const answer : {"NO [AUTHENTICATIONFAILED] Authentication failed.", "NO no",
                                     "BAD what", "NO [EXPIRED] x"}) {
        Conversation talk(Script()
                              .Send("* OK [CAPABILITY IMAP4rev1 SASL-IR AUTH=PLAIN] hi\r\n")
                              .Expect("AUTHENTICATE PLAIN *")
                              .Send(std::string("{T} ") + answer + "\r\n"));
        ASSERT_TRUE(talk.connected());
        const Status status = talk->LogIn(Alice());
        ASSERT_FALSE(status.ok());
        EXPECT_EQ(status.error().kind, ErrorKind::kDenied) << answer;
        EXPECT_TRUE(talk->connected());
        EXPECT_EQ(talk.Finish(), "");
    }
}

TEST(ClientLogIn, AServerThatIsNotReadyIsNoWrongPassword) {
    Conversation talk(Script()
                          .Send("* OK [CAPABILITY IMAP4rev1 SASL-IR AUTH=PLAIN] hi\r\n")
                          .Expect("AUTHENTICATE PLAIN *")
                          .Send("{T} NO [UNAVAILABLE] Temporary authentication failure.\r\n"));
    ASSERT_TRUE(talk.connected());
    const Status status = talk->LogIn(Alice());
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, ErrorKind::kBusy);
    EXPECT_EQ(talk->refusal().code, "UNAVAILABLE");
}

TEST(ClientLogIn, XoauthHearsTheRefusalToItsEnd) {
    Conversation talk(Script()
                          .Send("* OK [CAPABILITY IMAP4rev1 SASL-IR AUTH=XOAUTH2] hi\r\n")
                          .Expect("AUTHENTICATE XOAUTH2 dXNlcj1hbGljZQFhdXRoPUJlYXJlciB0b2tlbgEB")
                          .Send("+ eyJzdGF0dXMiOiI0MDEifQ==\r\n")
                          .ExpectRaw("")
                          .Send("{T} NO [AUTHENTICATIONFAILED] invalid\r\n"));
    ASSERT_TRUE(talk.connected());
    Credentials credentials;
    credentials.method = LoginMethod::kXoauth2;
    credentials.user = "alice";
    credentials.secret = "token";
    const Status status = talk->LogIn(credentials);
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, ErrorKind::kDenied);
    EXPECT_EQ(status.error().description.find("token"), std::string::npos);
    EXPECT_EQ(talk.Finish(), "");
}

TEST(ClientLogIn, PromptsWithoutEndAreGivenUp) {
    Conversation talk(Script()
                          .Send("* OK [CAPABILITY IMAP4rev1 SASL-IR AUTH=PLAIN] hi\r\n")
                          .Expect("AUTHENTICATE PLAIN *")
                          .Send("+ \r\n")
                          .ExpectRaw("")
                          .Send("+ \r\n")
                          .ExpectRaw("")
                          .Send("+ \r\n")
                          .ExpectRaw("")
                          .Send("+ \r\n")
                          .ExpectRaw("")
                          .Send("+ \r\n")
                          .ExpectRaw("")
                          .Send("+ \r\n"));
    ASSERT_TRUE(talk.connected());
    const Status status = talk->LogIn(Alice());
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().kind, ErrorKind::kMalformed);
    EXPECT_FALSE(talk->connected());
}

TEST(ClientLogIn, ASecretWithAZeroByteIsNotSent) {
    Conversation talk(Script().Send("* OK [CAPABILITY IMAP4rev1 AUTH=PLAIN] hi\r\n"));
    ASSERT_TRUE(talk.connected());
    Credentials credentials = Alice();
    credentials.secret = std::string_view("a\0b", 3);
    EXPECT_FALSE(talk->LogIn(credentials).ok());
    EXPECT_EQ(talk.Finish(), "");
    EXPECT_EQ(talk.server().received(), "");
}

}  // namespace
}  // namespace trevix::imap
