#include "platform/imap/server_settings.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "unit/posix/scratch.h"

namespace trevix::imap {
namespace {

using test::Put;
using test::Scratch;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Kind = SecretSource::Kind;

struct World {
    Scratch scratch;
    std::string path = scratch / "servers.conf";

    void Write(const std::string& text, mode_t mode = 0600) const {
        Put(path, text);
        ::chmod(path.c_str(), mode);
    }
    Result<ServerSettings> For(const std::string& address) const {
        return ServerFile(path).For(ParseAddress(address).value());
    }
    Result<ServerSettings> For(const std::string& server, const std::string& user) const {
        return ServerFile(path).For(ParseServerAndUser(server, user).value());
    }
};

TEST(ServerFileFor, IsContentWithoutAFile) {
    const World world;

    const auto settings = world.For("imaps://ann@host");

    ASSERT_TRUE(settings.ok());
    EXPECT_EQ(settings.value().address, "imaps://ann@host");
    EXPECT_EQ(settings.value().connection.host, "host");
    EXPECT_EQ(settings.value().connection.port, 993);
    EXPECT_EQ(settings.value().connection.security, Security::kTls);
    EXPECT_EQ(settings.value().connection.ca_file, "");
    EXPECT_EQ(settings.value().method, LoginMethod::kPassword);
    EXPECT_EQ(settings.value().login, "ann");
    EXPECT_EQ(settings.value().authorisation, "");
    EXPECT_EQ(settings.value().secret.kind, Kind::kNone);
    EXPECT_EQ(settings.value().secret.said_at, world.path);
}

TEST(ServerFileFor, TakesWhatTheServerAndTheUserSay) {
    const World world;
    world.Write(
        "# ours\n"
        "; as well\n"
        "[IMAP.example.org]\n"
        "port = 1993\n"
        "ca_file=/etc/ssl/ours.pem\r\n"
        "  password_file =  /etc/trevix/all.password  \n"
        "hidden_mailbox = Our results\n"
        "\n"
        "[ann@example.org@imap.example.org]\n"
        "ca_file = /etc/ssl/ann's.pem\n"
        "[other]\n"
        "port = 7\n");

    const auto ann = world.For("imaps://ann@example.org@imap.example.org");
    const auto ben = world.For("imaps://ben@imap.example.org:9930");

    ASSERT_TRUE(ann.ok()) << ann.error().description;
    EXPECT_EQ(ann.value().address, "imaps://ann%40example.org@imap.example.org:1993");
    EXPECT_EQ(ann.value().connection.ca_file, "/etc/ssl/ann's.pem");
    EXPECT_EQ(ann.value().secret.name, "/etc/trevix/all.password");
    EXPECT_EQ(ann.value().secret.said_at, world.path + ":6");
    EXPECT_EQ(ann.value().hidden_mailbox, "Our results");
    ASSERT_TRUE(ben.ok()) << ben.error().description;
    EXPECT_EQ(ben.value().connection.port, 9930);
    EXPECT_EQ(ben.value().connection.ca_file, "/etc/ssl/ours.pem");
}

TEST(ServerFileFor, NeverTalksAnAddressOutOfItsTls) {
    const World world;
    struct Case {
        const char* said;
        Security for_imaps;
        Security for_imap;
        Security for_a_host;
    };
    const Case cases[] = {
        {"tls", Security::kTls, Security::kStartTls, Security::kTls},
        {"starttls", Security::kTls, Security::kStartTls, Security::kStartTls},
        {"plain", Security::kTls, Security::kPlainLoopbackOnly, Security::kPlainLoopbackOnly},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.said);
        world.Write(std::string("[localhost]\nsecurity = ") + one.said + "\n");

        EXPECT_EQ(world.For("imaps://ann@localhost").value().connection.security, one.for_imaps);
        EXPECT_EQ(world.For("imap://ann@localhost").value().connection.security, one.for_imap);
        const auto host = world.For("localhost", "ann").value();
        EXPECT_EQ(host.connection.security, one.for_a_host);
        EXPECT_EQ(host.connection.port, one.for_a_host == Security::kTls ? 993 : 143);
        EXPECT_THAT(host.address,
                    StartsWith(one.for_a_host == Security::kTls ? "imaps://" : "imap://"));
    }
}

TEST(ServerFileFor, LogsAMasterUserInForTheMailbox) {
    const World world;
    world.Write(
        "[host]\nlogin = master\npassword_file = /m\n"
        "[ben@host]\npassword_file = /b\n"
        "[cleo@host]\nlogin = c.leo\n");

    const auto ann = world.For("imaps://ann@host").value();
    const auto ben = world.For("imaps://ben@host").value();
    const auto cleo = world.For("imaps://cleo@host").value();

    EXPECT_EQ(ann.login, "master");
    EXPECT_EQ(ann.authorisation, "ann");
    EXPECT_EQ(ann.user, "ann");
    EXPECT_EQ(ben.login, "ben") << "his own password is not the master's";
    EXPECT_EQ(ben.authorisation, "");
    EXPECT_EQ(ben.secret.name, "/b");
    EXPECT_EQ(cleo.login, "c.leo");
    EXPECT_EQ(cleo.authorisation, "cleo");
    EXPECT_EQ(cleo.secret.name, "/m");
}

TEST(ServerFileFor, FillsTheUserIntoAFormOfLogin) {
    const World world;
    world.Write("[host]\nlogin = %u*master\npassword_file = /m\n");

    const auto ann = world.For("imaps://ann@host").value();

    EXPECT_EQ(ann.login, "ann*master");
    EXPECT_EQ(ann.authorisation, "");
}

TEST(ServerFileFor, SplitsACommandBeforeItFillsNamesIn) {
    const World world;
    world.Write("[host]\npassword_command = /bin/x  \"a b\" 'c\\' d\\ e mail/%h/%u 100%% \"\"\n");

    const auto settings = world.For("imaps://a%20b%22'@host");

    ASSERT_TRUE(settings.ok()) << settings.error().description;
    EXPECT_EQ(settings.value().secret.kind, Kind::kCommand);
    EXPECT_THAT(settings.value().secret.command,
                ElementsAre("/bin/x", "a b", "c\\", "d e", "mail/host/a b\"'", "100%", ""));
}

TEST(ServerFileFor, RefusesAUserThatACommandWouldTakeForAnOption) {
    const World world;
    world.Write("[host]\npassword_command = pass show %u\n");

    const auto settings = world.For("imaps://--help@host");

    ASSERT_FALSE(settings.ok());
    EXPECT_THAT(settings.error().description, HasSubstr(":2: the user \"--help\""));
}

TEST(ServerFileFor, NamesTheLineOfWhatItDoesNotUnderstand) {
    const World world;
    struct Case {
        const char* text;
        const char* complaint;
    };
    const Case cases[] = {
        {"port = 1\n", ":1: an entry in front of the first"},
        {"[host]\n\nport\n", ":3: expected \"[host]\""},
        {"[host\n", ":1: expected a server"},
        {"[]\n", ":1: expected a server"},
        {"[@host]\n", ":1: expected a server"},
        {"[imaps://host]\n", ":1: expected a server"},
        {"[host]\nprot = 1\n", ":2: unknown entry \"prot\""},
        {"[host]\nport =\n", ":2: \"port\" has no value"},
        {"[host]\nport = 0\n", ":2: \"port\" is a number"},
        {"[host]\nport = 99999\n", ":2: \"port\" is a number"},
        {"[host]\nport = 12x\n", ":2: \"port\" is a number"},
        {"[host]\nsecurity = none\n", ":2: \"security\" is tls, starttls or plain"},
        {"[host]\nauth = cram-md5\n", ":2: \"auth\" is password or xoauth2"},
        {"[host]\nca_file = own.pem\n", ":2: \"ca_file\" is an absolute path"},
        {"[host]\npassword_credential = ../x\n", ":2: \"password_credential\" is a name"},
        {"[host]\nport = 1\nport = 2\n", ":3: a second \"port\""},
        {"[host]\npassword = a\npassword_file = /b\n", ":3: \"password_file\" besides"},
        {"[host]\n[a]\n[HOST]\n", ":3: a second section"},
        {"[host]\npassword_command = x '\n", ":2: a quote"},
        {"[host]\npassword_command = x %d\n", ":2: \"%\" stands"},
        {"[host]\nauth = xoauth2\nlogin = m\n", ":3: a token is for one user"},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.text);
        world.Write(one.text);
        const auto settings = world.For("imaps://ann@host");
        ASSERT_FALSE(settings.ok());
        EXPECT_EQ(settings.error().kind, ErrorKind::kMalformed);
        EXPECT_THAT(settings.error().description, HasSubstr(world.path + one.complaint));
    }
}

TEST(ServerFileFor, KeepsAPasswordOutOfComplaints) {
    const World world;
    world.Write("[host]\npassword = geheim\npassword = geheim2\n");

    const auto settings = world.For("imaps://ann@host");

    ASSERT_FALSE(settings.ok());
    EXPECT_THAT(settings.error().description, Not(HasSubstr("geheim")));
}

TEST(ServerFileFor, RefusesAFileThatOthersCouldHaveWritten) {
    const World world;
    for (const mode_t mode : {0660, 0602, 0666}) {
        world.Write("[host]\nport = 1\n", mode);
        const auto settings = world.For("imaps://ann@host");
        ASSERT_FALSE(settings.ok());
        EXPECT_EQ(settings.error().kind, ErrorKind::kDenied);
        EXPECT_THAT(settings.error().description, EndsWith("; make it yours alone with chmod 600"));
    }
}

TEST(ServerFileFor, RefusesAFileThatShowsAPassword) {
    const World world;
    world.Write("[host]\nport = 1\n", 0644);
    EXPECT_TRUE(world.For("imaps://ann@host").ok()) << "there is no secret in it";

    for (const mode_t mode : {0644, 0640, 0604}) {
        world.Write("[other]\npassword = geheim\n", mode);
        const auto settings = world.For("imaps://ann@host");
        ASSERT_FALSE(settings.ok());
        EXPECT_EQ(settings.error().kind, ErrorKind::kDenied);
        EXPECT_THAT(settings.error().description, HasSubstr("others may read the password"));
    }
    world.Write("[host]\npassword = ge heim\n", 0400);
    const auto settings = world.For("imaps://ann@host");
    ASSERT_TRUE(settings.ok());
    EXPECT_EQ(ReadSecret(settings.value().secret).value().text(), "ge heim");
}

TEST(ServerFileFor, RefusesAFileOfSomebodyElse) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    const World world;
    world.Write("[host]\nport = 1\n");
    constexpr uid_t kNobody = 65534;
    ASSERT_EQ(::chown(world.path.c_str(), kNobody, kNobody), 0);

    const auto settings = world.For("imaps://ann@host");

    ASSERT_FALSE(settings.ok());
    EXPECT_THAT(settings.error().description, HasSubstr("belongs to somebody else"));
}

TEST(ServerFileFor, RefusesWhatIsNoFile) {
    const World world;
    ASSERT_EQ(::mkdir(world.path.c_str(), 0700), 0);
    EXPECT_FALSE(world.For("imaps://ann@host").ok());
}

}  // namespace
}  // namespace trevix::imap
