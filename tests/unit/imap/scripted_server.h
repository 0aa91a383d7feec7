// A server on this machine that plays a script: it expects lines and sends bytes, as well or as
// badly as a test wants it. It takes one connection, on a port that the system chooses.
#pragma once

#include <gnutls/gnutls.h>

#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/unique_descriptor.h"

namespace trevix::test {

// The steps in order. In texts that are sent, "{T}" is the tag of the last command that was
// expected, "{T1}" that of the one before it, up to "{T9}".
class Script {
 public:
    struct Step {
        enum class Kind { kExpect, kExpectRaw, kTakeContent, kSend, kRepeat, kTls, kHangUp };
        Kind kind;
        std::string text;
        std::uint64_t count = 0;
    };

    // A command line without its tag; with "*" at the end only the beginning is compared.
    Script& Expect(std::string line) { return Add(Step::Kind::kExpect, std::move(line)); }

    // A line that is no command: what follows a continuation.
    Script& ExpectRaw(std::string line) { return Add(Step::Kind::kExpectRaw, std::move(line)); }

    // Exactly this many bytes of content.
    Script& TakeContent(std::uint64_t count) { return Add(Step::Kind::kTakeContent, {}, count); }

    Script& Send(std::string text) { return Add(Step::Kind::kSend, std::move(text)); }

    // The same text so many times, or until the client has gone.
    Script& Repeat(std::string text, std::uint64_t times) {
        return Add(Step::Kind::kRepeat, std::move(text), times);
    }

    // A handshake with the server's certificate.
    Script& Tls() { return Add(Step::Kind::kTls, {}); }

    // Without it, the server waits at the end until the client goes.
    Script& HangUp() { return Add(Step::Kind::kHangUp, {}); }

    const std::vector<Step>& steps() const { return steps_; }

 private:
    Script& Add(Step::Kind kind, std::string text, std::uint64_t count = 0) {
        steps_.push_back({kind, std::move(text), count});
        return *this;
    }

    std::vector<Step> steps_;
};

struct ServerManners {
    bool byte_by_byte = false;
    std::optional<std::uint64_t> cut_after_sent;             // bytes, then it hangs up
    std::optional<std::uint64_t> cut_after_received;         // bytes, then it hangs up
    gnutls_certificate_credentials_t certificate = nullptr;  // for Tls(); the caller's
    std::string tls_versions;                                // a priority text; empty: the usual
};

class ScriptedServer {
 public:
    explicit ScriptedServer(Script script, ServerManners manners = {});
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    std::uint16_t port() const { return port_; }

    // Ends it, and says what came that the script had not expected; empty when all went by it.
    // Tests of what breaks a conversation have no use for that.
    std::string Finish();

    // After Finish(): everything that came, and how many bytes were sent.
    const std::string& received() const { return received_; }
    std::uint64_t sent_bytes() const { return sent_; }

 private:
    void Serve();
    bool Play(const Script::Step& step);
    bool ExpectLine(const std::string& wanted, bool tagged);
    bool Handshake();
    bool Send(const std::string& text);
    bool SendSome(const char* bytes, std::size_t count);
    std::string WithTags(const std::string& text) const;
    bool WaitFor(short events);
    int ReadByte();
    bool Fill();
    void Note(std::string problem);

    Script script_;
    ServerManners manners_;
    UniqueDescriptor listener_;
    UniqueDescriptor connection_;
    UniqueDescriptor stop_;
    gnutls_session_t tls_ = nullptr;
    std::uint16_t port_ = 0;
    std::string buffer_;
    std::size_t at_ = 0;
    std::vector<std::string> tags_;
    std::string received_;
    std::uint64_t sent_ = 0;
    std::string problem_;
    std::thread thread_;
};

}  // namespace trevix::test
