// A mailbox user on a real IMAP server, as a world of the MailStore contract. What other programs
// do is done over a second connection.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "contract/mail_store_contract.h"
#include "platform/imap/imap_store.h"
#include "platform/imap/mailbox_name.h"
#include "platform/imap/message_identity.h"
#include "support/imap_server.h"

namespace trevix::contract {

class ImapWorld final : public MailStoreWorld {
 public:
    // Null when the server is not installed.
    static std::unique_ptr<MailStoreWorld> Make(const std::string& kind,
                                                const std::string& separator) {
        std::unique_ptr<ImapWorld> world(new ImapWorld);
        world->separator_ = separator;
        world->server_ = std::make_unique<test::ImapServer>(
            kind, std::vector<std::string>{"--separator", separator});
        if (!world->server_->IsRunning()) return nullptr;
        world->other_ = world->Connect();
        if (world->other_ == nullptr) return nullptr;
        world->OpenStore();
        return world;
    }

    ~ImapWorld() override {
        store_.reset();
        std::error_code ignored;
        if (!state_.empty()) std::filesystem::remove_all(state_, ignored);
    }

    MailStore& store() override { return *store_; }

    void Deliver(const std::string& content, std::int64_t received_ns) override {
        imap::AppendRequest request;
        request.mailbox = "INBOX";
        request.internal_date = imap::DateTime{received_ns / 1000000000, 120};
        request.content = Blob::FromString(content);
        const auto appended = other_->Append(request);
        EXPECT_TRUE(appended.ok()) << appended.error().description;
    }
    void Flag(const std::string& key) override {
        Select();
        EXPECT_TRUE(other_->Store(UidOf(key), imap::FlagChange::kAdd, {"\\Flagged"}).ok());
    }
    void Delete(const std::string& key) override {
        Select();
        EXPECT_TRUE(other_->Store(UidOf(key), imap::FlagChange::kAdd, {"\\Deleted"}).ok());
        EXPECT_TRUE(other_->Expunge(UidOf(key)).ok());
    }
    void MakeFolder(const std::string& path) override {
        std::string name = path;
        std::replace(name.begin(), name.end(), '/', separator_.front());
        // Some servers have made it with the folder below it.
        const Status made = other_->Create(name);
        EXPECT_TRUE(made.ok() || other_->StatusOf(name).ok());
    }
    void Settle() override {}

    std::string MailOf(const std::string& text) const override { return kHeader + text + "\r\n"; }
    std::string TextOf(const std::string& mail) const override {
        const std::string header = kHeader;
        if (!mail.starts_with(header) || !mail.ends_with("\r\n")) return mail;
        return mail.substr(header.size(), mail.size() - header.size() - 2);
    }
    bool IsServersOwn(const std::string& path) const override { return path == "Sent"; }
    bool TakesEmptyMessages() const override { return false; }

 private:
    static constexpr const char* kHeader =
        "From: Ann <ann@example.org>\r\nSubject: a text\r\nMIME-Version: 1.0\r\n\r\n";

    class StillClock final : public Clock {
     public:
        Date NowLocal() override { return {}; }
        Date NowUtc() override { return {}; }
        std::int64_t UnixNanoseconds() override { return kReceived; }
        std::int32_t TickCount() override { return 0; }
    };

    ImapWorld() : state_(testing::TempDir() + "imap-XXXXXX") {
        if (::mkdtemp(state_.data()) == nullptr) state_.clear();
    }

    std::unique_ptr<imap::Client> Connect() const {
        imap::ConnectSettings settings;
        settings.host = "localhost";
        settings.port = static_cast<std::uint16_t>(server_->tls_port());
        settings.ca_file = server_->ca_file();
        auto client = imap::Client::Connect(settings);
        EXPECT_TRUE(client.ok()) << client.error().description;
        if (!client.ok()) return nullptr;
        const std::string password = server_->password("ann");
        imap::Credentials credentials;
        credentials.user = "ann";
        credentials.secret = password;
        const Status logged_in = client.value()->LogIn(credentials);
        EXPECT_TRUE(logged_in.ok()) << logged_in.error().description;
        return std::move(client).value();
    }

    void OpenStore() {
        imap::StorePlan plan;
        plan.address = "imaps://ann@localhost";
        plan.display_name = "ann";
        plan.journal_directory = state_;
        auto opened = imap::OpenImapStore(
            plan,
            [this]() -> Result<std::unique_ptr<imap::Client>> {
                auto client = Connect();
                if (client == nullptr) return MessagingError(kNetworkError);
                return client;
            },
            [](std::chrono::milliseconds) {}, clock_);
        ASSERT_TRUE(opened.ok()) << opened.error().description;
        store_ = std::move(opened).value();
    }

    void Select() { EXPECT_TRUE(other_->Select("INBOX", imap::SelectMode::kReadWrite).ok()); }
    static imap::UidSet UidOf(const std::string& key) {
        return imap::UidSet::Of(
            static_cast<std::uint32_t>(std::stoul(key.substr(key.find('/') + 1))));
    }

    StillClock clock_;
    std::string state_;
    std::string separator_;
    std::unique_ptr<test::ImapServer> server_;
    std::unique_ptr<imap::Client> other_;
    std::unique_ptr<MailStore> store_;
};

}  // namespace trevix::contract
