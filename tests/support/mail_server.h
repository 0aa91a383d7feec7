// A real IMAP server for one test: the program tests/imap/servers.py starts it in a directory of
// its own, on the loopback interface, and stops it when this object goes.
#pragma once

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/imap/client.h"

namespace trevix::tests {

class MailServer {
 public:
    // `kind` is "dovecot" or "cyrus". Null when that server is not installed.
    static std::unique_ptr<MailServer> Start(const std::string& kind,
                                             const std::string& separator = "/") {
        std::unique_ptr<MailServer> server(new MailServer);
        if (!server->Spawn(kind, separator)) return nullptr;
        const std::string line = server->ReadLine();
        server->about_ = nlohmann::json::parse(line, nullptr, false);
        if (server->about_.is_discarded() || !server->about_.contains("tls_port")) return nullptr;
        return server;
    }

    MailServer(const MailServer&) = delete;
    MailServer& operator=(const MailServer&) = delete;
    ~MailServer() {
        if (input_ >= 0) ::close(input_);
        if (output_ >= 0) ::close(output_);
        if (child_ > 0) ::waitpid(child_, nullptr, 0);
    }

    // Settings of a connection under TLS, with the test's own authority.
    imap::ConnectSettings connection() const {
        imap::ConnectSettings settings;
        settings.host = "localhost";
        settings.port = about_["tls_port"].get<std::uint16_t>();
        settings.ca_file = about_["ca_file"].get<std::string>();
        return settings;
    }
    std::uint16_t plain_port() const { return about_["port"].get<std::uint16_t>(); }

    // A connection that is logged in; null when that fails.
    std::unique_ptr<imap::Client> Connect(const std::string& user) const {
        auto client = imap::Client::Connect(connection());
        if (!client.ok()) return nullptr;
        const std::string password = about_["users"][user].get<std::string>();
        imap::Credentials credentials;
        credentials.user = user;
        credentials.secret = password;
        if (!client.value()->LogIn(credentials).ok()) return nullptr;
        return std::move(client).value();
    }

 private:
    MailServer() = default;

    bool Spawn(const std::string& kind, const std::string& separator) {
        std::array<int, 2> to_child{};
        std::array<int, 2> from_child{};
        if (::pipe2(to_child.data(), O_CLOEXEC) != 0) return false;
        if (::pipe2(from_child.data(), O_CLOEXEC) != 0) return false;
        const char* configured = std::getenv("TREVIX_TEST_SERVERS");
        const std::string program = configured != nullptr ? configured : TREVIX_TEST_SERVERS;
        child_ = ::fork();
        if (child_ == 0) {
            ::dup2(to_child[0], STDIN_FILENO);
            ::dup2(from_child[1], STDOUT_FILENO);
            ::execlp("python3", "python3", program.c_str(), kind.c_str(), "--separator",
                     separator.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        ::close(to_child[0]);
        ::close(from_child[1]);
        input_ = to_child[1];
        output_ = from_child[0];
        return child_ > 0;
    }

    std::string ReadLine() const {
        std::string line;
        char c = 0;
        while (::read(output_, &c, 1) == 1 && c != '\n')
            line += c;
        return line;
    }

    pid_t child_ = -1;
    int input_ = -1;
    int output_ = -1;
    nlohmann::json about_;
};

}  // namespace trevix::tests
