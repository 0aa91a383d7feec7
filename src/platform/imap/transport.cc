#include "platform/imap/transport.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/tls_channel.h"

namespace trevix::imap {
namespace {

using SteadyClock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::uint64_t kProgressBytes = std::uint64_t{64} * 1024;
constexpr std::uint16_t kTlsPort = 993;
constexpr std::uint16_t kPlainPort = 143;

class PlainChannel final : public Channel {
 public:
    explicit PlainChannel(int socket) : socket_(socket) {}

    Attempt Read(char* target, std::size_t count) override {
        const ssize_t got = ::recv(socket_, target, count, 0);
        if (got > 0) return {Attempt::State::kMoved, static_cast<std::size_t>(got), {}};
        if (got == 0) return {Attempt::State::kClosed, 0, {}};
        return Failed(Attempt::State::kWaitToRead);
    }

    Attempt Write(const char* bytes, std::size_t count) override {
        const ssize_t put = ::send(socket_, bytes, count, MSG_NOSIGNAL);
        if (put >= 0) return {Attempt::State::kMoved, static_cast<std::size_t>(put), {}};
        return Failed(Attempt::State::kWaitToWrite);
    }

 private:
    static Attempt Failed(Attempt::State wait) {
        if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return {wait, 0, {}};
        return {Attempt::State::kFailed, 0, std::strerror(errno)};
    }

    int socket_;
};

struct AddressList {
    AddressList() = default;
    AddressList(const AddressList&) = delete;
    AddressList& operator=(const AddressList&) = delete;
    ~AddressList() {
        if (first != nullptr) ::freeaddrinfo(first);
    }
    addrinfo* first = nullptr;
};

bool IsLoopback(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        sockaddr_in known{};
        std::memcpy(&known, address, sizeof known);
        return (ntohl(known.sin_addr.s_addr) >> 24) == 127;
    }
    if (address->sa_family == AF_INET6) {
        sockaddr_in6 known{};
        std::memcpy(&known, address, sizeof known);
        return IN6_IS_ADDR_LOOPBACK(&known.sin6_addr);
    }
    return false;
}

// Milliseconds for poll(), rounded up so that it does not come back a moment early; 0: over.
int PollTime(SteadyClock::time_point until) {
    const auto left = std::chrono::ceil<milliseconds>(until - SteadyClock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, 1'000'000'000));
}

// An errno value; 0 when connected.
int ConnectTo(const addrinfo& address, SteadyClock::time_point give_up, UniqueDescriptor& made) {
    UniqueDescriptor socket(::socket(address.ai_family,
                                     address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                                     address.ai_protocol));
    if (!socket.valid()) return errno;
    const int on = 1;
    // Worth having, but it works without them.
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::setsockopt(socket.get(), SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    int problem = 0;
    if (::connect(socket.get(), address.ai_addr, address.ai_addrlen) != 0) problem = errno;
    if (problem == EINPROGRESS || problem == EINTR) {
        pollfd waiting{socket.get(), POLLOUT, 0};
        int ready = 0;
        do {
            ready = ::poll(&waiting, 1, PollTime(give_up));
        } while (ready < 0 && errno == EINTR);
        if (ready == 0) return ETIMEDOUT;
        socklen_t size = sizeof problem;
        if (::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &problem, &size) != 0) return errno;
    }
    if (problem == 0) made = std::move(socket);
    return problem;
}

}  // namespace

Transport::Transport(std::string host, const Limits& limits)
    : host_(std::move(host)), limits_(limits) {}

Result<std::unique_ptr<Transport>> Transport::Connect(const ConnectSettings& settings) {
    std::unique_ptr<Transport> transport(new Transport(settings.host, settings.limits));
    TREVIX_RETURN_IF_ERROR(transport->Dial(settings));
    return transport;
}

Status Transport::Dial(const ConnectSettings& settings) {
    const std::uint16_t usual = settings.security == Security::kTls ? kTlsPort : kPlainPort;
    const std::string port = std::to_string(settings.port != 0 ? settings.port : usual);
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_ADDRCONFIG | AI_NUMERICSERV;
    AddressList addresses;
    int outcome = ::getaddrinfo(settings.host.c_str(), port.c_str(), &hints, &addresses.first);
    if (outcome == EAI_NONAME || outcome == EAI_ADDRFAMILY || outcome == EAI_NODATA) {
        // On a machine that has no network but loopback, the flag hides addresses of it.
        hints.ai_flags = AI_NUMERICSERV;
        outcome = ::getaddrinfo(settings.host.c_str(), port.c_str(), &hints, &addresses.first);
    }
    if (outcome != 0) return Lost(::gai_strerror(outcome));
    const Clock::time_point give_up = Clock::now() + limits_.connect;
    int left = 0;
    for (const addrinfo* at = addresses.first; at != nullptr; at = at->ai_next) {
        ++left;
    }
    int problem = EADDRNOTAVAIL;
    for (const addrinfo* at = addresses.first; at != nullptr; at = at->ai_next, --left) {
        if (settings.security == Security::kPlainLoopbackOnly && !IsLoopback(at->ai_addr)) {
            return MessagingError(kNoAccess, host_ +
                                                 ": without encryption only a server on this "
                                                 "machine is spoken to");
        }
        // An address that does not answer leaves its share of the time to the others.
        problem = ConnectTo(*at, Clock::now() + (give_up - Clock::now()) / left, socket_);
        if (problem == 0) break;
    }
    if (problem != 0) return Lost(std::strerror(problem));
    channel_ = std::make_unique<PlainChannel>(socket_.get());
    return {};
}

Status Transport::StartTls(const ConnectSettings& settings) {
    auto made = TlsChannel::Make(socket_.get(), settings.host, settings.ca_file);
    if (!made.ok()) return made.error();
    std::unique_ptr<TlsChannel> tls = std::move(made).value();
    const Clock::time_point give_up = GiveUp();
    for (;;) {
        const Attempt attempt = tls->Handshake();
        if (attempt.state == Attempt::State::kMoved) break;
        if (tls->certificate_refused()) {
            return MessagingError(kLogonFailed, host_ + ": " + attempt.problem);
        }
        if (attempt.state == Attempt::State::kFailed) return Lost(attempt.problem);
        TREVIX_RETURN_IF_ERROR(WaitFor(attempt.state, give_up));
    }
    channel_ = std::move(tls);
    encrypted_ = true;
    return {};
}

Result<std::size_t> Transport::Read(char* target, std::size_t count) {
    if (!is_open()) return Lost("the connection is closed");
    const Clock::time_point began = Clock::now();
    const Clock::time_point give_up = GiveUp();
    for (;;) {
        const Attempt attempt = channel_->Read(target, count);
        switch (attempt.state) {
            case Attempt::State::kMoved: CountMoved(attempt.count, began); return attempt.count;
            case Attempt::State::kClosed: return Lost("the server closed the connection");
            case Attempt::State::kFailed: return Lost(attempt.problem);
            default: TREVIX_RETURN_IF_ERROR(WaitFor(attempt.state, give_up));
        }
    }
}

Status Transport::Write(const char* bytes, std::size_t count) {
    while (count > 0) {
        if (!is_open()) return Lost("the connection is closed");
        const Clock::time_point began = Clock::now();
        const Clock::time_point give_up = GiveUp();
        Attempt attempt = channel_->Write(bytes, count);
        while (attempt.state != Attempt::State::kMoved) {
            if (attempt.state == Attempt::State::kFailed) return Lost(attempt.problem);
            TREVIX_RETURN_IF_ERROR(WaitFor(attempt.state, give_up));
            attempt = channel_->Write(bytes, count);
        }
        CountMoved(attempt.count, began);
        bytes += attempt.count;
        count -= attempt.count;
    }
    return {};
}

Transport::Clock::time_point Transport::GiveUp() const {
    const Clock::duration patience =
        std::min<Clock::duration>(limits_.silence, limits_.standstill - waited_);
    const Clock::time_point give_up = Clock::now() + patience;
    return deadline_ ? std::min(give_up, *deadline_) : give_up;
}

Status Transport::WaitFor(Attempt::State state, Clock::time_point give_up) {
    const short events = state == Attempt::State::kWaitToWrite ? POLLOUT : POLLIN;
    pollfd waiting{socket_.get(), events, 0};
    const int time = PollTime(give_up);
    const int ready = time > 0 ? ::poll(&waiting, 1, time) : 0;
    if (ready > 0 || (ready < 0 && errno == EINTR)) return {};
    if (ready < 0) return Lost(std::strerror(errno));
    return Lost("the server does not answer");
}

void Transport::CountMoved(std::size_t count, Clock::time_point since) {
    moved_bytes_ += count;
    if (moved_bytes_ >= kProgressBytes) {
        NoteProgress();
    } else {
        waited_ += Clock::now() - since;
    }
}

void Transport::SetDeadline(std::optional<milliseconds> in) {
    deadline_.reset();
    if (in) deadline_ = Clock::now() + *in;
}

void Transport::NoteProgress() {
    waited_ = {};
    moved_bytes_ = 0;
}

void Transport::Close() {
    channel_.reset();
    socket_.Reset();
    encrypted_ = false;
}

Error Transport::Lost(const std::string& why) const {
    return MessagingError(kNetworkError, host_ + ": " + why);
}

}  // namespace trevix::imap
