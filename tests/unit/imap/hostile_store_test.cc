// A store over a server that changes its mind: nothing is written that could harm, and nothing is
// taken for what it is not.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/imap/imap_store.h"
#include "unit/imap/imap_world.h"
#include "unit/posix/scratch.h"

namespace trevix::imap {
namespace {

using test::Greeting;
using test::Script;
using test::ScriptedServer;

class StillClock final : public Clock {
 public:
    Date NowLocal() override { return {}; }
    Date NowUtc() override { return {}; }
    std::int64_t UnixNanoseconds() override { return 1600000000000000000; }
    std::int32_t TickCount() override { return tick_ += 10'000; }

 private:
    std::int32_t tick_ = 0;
};

// A store over servers that play a script each, one connection after another.
class HostileStore {
 public:
    explicit HostileStore(std::vector<Script> scripts) {
        for (Script& script : scripts) {
            servers_.push_back(std::make_unique<ScriptedServer>(std::move(script)));
        }
        StorePlan plan;
        plan.address = "imaps://ann@127.0.0.1";
        plan.journal_directory = scratch_ / "journal";
        auto opened = ImapStore::Open(
            plan, [this]() -> Result<std::unique_ptr<Client>> { return Next(); },
            [](std::chrono::milliseconds) {}, clock_);
        EXPECT_TRUE(opened.ok()) << opened.error().description;
        if (opened.ok()) store_ = std::move(opened).value();
    }

    ImapStore* operator->() { return store_.get(); }

    // What the servers saw that they did not expect, and what they were sent in all.
    std::string Finish() {
        store_.reset();
        std::string problems;
        for (const auto& server : servers_) {
            problems += server->Finish();
            received_ += server->received();
        }
        return problems;
    }
    bool WasSent(const std::string& words) const {
        return received_.find(words) != std::string::npos;
    }

 private:
    Result<std::unique_ptr<Client>> Next() {
        if (next_ == servers_.size()) return Error{ErrorKind::kIo, 1, "no more servers"};
        ConnectSettings settings = test::SettingsFor(*servers_[next_++]);
        settings.limits.silence = std::chrono::milliseconds(300);
        return Client::Connect(settings);
    }

    test::Scratch scratch_;
    StillClock clock_;
    std::vector<std::unique_ptr<ScriptedServer>> servers_;
    std::size_t next_ = 0;
    std::string received_;
    std::unique_ptr<ImapStore> store_;
};

constexpr const char* kMessage =
    "* 1 FETCH (UID 5 FLAGS () INTERNALDATE \"13-Sep-2020 12:26:40 +0000\" RFC822.SIZE 10)\r\n";

std::string Opened(unsigned validity, unsigned exists, unsigned next) {
    return "* FLAGS (\\Seen \\Deleted)\r\n* " + std::to_string(exists) +
           " EXISTS\r\n* OK [UIDVALIDITY " + std::to_string(validity) + "] ok\r\n* OK [UIDNEXT " +
           std::to_string(next) + "] ok\r\n{T} OK [READ-WRITE] ok\r\n";
}

Script& Status(Script& script, unsigned validity, unsigned messages, unsigned next) {
    return script.Expect("STATUS \"INBOX\" *")
        .Send("* STATUS INBOX (MESSAGES " + std::to_string(messages) + " UIDNEXT " +
              std::to_string(next) + " UIDVALIDITY " + std::to_string(validity) +
              ")\r\n{T} OK\r\n");
}

// One message in a mailbox, listed.
Script Listed() {
    Script script;
    script.Send(Greeting("UIDPLUS LITERAL+"));
    return Status(script, 7, 1, 6)
        .Expect("EXAMINE \"INBOX\"")
        .Send(Opened(7, 1, 6))
        .Expect("UID FETCH 1:* *")
        .Send(std::string(kMessage) + "{T} OK\r\n");
}

TEST(HostileStoreUids, AnotherValidityMeansThatTheMessageIsGone) {
    HostileStore store({Listed().HangUp(), Script()
                                               .Send(Greeting("UIDPLUS LITERAL+"))
                                               .Expect("EXAMINE \"INBOX\"")
                                               .Send(Opened(8, 1, 6))
                                               .Expect("SELECT \"INBOX\"")
                                               .Send(Opened(8, 1, 6))});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok()) << listing.error().description;
    ASSERT_EQ(listing.value().listing.entries.size(), 1U);
    const MailEntry entry = listing.value().listing.entries[0];
    const auto content = store->Read("INBOX", entry);
    ASSERT_FALSE(content.ok());
    EXPECT_EQ(content.error().kind, ErrorKind::kGone) << content.error().description;
    const auto staged = store->Stage("INBOX", entry, Blob::FromString("new\r\n"));
    ASSERT_FALSE(staged.ok());
    EXPECT_EQ(staged.error().kind, ErrorKind::kGone) << staged.error().description;
    store.Finish();
    for (const char* const command : {"APPEND", "STORE", "EXPUNGE", "REPLACE"}) {
        EXPECT_FALSE(store.WasSent(command)) << command;
    }
}

TEST(HostileStoreUids, AMailboxWithoutLastingNumbersIsNotUsed) {
    Script script;
    script.Send(Greeting("UIDPLUS"));
    HostileStore store({Status(script, 7, 1, 6)
                            .Expect("EXAMINE \"INBOX\"")
                            .Send("* 1 EXISTS\r\n* OK [UIDNOTSTICKY] x\r\n* OK [UIDVALIDITY 7] "
                                  "x\r\n{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_FALSE(listing.ok());
    EXPECT_EQ(listing.error().kind, ErrorKind::kUnsupported);
}

TEST(HostileStoreListing, AMailboxThatShrinksMeanwhileIsListedAgainNextTime) {
    Script script;
    script.Send(Greeting("UIDPLUS"));
    HostileStore store({Status(script, 7, 3, 6)
                            .Expect("EXAMINE \"INBOX\"")
                            .Send(Opened(7, 3, 6))
                            .Expect("UID FETCH 1:* *")
                            .Send("* 1 EXISTS\r\n" + std::string(kMessage) +
                                  "* 9 EXPUNGE\r\n* 0 EXISTS\r\n{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok()) << listing.error().description;
    EXPECT_EQ(listing.value().listing.entries.size(), 1U);
    EXPECT_EQ(listing.value().listing.stamp, "");
}

TEST(HostileStoreListing, MessagesThatNobodyAskedForAreNotListed) {
    Script script;
    script.Send(Greeting("UIDPLUS"));
    HostileStore store(
        {Status(script, 7, 1, 6)
             .Expect("EXAMINE \"INBOX\"")
             .Send(Opened(7, 1, 6))
             .Expect("UID FETCH 1:* *")
             .Send(std::string(kMessage) + kMessage +
                   "* 2 FETCH (UID 0 FLAGS () INTERNALDATE NIL RFC822.SIZE 1)\r\n"
                   "* 3 FETCH (UID 9 FLAGS (\\Seen))\r\n* 4 FETCH (FLAGS ())\r\n{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok()) << listing.error().description;
    ASSERT_EQ(listing.value().listing.entries.size(), 1U);
    EXPECT_EQ(listing.value().listing.entries[0].key.find("7/5"), 0U);
}

TEST(HostileStoreListing, GoesOnWithANewConnectionWhenOneIsLost) {
    Script lost;
    lost.Send(Greeting("UIDPLUS"));
    Status(lost, 7, 1, 6)
        .Expect("EXAMINE \"INBOX\"")
        .Send(Opened(7, 1, 6))
        .Expect("UID FETCH 1:* *")
        .Send("* 1 FETCH (UID 5 FLAGS (")
        .HangUp();
    HostileStore store({lost, Script()
                                  .Send(Greeting("UIDPLUS"))
                                  .Expect("EXAMINE \"INBOX\"")
                                  .Send(Opened(7, 1, 6))
                                  .Expect("UID FETCH 1:* *")
                                  .Send(std::string(kMessage) + "{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok()) << listing.error().description;
    EXPECT_EQ(listing.value().listing.entries.size(), 1U);
    EXPECT_EQ(store.Finish(), "");
}

TEST(HostileStoreFolders, NamesAreDataAndNoPaths) {
    const auto before = std::filesystem::exists("../x");
    HostileStore store({Script()
                            .Send(Greeting("UIDPLUS"))
                            .Expect("LIST *")
                            .Send("* LIST () \"/\" ../x\r\n* LIST () \"/\" \"/etc/passwd\"\r\n"
                                  "* LIST () \"/\" \"\"\r\n* LIST () \"/\" \"//\"\r\n"
                                  "* LIST () \"/\" {4}\r\na\r\nb\r\n* LIST () NIL \"flat/name\"\r\n"
                                  "* LIST () \".\" \"..\"\r\n* LIST () \"/\" INBOX\r\n"
                                  "* LIST () \"/\" ../x\r\n* LIST () \"ab\" odd\r\n"
                                  "* LIST () \"/\" caf\xE9\r\n{T} OK\r\n")});
    const auto folders = store->Folders();
    ASSERT_TRUE(folders.ok()) << folders.error().description;
    bool inbox = false;
    bool climbing = false;
    for (const MailFolder& folder : folders.value()) {
        EXPECT_FALSE(folder.path.empty());
        inbox = inbox || folder.path == "INBOX";
        climbing = climbing || folder.path == "../x";
    }
    EXPECT_TRUE(inbox);
    EXPECT_TRUE(climbing);
    EXPECT_EQ(store.Finish(), "");
    EXPECT_EQ(std::filesystem::exists("../x"), before);
}

TEST(HostileStoreRead, ContentOfAnotherMessageIsNotTaken) {
    HostileStore store({Listed()
                            .Expect("NOOP")
                            .Send("{T} OK\r\n")
                            .Expect("UID FETCH 5 *")
                            .Send("* 2 FETCH (UID 6 BODY[] {3}\r\nbad)\r\n"
                                  "* 1 FETCH (BODY[] {3}\r\nbad)\r\n"
                                  "* 1 FETCH (UID 5 BODY[1] {3}\r\nbad)\r\n"
                                  "* 1 FETCH (UID 5 BODY[]<10> {3}\r\nbad)\r\n{T} OK\r\n")});
    const auto listing = store->List("INBOX", nullptr);
    ASSERT_TRUE(listing.ok());
    const auto content = store->Read("INBOX", listing.value().listing.entries.at(0));
    ASSERT_FALSE(content.ok());
    EXPECT_EQ(content.error().kind, ErrorKind::kGone) << content.error().description;
    EXPECT_EQ(store.Finish(), "");
}

}  // namespace
}  // namespace trevix::imap
