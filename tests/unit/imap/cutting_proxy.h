// A way to a server that is cut after so many bytes, once; later connections go through.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <thread>

#include "platform/unique_descriptor.h"

namespace trevix::imap {

class CuttingProxy {
 public:
    static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

    explicit CuttingProxy(std::uint16_t server_port) : server_port_(server_port) {
        listener_.Reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address = Loopback(0);
        socklen_t size = sizeof address;
        // NOLINTBEGIN(cppcoreguidelines-pro-type-reinterpret-cast)
        ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), size);
        ::listen(listener_.get(), 8);
        ::getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &size);
        // NOLINTEND(cppcoreguidelines-pro-type-reinterpret-cast)
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { Serve(); });
    }
    CuttingProxy(const CuttingProxy&) = delete;
    CuttingProxy& operator=(const CuttingProxy&) = delete;
    ~CuttingProxy() {
        stopping_ = true;
        ::shutdown(listener_.get(), SHUT_RDWR);
        thread_.join();
    }

    std::uint16_t port() const { return port_; }

    // Bytes that still go through, to the server and from it.
    void CutAfter(std::int64_t to_server, std::int64_t from_server) {
        budgets_[0] = to_server;
        budgets_[1] = from_server;
    }
    // What went through since.
    std::int64_t Passed(int direction, std::int64_t budget) const {
        return budget - budgets_[static_cast<std::size_t>(direction)];
    }

 private:
    static sockaddr_in Loopback(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    void Serve() {
        while (!stopping_) {
            const UniqueDescriptor client(
                ::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (!client.valid()) return;
            const UniqueDescriptor server(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
            const sockaddr_in address = Loopback(server_port_);
            // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast)
            const auto* where = reinterpret_cast<const sockaddr*>(&address);
            if (::connect(server.get(), where, sizeof address) == 0) {
                Forward(client.get(), server.get());
            }
        }
    }

    void Forward(int client, int server) {
        std::array<pollfd, 3> waiting = {pollfd{client, POLLIN, 0}, pollfd{server, POLLIN, 0},
                                         pollfd{listener_.get(), 0, 0}};
        while (::poll(waiting.data(), waiting.size(), -1) >= 0 && !stopping_) {
            if (waiting[0].revents != 0 && !Pass(client, server, 0)) return;
            if (waiting[1].revents != 0 && !Pass(server, client, 1)) return;
        }
    }

    // False at the end of the connection.
    bool Pass(int from, int to, std::size_t direction) {
        std::array<char, 16384> buffer{};
        const ssize_t got = ::recv(from, buffer.data(), buffer.size(), 0);
        if (got <= 0) return false;
        const std::int64_t budget = budgets_[direction];
        const std::int64_t count = got < budget ? got : budget;
        for (std::int64_t sent = 0; sent < count;) {
            const ssize_t now = ::send(to, buffer.data() + sent,
                                       static_cast<std::size_t>(count - sent), MSG_NOSIGNAL);
            if (now <= 0) return false;
            sent += now;
        }
        if (count < got) {
            CutAfter(kNever, kNever);
            return false;
        }
        if (budget != kNever) budgets_[direction] = budget - count;
        return true;
    }

    std::uint16_t server_port_;
    std::uint16_t port_ = 0;
    UniqueDescriptor listener_;
    std::array<std::atomic<std::int64_t>, 2> budgets_ = {kNever, kNever};
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

}  // namespace trevix::imap
