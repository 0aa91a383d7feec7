#include "unit/imap/scripted_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace trevix::test {
namespace {

constexpr int kPatienceMs = 20'000;

std::uint16_t Listen(UniqueDescriptor& listener) {
    listener.Reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    // The socket interface takes every family's address as one type.
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener.get(), any, size) != 0 || ::listen(listener.get(), 1) != 0 ||
        ::getsockname(listener.get(), any, &size) != 0) {
        return 0;
    }
    return ntohs(address.sin_port);
}

}  // namespace

ScriptedServer::ScriptedServer(Script script, ServerManners manners)
    : script_(std::move(script)), manners_(manners), stop_(::eventfd(0, EFD_CLOEXEC)) {
    port_ = Listen(listener_);
    thread_ = std::thread([this] { Serve(); });
}

ScriptedServer::~ScriptedServer() {
    Finish();
}

std::string ScriptedServer::Finish() {
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        if (::write(stop_.get(), &one, sizeof one) < 0) return "the server cannot be ended";
        thread_.join();
    }
    return problem_;
}

void ScriptedServer::Note(std::string problem) {
    if (problem_.empty()) problem_ = std::move(problem);
}

void ScriptedServer::Serve() {
    std::array<pollfd, 2> waiting = {{{listener_.get(), POLLIN, 0}, {stop_.get(), POLLIN, 0}}};
    if (::poll(waiting.data(), waiting.size(), kPatienceMs) <= 0 || waiting[0].revents == 0) return;
    connection_.Reset(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    const int on = 1;
    ::setsockopt(connection_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    bool ended = false;
    for (const Script::Step& step : script_.steps()) {
        if (step.kind == Script::Step::Kind::kHangUp || !Play(step)) {
            ended = true;
            break;
        }
    }
    while (!ended && ReadByte() >= 0) {
    }
    if (tls_ != nullptr) gnutls_deinit(tls_);
    connection_.Reset();
}

bool ScriptedServer::Play(const Script::Step& step) {
    switch (step.kind) {
        case Script::Step::Kind::kExpect: return ExpectLine(step.text, true);
        case Script::Step::Kind::kExpectRaw: return ExpectLine(step.text, false);
        case Script::Step::Kind::kTakeContent:
            for (std::uint64_t taken = 0; taken < step.count; ++taken) {
                if (ReadByte() < 0) return false;
            }
            return true;
        case Script::Step::Kind::kSend: return Send(WithTags(step.text));
        case Script::Step::Kind::kRepeat:
            for (std::uint64_t times = 0; times < step.count; ++times) {
                if (!Send(step.text)) return false;
            }
            return true;
        case Script::Step::Kind::kTls: return Handshake();
        case Script::Step::Kind::kHangUp: return false;
    }
    return false;
}

bool ScriptedServer::ExpectLine(const std::string& wanted, bool tagged) {
    std::string line;
    for (int c = ReadByte(); c != '\n'; c = ReadByte()) {
        if (c < 0) return false;
        line += static_cast<char>(c);
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (tagged) {
        const std::size_t blank = std::min(line.find(' '), line.size());
        tags_.push_back(line.substr(0, blank));
        line.erase(0, std::min(blank + 1, line.size()));
    }
    const bool begins = !wanted.empty() && wanted.back() == '*';
    const std::string start = begins ? wanted.substr(0, wanted.size() - 1) : wanted;
    if (begins ? line.compare(0, start.size(), start) == 0 : line == wanted) return true;
    Note("expected \"" + wanted + "\", got \"" + line + "\"");
    return false;
}

bool ScriptedServer::Handshake() {
    gnutls_init(&tls_, GNUTLS_SERVER | GNUTLS_NONBLOCK | GNUTLS_NO_SIGNAL);
    if (manners_.tls_versions.empty()) {
        gnutls_set_default_priority(tls_);
    } else {
        gnutls_priority_set_direct(tls_, manners_.tls_versions.c_str(), nullptr);
    }
    gnutls_credentials_set(tls_, GNUTLS_CRD_CERTIFICATE, manners_.certificate);
    gnutls_transport_set_int(tls_, connection_.get());
    for (;;) {
        const int outcome = gnutls_handshake(tls_);
        if (outcome == GNUTLS_E_SUCCESS) return true;
        if (gnutls_error_is_fatal(outcome) != 0) return false;
        if (!WaitFor(gnutls_record_get_direction(tls_) == 0 ? POLLIN : POLLOUT)) return false;
    }
}

std::string ScriptedServer::WithTags(const std::string& text) const {
    std::string filled;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool plain = text.compare(at, 3, "{T}") == 0;
        const bool numbered = text.compare(at, 2, "{T") == 0 && at + 3 < text.size() &&
                              text[at + 3] == '}' && text[at + 2] >= '1' && text[at + 2] <= '9';
        if (!plain && !numbered) {
            filled += text[at];
            continue;
        }
        const auto back = plain ? std::size_t{0} : static_cast<std::size_t>(text[at + 2] - '0');
        if (back < tags_.size()) filled += tags_[tags_.size() - 1 - back];
        at += plain ? 2 : 3;
    }
    return filled;
}

bool ScriptedServer::WaitFor(short events) {
    std::array<pollfd, 2> waiting = {{{connection_.get(), events, 0}, {stop_.get(), POLLIN, 0}}};
    return ::poll(waiting.data(), waiting.size(), kPatienceMs) > 0 && waiting[1].revents == 0;
}

bool ScriptedServer::Send(const std::string& text) {
    std::size_t count = text.size();
    bool cut = false;
    if (manners_.cut_after_sent && sent_ + count >= *manners_.cut_after_sent) {
        count = static_cast<std::size_t>(*manners_.cut_after_sent - sent_);
        cut = true;
    }
    const std::size_t piece = manners_.byte_by_byte ? 1 : count;
    for (std::size_t at = 0; at < count; at += piece) {
        if (!SendSome(text.data() + at, std::min(piece, count - at))) return false;
    }
    return !cut;
}

bool ScriptedServer::SendSome(const char* bytes, std::size_t count) {
    while (count > 0) {
        const ssize_t put = tls_ != nullptr ? gnutls_record_send(tls_, bytes, count)
                                            : ::send(connection_.get(), bytes, count, MSG_NOSIGNAL);
        if (put > 0) {
            bytes += put;
            count -= static_cast<std::size_t>(put);
            sent_ += static_cast<std::uint64_t>(put);
            continue;
        }
        const bool wait = tls_ != nullptr ? gnutls_error_is_fatal(static_cast<int>(put)) == 0
                                          : errno == EAGAIN || errno == EINTR;
        if (!wait || !WaitFor(POLLOUT)) return false;
    }
    return true;
}

bool ScriptedServer::Fill() {
    std::array<char, 16384> bytes;
    for (;;) {
        const ssize_t got = tls_ != nullptr
                                ? gnutls_record_recv(tls_, bytes.data(), bytes.size())
                                : ::recv(connection_.get(), bytes.data(), bytes.size(), 0);
        if (got > 0) {
            buffer_.assign(bytes.data(), static_cast<std::size_t>(got));
            at_ = 0;
            return true;
        }
        const bool wait = tls_ != nullptr
                              ? got < 0 && gnutls_error_is_fatal(static_cast<int>(got)) == 0
                              : got < 0 && (errno == EAGAIN || errno == EINTR);
        if (!wait || !WaitFor(POLLIN)) return false;
    }
}

int ScriptedServer::ReadByte() {
    if (manners_.cut_after_received && received_.size() >= *manners_.cut_after_received) return -1;
    if (at_ == buffer_.size() && !Fill()) return -1;
    received_ += buffer_[at_];
    return static_cast<unsigned char>(buffer_[at_++]);
}

}  // namespace trevix::test
