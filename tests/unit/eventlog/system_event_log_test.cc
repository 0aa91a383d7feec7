#include "platform/eventlog/system_event_log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "platform/errors.h"

namespace trevix::eventlog {
namespace {

// A log daemon's socket.
class Receiver {
 public:
    explicit Receiver(const std::string& path)
        : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        EXPECT_LT(path.size(), sizeof address.sun_path);
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;
    ~Receiver() { ::close(socket_); }

    // The next datagram; "(none)" when there is none.
    std::string Next() const {
        std::string buffer(200000, '\0');
        const ssize_t count = ::recv(socket_, buffer.data(), buffer.size(), 0);
        if (count < 0) return "(none)";
        buffer.resize(static_cast<std::size_t>(count));
        return buffer;
    }

 private:
    int socket_;
};

class SystemEventLogTest : public testing::Test {
 protected:
    SystemEventLogTest() : root_(testing::TempDir() + "events-XXXXXX") {
        if (::mkdtemp(root_.data()) == nullptr) root_.clear();
    }
    ~SystemEventLogTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    std::string Journal() const { return root_ + "/journal"; }
    std::string Syslog() const { return root_ + "/log"; }
    SystemEventLog Make() const { return SystemEventLog({Journal(), Syslog()}); }

    std::string root_;
};

TEST_F(SystemEventLogTest, SendsToTheJournalFirst) {
    const Receiver journal(Journal());
    const Receiver syslog(Syslog());
    SystemEventLog log = Make();

    EXPECT_TRUE(log.Available());
    ASSERT_TRUE(log.Report({"basCI::Main: start"}, "TXServer", "", 4).ok());

    EXPECT_EQ(journal.Next(),
              "SYSLOG_IDENTIFIER=TXServer\nPRIORITY=6\nTREVIX_EVENT_TYPE=4\nTREVIX_CLASS=basCI\n"
              "TREVIX_PROCEDURE=Main\nMESSAGE=basCI::Main: start\n");
    EXPECT_EQ(journal.Next(), "(none)");
    EXPECT_EQ(syslog.Next(), "(none)");
}

TEST_F(SystemEventLogTest, SendsToSyslogWithoutAJournal) {
    const Receiver syslog(Syslog());
    SystemEventLog log = Make();

    ASSERT_TRUE(log.Report({"basCI::Main: start"}, "Trevix", "", 1).ok());

    EXPECT_EQ(syslog.Next(), "<11>Trevix[" + std::to_string(::getpid()) + "]: basCI::Main: start");
}

TEST_F(SystemEventLogTest, FailsWithoutAnyDaemon) {
    SystemEventLog log = Make();

    const Status reported = log.Report({"x"}, "Trevix", "", 1);

    ASSERT_FALSE(reported.ok());
    EXPECT_EQ(reported.error().kind, ErrorKind::kIo);
}

TEST_F(SystemEventLogTest, FailsForASocketWhoseDaemonIsDead) {
    { const Receiver dead(Journal()); }
    { const Receiver dead(Syslog()); }
    SystemEventLog log = Make();

    EXPECT_EQ(log.Report({"x"}, "Trevix", "", 1).error().kind, ErrorKind::kIo);
}

TEST_F(SystemEventLogTest, FailsForASocketPathThatIsTooLong) {
    SystemEventLog log({root_ + std::string(200, 'x'), root_ + std::string(200, 'y')});

    EXPECT_EQ(log.Report({"x"}, "Trevix", "", 1).error().kind, ErrorKind::kIo);
}

TEST_F(SystemEventLogTest, NeverBlocksOnADaemonThatDoesNotRead) {
    const Receiver journal(Journal());
    const Receiver syslog(Syslog());
    SystemEventLog log = Make();

    bool refused = false;
    for (int i = 0; i < 100000 && !refused; ++i) {
        const Status reported = log.Report({"x"}, "Trevix", "", 4);
        refused = !reported.ok();
        if (!refused) continue;
        EXPECT_EQ(reported.error().kind, ErrorKind::kIo);
    }

    EXPECT_TRUE(refused);
}

TEST_F(SystemEventLogTest, LosesNoLongMessage) {
    const Receiver journal(Journal());
    SystemEventLog log = Make();
    const std::string text(60000, 'x');

    ASSERT_TRUE(log.Report({text}, "Trevix", "", 4).ok());

    EXPECT_NE(journal.Next().find("MESSAGE=" + text), std::string::npos);
}

}  // namespace
}  // namespace trevix::eventlog
