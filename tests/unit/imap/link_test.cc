// A connection that is lost and made again.
#include "platform/imap/link.h"

#include "unit/imap/cutting_proxy.h"
#include "unit/imap/store_world.h"

namespace trevix::imap {
namespace {

using std::chrono::milliseconds;

class LinkToAServer : public testing::Test {
 protected:
    void SetUp() override {
        TREVIX_NEEDS(world_);
        proxy_ = std::make_unique<CuttingProxy>(static_cast<std::uint16_t>(world_.server.port()));
        link_ = std::make_unique<Link>([this] { return Connect(); },
                                       [this](milliseconds time) { pauses_.push_back(time); });
    }

    Result<std::unique_ptr<Client>> Connect() {
        ++tries_;
        if (failures_ > 0) {
            --failures_;
            return failure_;
        }
        ConnectSettings settings;
        settings.host = "127.0.0.1";
        settings.port = proxy_->port();
        settings.security = Security::kPlainLoopbackOnly;
        auto client = Client::Connect(settings);
        if (!client.ok()) return client.error();
        const std::string password = world_.server.password("ann");
        Credentials credentials;
        credentials.user = "ann";
        credentials.secret = password;
        const Status logged_in = client.value()->LogIn(credentials);
        if (!logged_in.ok()) return logged_in.error();
        return client;
    }

    Status Noop() {
        return link_->Read([](Client& client) { return client.Noop(); });
    }

    StoreWorld world_;
    std::unique_ptr<CuttingProxy> proxy_;
    std::unique_ptr<Link> link_;
    std::vector<milliseconds> pauses_;
    Error failure_ = MessagingError(kNetworkError);
    int failures_ = 0;
    int tries_ = 0;
};

TEST_F(LinkToAServer, IsMadeWhenItIsNeededAndKept) {
    EXPECT_EQ(tries_, 0);
    ASSERT_TRUE(Noop().ok());
    ASSERT_TRUE(Noop().ok());
    EXPECT_EQ(tries_, 1);
    EXPECT_TRUE(link_->has_qresync());
    EXPECT_TRUE(link_->has_condstore());
}

TEST_F(LinkToAServer, IsMadeAgainWithGrowingPauses) {
    ASSERT_TRUE(Noop().ok());
    proxy_->CutAfter(3, CuttingProxy::kNever);
    failures_ = 3;

    ASSERT_TRUE(Noop().ok()) << "what only reads is done again";

    EXPECT_EQ(tries_, 5);
    EXPECT_EQ(pauses_, (std::vector{milliseconds(1000), milliseconds(2000), milliseconds(4000)}));
    EXPECT_EQ(link_->generation(), 2U);
}

TEST_F(LinkToAServer, AnswersAtOnceWhenTheFirstConnectionFails) {
    failures_ = 1;
    EXPECT_EQ(Noop().error().kind, ErrorKind::kIo);
    EXPECT_EQ(tries_, 1);
    EXPECT_TRUE(pauses_.empty());
}

TEST_F(LinkToAServer, TriesOnceACallAfterAWholeSeriesOfFailures) {
    ASSERT_TRUE(Noop().ok());
    proxy_->CutAfter(3, CuttingProxy::kNever);
    failures_ = 6;
    EXPECT_FALSE(Noop().ok());
    EXPECT_EQ(tries_, 6);
    EXPECT_FALSE(Noop().ok());
    EXPECT_EQ(tries_, 7);
    EXPECT_TRUE(Noop().ok());
}

TEST_F(LinkToAServer, DoesNotInsistWhereItIsDenied) {
    ASSERT_TRUE(Noop().ok());
    proxy_->CutAfter(3, CuttingProxy::kNever);
    failures_ = 9;
    failure_ = MessagingError(kLogonFailed);
    EXPECT_EQ(Noop().error().kind, ErrorKind::kDenied);
    EXPECT_EQ(tries_, 2);
    EXPECT_TRUE(pauses_.empty());
}

}  // namespace
}  // namespace trevix::imap
