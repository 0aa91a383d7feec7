// The helper that other tests rely on.
#include "support/imap_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace trevix::test {
namespace {

bool Answers(int port) {
    const UniqueDescriptor one(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast)
    return ::connect(one.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

TEST(ImapServer, RunsUntilItIsStopped) {
    ImapServer server("dovecot", {"--user", "cleo=x y"});
    if (!server.IsRunning() && !ImapServer::MustRun()) GTEST_SKIP() << server.why();

    ASSERT_TRUE(server.IsRunning()) << server.why();
    EXPECT_EQ(server.password("cleo"), "x y");
    EXPECT_TRUE(Answers(server.port()));
    EXPECT_TRUE(Answers(server.tls_port()));
    const int port = server.port();
    server.Stop();

    EXPECT_FALSE(Answers(port));
}

TEST(ImapServer, SaysWhyThereIsNone) {
    ::setenv("TREVIX_TEST_CYRUS", "/nowhere", 1);
    const ImapServer server("cyrus");
    ::unsetenv("TREVIX_TEST_CYRUS");
    if (server.IsRunning()) GTEST_SKIP() << "this machine has one of its own";

    EXPECT_NE(server.why().find("is not installed"), std::string::npos);
}

}  // namespace
}  // namespace trevix::test
