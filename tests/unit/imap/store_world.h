// A user's mailboxes on a real server, stores over them, and what other programs do in them.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/errors.h"
#include "platform/imap/imap_store.h"
#include "platform/imap/message_identity.h"
#include "support/imap_server.h"

namespace trevix::imap {

inline constexpr std::int64_t kReceivedSeconds = 1600000000;

class WorldClock final : public Clock {
 public:
    Date NowLocal() override { return {}; }
    Date NowUtc() override { return {}; }
    std::int64_t UnixNanoseconds() override { return now_ns; }
    std::int32_t TickCount() override { return tick; }

    std::int64_t now_ns = kReceivedSeconds * 1'000'000'000;
    std::int32_t tick = 0;
};

// A message as another connection finds it.
struct SeenMail {
    std::uint32_t uid = 0;
    Flags flags;
    DateTime received;
    std::string content;
};

class StoreWorld {
 public:
    explicit StoreWorld(const std::string& kind = "dovecot",
                        const std::vector<std::string>& options = {})
        : server(kind, options), state_(testing::TempDir() + "imap-XXXXXX") {
        if (::mkdtemp(state_.data()) == nullptr) state_.clear();
        if (server.IsRunning()) other = Connect();
    }
    StoreWorld(const StoreWorld&) = delete;
    StoreWorld& operator=(const StoreWorld&) = delete;
    ~StoreWorld() {
        std::error_code ignored;
        if (!state_.empty()) std::filesystem::remove_all(state_, ignored);
    }

    bool ready() const { return other != nullptr; }
    const std::string& state() const { return state_; }

    std::unique_ptr<Client> Connect(const std::string& user = "ann") const {
        ConnectSettings settings;
        settings.host = "localhost";
        settings.port = static_cast<std::uint16_t>(server.tls_port());
        settings.ca_file = server.ca_file();
        auto client = Client::Connect(settings);
        EXPECT_TRUE(client.ok()) << client.error().description;
        if (!client.ok()) return nullptr;
        const std::string password = server.password(user);
        Credentials credentials;
        credentials.user = user;
        credentials.secret = password;
        const Status logged_in = client.value()->LogIn(credentials);
        EXPECT_TRUE(logged_in.ok()) << logged_in.error().description;
        return std::move(client).value();
    }

    StorePlan Plan() const {
        StorePlan plan;
        plan.address = "imaps://ann@localhost";
        plan.display_name = "ann";
        plan.journal_directory = state_;
        return plan;
    }

    std::unique_ptr<ImapStore> Open(Leftovers leftovers = Leftovers::kFinish) {
        StorePlan plan = Plan();
        plan.leftovers = leftovers;
        return Open(std::move(plan));
    }

    std::unique_ptr<ImapStore> Open(StorePlan plan) {
        auto store = ImapStore::Open(
            std::move(plan),
            [this]() -> Result<std::unique_ptr<Client>> {
                auto client = Connect();
                if (client == nullptr) return MessagingError(kNetworkError);
                return client;
            },
            [](std::chrono::milliseconds) {}, clock);
        EXPECT_TRUE(store.ok()) << store.error().description;
        return store.ok() ? std::move(store).value() : nullptr;
    }

    static std::string MailOf(const std::string& text) {
        return "From: Ann <ann@example.org>\r\nSubject: a text\r\nMIME-Version: 1.0\r\n\r\n" +
               text + "\r\n";
    }

    void Deliver(const std::string& content, const std::vector<std::string>& flags = {},
                 const std::string& mailbox = "INBOX") const {
        AppendRequest request;
        request.mailbox = mailbox;
        request.flags = flags;
        request.internal_date = DateTime{kReceivedSeconds, 120};
        request.content = Blob::FromString(content);
        const auto appended = other->Append(request);
        ASSERT_TRUE(appended.ok()) << appended.error().description;
    }

    void Change(std::uint32_t uid, FlagChange change, const std::vector<std::string>& flags) const {
        ASSERT_TRUE(other->Select("INBOX", SelectMode::kReadWrite).ok());
        ASSERT_TRUE(other->Store(UidSet::Of(uid), change, flags).ok());
    }
    void Remove(std::uint32_t uid) const {
        Change(uid, FlagChange::kAdd, {kDeleted});
        ASSERT_TRUE(other->Expunge(UidSet::Of(uid)).ok());
    }

    // All mail of a mailbox, by UID; read without the store.
    std::vector<SeenMail> Mail(const std::string& mailbox = "INBOX") const {
        std::map<std::uint32_t, SeenMail> mails;
        EXPECT_TRUE(other->Select(mailbox, SelectMode::kReadOnly).ok());
        FetchRequest request;
        request.uids = UidSet::From(1);
        request.flags = true;
        request.internal_date = true;
        request.sections.push_back({"", {}});
        const Status fetched = other->Fetch(request, [&mails](FetchedMessage&& message) -> Status {
            const FetchedSection* content = message.Find("");
            if (content == nullptr || !message.flags || !message.internal_date) return {};
            mails[message.uid] = {message.uid, ComparableFlags(*message.flags),
                                  *message.internal_date, content->content->ToString().value()};
            return {};
        });
        EXPECT_TRUE(fetched.ok());
        std::vector<SeenMail> list;
        for (auto& [uid, mail] : mails)
            list.push_back(std::move(mail));
        return list;
    }

    // Takes everything out of the Inbox.
    void Clear() const {
        EXPECT_TRUE(other->Select("INBOX", SelectMode::kReadWrite).ok());
        EXPECT_TRUE(other->Store(UidSet::From(1), FlagChange::kAdd, {kDeleted}).ok());
        EXPECT_TRUE(other->Expunge(UidSet::From(1)).ok());
    }

    std::vector<std::string> Journals() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(state_))
            names.push_back(entry.path().filename().string());
        return names;
    }

    test::ImapServer server;
    WorldClock clock;
    std::unique_ptr<Client> other;

 private:
    std::string state_;
};

inline std::vector<MailEntry> Listed(MailStore& store, const std::string& folder = "INBOX") {
    auto change = store.List(folder, nullptr);
    EXPECT_TRUE(change.ok()) << change.error().description;
    return change.ok() ? std::move(change).value().listing.entries : std::vector<MailEntry>();
}

// Skips, or fails where every server must be there.
#define TREVIX_NEEDS(world)                                                \
    if (!(world).ready()) {                                                \
        ASSERT_FALSE(test::ImapServer::MustRun()) << (world).server.why(); \
        GTEST_SKIP() << (world).server.why();                              \
    }                                                                      \
    static_assert(true)

}  // namespace trevix::imap
