// What the tests of the IMAP client share.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "platform/imap/client.h"
#include "unit/imap/scripted_server.h"

namespace trevix::test {

// Short times: a test that waits for one of them is slow, one that must not is fast anyway.
inline imap::ConnectSettings SettingsFor(const ScriptedServer& server) {
    imap::ConnectSettings settings;
    settings.host = "127.0.0.1";
    settings.port = server.port();
    settings.security = imap::Security::kPlainLoopbackOnly;
    settings.limits.connect = std::chrono::milliseconds(10'000);
    settings.limits.handshake = std::chrono::milliseconds(10'000);
    settings.limits.silence = std::chrono::milliseconds(10'000);
    return settings;
}

// A greeting after which nothing has to be asked.
inline std::string Greeting(const std::string& capabilities) {
    return "* PREAUTH [CAPABILITY IMAP4rev1 " + capabilities + "] ready\r\n";
}

inline constexpr const char* kModern =
    "UIDPLUS CONDSTORE QRESYNC ENABLE ESEARCH UNSELECT LITERAL+ LIST-EXTENDED LIST-STATUS "
    "SPECIAL-USE BINARY REPLACE OBJECTID SAVEDATE";

// A client of a server that plays the script.
class Conversation {
 public:
    explicit Conversation(Script script, ServerManners manners = {},
                          const imap::Limits* limits = nullptr)
        : server_(std::move(script), manners) {
        imap::ConnectSettings settings = SettingsFor(server_);
        if (limits != nullptr) settings.limits = *limits;
        auto connected = imap::Client::Connect(settings);
        if (connected.ok()) {
            client_ = std::move(connected).value();
        } else {
            connect_error_ = connected.error();
        }
    }

    bool connected() const { return client_ != nullptr; }
    const Error& connect_error() const { return connect_error_; }
    imap::Client& client() { return *client_; }
    imap::Client* operator->() { return client_.get(); }

    // Ends both. Empty when the client said exactly what the script expected.
    std::string Finish() {
        client_.reset();
        return server_.Finish();
    }
    const ScriptedServer& server() const { return server_; }

 private:
    ScriptedServer server_;
    std::unique_ptr<imap::Client> client_;
    Error connect_error_;
};

}  // namespace trevix::test
