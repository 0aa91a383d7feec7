// A connection to a server, with time limits on everything.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "platform/imap/byte_source.h"
#include "platform/imap/channel.h"
#include "platform/imap/client.h"
#include "platform/result.h"
#include "platform/unique_descriptor.h"

namespace trevix::imap {

// Errors begin with the host's name. kIo, but for certificates: those are kDenied.
class Transport final : public ByteSource {
 public:
    // Plain so far. Looking up the name takes as long as the system's resolver lets it.
    static Result<std::unique_ptr<Transport>> Connect(const ConnectSettings& settings);

    // The handshake, and the check of the certificate and its name.
    Status StartTls(const ConnectSettings& settings);

    Result<std::size_t> Read(char* target, std::size_t count) override;
    Status Write(const char* bytes, std::size_t count);

    // From now on everything together takes at most this long; none: only the standing limits hold.
    void SetDeadline(std::optional<std::chrono::milliseconds> in);

    // Something was achieved: what was waited so far is forgotten.
    void NoteProgress();

    void Close();
    bool is_open() const { return socket_.valid(); }
    bool encrypted() const { return encrypted_; }

 private:
    using Clock = std::chrono::steady_clock;

    Transport(std::string host, const Limits& limits);

    Status Dial(const ConnectSettings& settings);
    Status WaitFor(Attempt::State state, Clock::time_point give_up);
    void CountMoved(std::size_t count, Clock::time_point since);
    Clock::time_point GiveUp() const;
    Error Lost(const std::string& why) const;

    std::string host_;
    Limits limits_;
    UniqueDescriptor socket_;
    std::unique_ptr<Channel> channel_;
    bool encrypted_ = false;
    std::optional<Clock::time_point> deadline_;
    Clock::duration waited_{};
    std::uint64_t moved_bytes_ = 0;
};

}  // namespace trevix::imap
