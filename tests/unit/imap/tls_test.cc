// Encryption: who is spoken to, and what is believed before it is there.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "unit/imap/certificates.h"
#include "unit/imap/imap_world.h"
#include "unit/posix/scratch.h"

namespace trevix::imap {
namespace {

using test::CertificateWishes;
using test::Greeting;
using test::Script;
using test::ScriptedServer;
using test::ServerManners;

// A server with a certificate, and a client that trusts its authority.
class TlsWorld {
 public:
    explicit TlsWorld(const Script& script, const CertificateWishes& wishes = {},
                      Security security = Security::kTls, const std::string& versions = {})
        : certificate_(authority_.Issue(wishes)) {
        ServerManners manners;
        manners.certificate = certificate_;
        manners.tls_versions = versions;
        server_ = std::make_unique<ScriptedServer>(script, manners);
        test::Put(scratch_ / "ca.pem", authority_.Pem());
        settings = test::SettingsFor(*server_);
        settings.security = security;
        settings.ca_file = scratch_ / "ca.pem";
    }
    TlsWorld(const TlsWorld&) = delete;
    TlsWorld& operator=(const TlsWorld&) = delete;
    ~TlsWorld() {
        server_.reset();
        gnutls_certificate_free_credentials(certificate_);
    }

    ScriptedServer& server() { return *server_; }

    ConnectSettings settings;

 private:
    test::Scratch scratch_;
    test::TestAuthority authority_;
    gnutls_certificate_credentials_t certificate_;
    std::unique_ptr<ScriptedServer> server_;
};

Script Quiet() {
    return Script().Tls().Send(Greeting("IDLE"));
}

// The error of a connection that must not come about; "connected" if it does.
Error Refused(TlsWorld& world) {
    auto client = Client::Connect(world.settings);
    return client.ok() ? Error{ErrorKind::kOther, 0, "connected"} : client.error();
}

TEST(TlsCertificate, OfATrustedAuthorityForTheNameIsAccepted) {
    TlsWorld world(Script().Tls().Send(Greeting("IDLE")).Expect("NOOP").Send("{T} OK\r\n"));
    auto client = Client::Connect(world.settings);
    ASSERT_TRUE(client.ok()) << client.error().description;
    EXPECT_TRUE(client.value()->Noop().ok());
    client.value().reset();
    EXPECT_EQ(world.server().Finish(), "");
}

TEST(TlsCertificate, IsCheckedForTheNameThatWasDialled) {
    CertificateWishes wishes;
    wishes.loopback_address = false;
    wishes.dns_name = "localhost";
    TlsWorld right(Quiet(), wishes);
    right.settings.host = "localhost";
    auto client = Client::Connect(right.settings);
    EXPECT_TRUE(client.ok()) << client.error().description;
    TlsWorld wrong(Quiet(), wishes);
    const Error error = Refused(wrong);
    EXPECT_EQ(error.kind, ErrorKind::kDenied);
    EXPECT_EQ(error.description.find("127.0.0.1: the certificate is for another name"), 0U)
        << error.description;
}

TEST(TlsCertificate, ForAnotherNameIsRefused) {
    CertificateWishes wishes;
    wishes.loopback_address = false;
    wishes.dns_name = "mail.example";
    TlsWorld world(Quiet(), wishes);
    world.settings.host = "localhost";
    const Error error = Refused(world);
    EXPECT_EQ(error.kind, ErrorKind::kDenied);
    EXPECT_EQ(error.description.find("localhost: the certificate is for another name"), 0U)
        << error.description;
}

TEST(TlsCertificate, ThatDoesNotHoldIsRefused) {
    struct Row {
        CertificateWishes wishes;
        const char* text;
    };
    std::vector<Row> rows(4);
    rows[0].wishes.expired = true;
    rows[0].text = "the certificate has expired";
    rows[1].wishes.not_yet_valid = true;
    rows[1].text = "the certificate is not valid yet";
    rows[2].wishes.by_itself = true;
    rows[2].text = "the certificate is from an authority that is not trusted";
    rows[3].wishes.for_clients = true;
    rows[3].text = "the certificate is not meant for a server";
    for (const Row& row : rows) {
        TlsWorld world(Quiet(), row.wishes);
        const Error error = Refused(world);
        EXPECT_EQ(error.kind, ErrorKind::kDenied) << row.text;
        EXPECT_NE(error.description.find(row.text), std::string::npos) << error.description;
    }
}

TEST(TlsCertificate, OfAnAuthorityThatTheSystemDoesNotKnowIsRefused) {
    TlsWorld world(Quiet());
    world.settings.ca_file.clear();
    EXPECT_EQ(Refused(world).kind, ErrorKind::kDenied);
}

TEST(TlsCertificate, NeedsAFileThatHoldsAuthorities) {
    const test::Scratch scratch;
    test::Put(scratch / "empty.pem", "nothing");
    for (const char* const name : {"empty.pem", "missing.pem"}) {
        TlsWorld world(Quiet());
        world.settings.ca_file = scratch / name;
        const Error error = Refused(world);
        EXPECT_EQ(error.kind, ErrorKind::kDenied);
        EXPECT_NE(error.description.find(name), std::string::npos) << error.description;
    }
}

TEST(TlsHandshake, OldVersionsAreRefused) {
    TlsWorld world(Quiet(), {}, Security::kTls, "NORMAL:-VERS-ALL:+VERS-TLS1.1:+VERS-TLS1.0");
    const Error error = Refused(world);
    EXPECT_EQ(error.kind, ErrorKind::kIo);
    EXPECT_NE(error.description.find("TLS"), std::string::npos) << error.description;
}

TEST(TlsHandshake, TheOlderOfTheTwoVersionsIsSpoken) {
    TlsWorld world(Quiet(), {}, Security::kTls, "NORMAL:-VERS-ALL:+VERS-TLS1.2");
    auto client = Client::Connect(world.settings);
    EXPECT_TRUE(client.ok()) << client.error().description;
}

TEST(TlsHandshake, AServerThatSpeaksPlainIsAnError) {
    TlsWorld world(Script().Send("* OK [CAPABILITY IMAP4rev1] plain\r\n"));
    const Error error = Refused(world);
    EXPECT_EQ(error.kind, ErrorKind::kIo);
}

TEST(TlsHandshake, AServerThatSaysNothingIsGivenUp) {
    TlsWorld world(Script{});
    world.settings.limits.handshake = std::chrono::milliseconds(50);
    const Error error = Refused(world);
    EXPECT_EQ(error.kind, ErrorKind::kIo);
    EXPECT_NE(error.description.find("does not answer"), std::string::npos);
}

TEST(TlsHandshake, LargeContentGoesThrough) {
    const std::string large(2'000'000, 'q');
    TlsWorld world(Script()
                       .Tls()
                       .Send(Greeting(""))
                       .Expect("UID FETCH *")
                       .Send("* 1 FETCH (UID 1 BODY[] {2000000}\r\n" + large + ")\r\n{T} OK\r\n")
                       .Expect("APPEND \"a\" () {2000000}")
                       .Send("+ go\r\n")
                       .TakeContent(2'000'000)
                       .ExpectRaw("")
                       .Send("{T} OK\r\n"));
    auto client = Client::Connect(world.settings);
    ASSERT_TRUE(client.ok()) << client.error().description;
    FetchRequest request;
    request.uids = UidSet::Of(1);
    request.sections.push_back({});
    AppendRequest append;
    append.mailbox = "a";
    ASSERT_TRUE(client.value()
                    ->Fetch(request,
                            [&append](FetchedMessage&& message) -> Status {
                                append.content = *message.Find("")->content;
                                return {};
                            })
                    .ok());
    EXPECT_EQ(append.content.ToString().value(), large);
    EXPECT_TRUE(client.value()->Append(append).ok());
    client.value().reset();
    EXPECT_EQ(world.server().Finish(), "");
}

Script Upgrade() {
    return Script()
        .Send("* OK [CAPABILITY IMAP4rev1 STARTTLS LOGINDISABLED] hi\r\n")
        .Expect("STARTTLS")
        .Send("{T} OK begin\r\n")
        .Tls();
}

TEST(StartTls, AsksForTheCapabilitiesAgain) {
    TlsWorld world(
        Upgrade().Expect("CAPABILITY").Send("* CAPABILITY IMAP4rev1 AUTH=PLAIN\r\n{T} OK\r\n"), {},
        Security::kStartTls);
    auto client = Client::Connect(world.settings);
    ASSERT_TRUE(client.ok()) << client.error().description;
    EXPECT_TRUE(client.value()->Offers("AUTH=PLAIN"));
    EXPECT_FALSE(client.value()->Offers("LOGINDISABLED"));
    client.value().reset();
    EXPECT_EQ(world.server().Finish(), "");
}

TEST(StartTls, NeverGoesOnWithoutEncryption) {
    struct Row {
        Script script;
        ErrorKind kind;
    };
    const Row rows[] = {
        {Script().Send("* OK [CAPABILITY IMAP4rev1] hi\r\n"), ErrorKind::kDenied},
        {Script().Send("* PREAUTH [CAPABILITY IMAP4rev1 STARTTLS] hi\r\n"), ErrorKind::kDenied},
        {Script()
             .Send("* OK [CAPABILITY IMAP4rev1 STARTTLS] hi\r\n")
             .Expect("STARTTLS")
             .Send("{T} NO not now\r\n"),
         ErrorKind::kDenied},
        {Script()
             .Send("* OK [CAPABILITY IMAP4rev1 STARTTLS] hi\r\n")
             .Expect("STARTTLS")
             .Send("{T} OK begin\r\n* CAPABILITY IMAP4rev1 AUTH=PLAIN\r\n"),
         ErrorKind::kMalformed},
    };
    for (const Row& row : rows) {
        TlsWorld world(row.script, {}, Security::kStartTls);
        const Error error = Refused(world);
        EXPECT_EQ(error.kind, row.kind) << error.description;
        world.server().Finish();
        EXPECT_EQ(world.server().received().find("LOGIN"), std::string::npos);
    }
}

TEST(StartTls, ChecksTheCertificateToo) {
    CertificateWishes wishes;
    wishes.expired = true;
    TlsWorld world(Upgrade(), wishes, Security::kStartTls);
    EXPECT_EQ(Refused(world).kind, ErrorKind::kDenied);
}

}  // namespace
}  // namespace trevix::imap
