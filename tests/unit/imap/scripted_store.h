// A store over servers that play a script each, one connection after another.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/imap/imap_store.h"
#include "unit/imap/imap_world.h"
#include "unit/posix/scratch.h"

namespace trevix::imap {

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

class ScriptedStore {
 public:
    explicit ScriptedStore(std::vector<Script> scripts) {
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

inline constexpr const char* kMessage =
    "* 1 FETCH (UID 5 FLAGS () INTERNALDATE \"13-Sep-2020 12:26:40 +0000\" RFC822.SIZE 10)\r\n";

inline std::string Opened(unsigned validity, unsigned exists, unsigned next) {
    return "* FLAGS (\\Seen \\Deleted)\r\n* " + std::to_string(exists) +
           " EXISTS\r\n* OK [UIDVALIDITY " + std::to_string(validity) + "] ok\r\n* OK [UIDNEXT " +
           std::to_string(next) + "] ok\r\n{T} OK [READ-WRITE] ok\r\n";
}

inline Script& Status(Script& script, unsigned validity, unsigned messages, unsigned next) {
    return script.Expect("STATUS \"INBOX\" *")
        .Send("* STATUS INBOX (MESSAGES " + std::to_string(messages) + " UIDNEXT " +
              std::to_string(next) + " UIDVALIDITY " + std::to_string(validity) +
              ")\r\n{T} OK\r\n");
}

// One message in a mailbox, listed.
inline Script Listed() {
    Script script;
    script.Send(Greeting("UIDPLUS LITERAL+"));
    return Status(script, 7, 1, 6)
        .Expect("EXAMINE \"INBOX\"")
        .Send(Opened(7, 1, 6))
        .Expect("UID FETCH 1:* *")
        .Send(std::string(kMessage) + "{T} OK\r\n");
}

}  // namespace trevix::imap
