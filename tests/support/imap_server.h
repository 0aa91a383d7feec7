// A real IMAP server for a test: starts the program tests/imap/servers.py, reads where the server
// is, and has it stopped by closing that program's input.
//
//     ImapServer server("dovecot");
//     if (!server.IsRunning()) GTEST_SKIP() << server.why();
//
// One server serves a test suite: starting one takes a second. Where everything must run
// (TREVIX_REQUIRE_ALL=1), a missing server is for the test to fail by; MustRun() says so.
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "platform/unique_descriptor.h"

// Where the tests are; the build says it.
#ifndef TREVIX_TESTS_DIRECTORY
#error "link trevix_imap_server"
#endif

namespace trevix::test {

class ImapServer {
 public:
    // `kind` is "dovecot" or "cyrus"; `options` as the program takes them: {"--quota-kb", "100"}.
    explicit ImapServer(const std::string& kind, const std::vector<std::string>& options = {}) {
        std::vector<std::string> words{"python3", TREVIX_TESTS_DIRECTORY "/imap/servers.py", kind};
        words.insert(words.end(), options.begin(), options.end());
        const std::string line = Start(words) ? ReadLine() : "{}";
        description_ = nlohmann::json::parse(line, nullptr, false);
        if (!description_.is_object()) description_ = nlohmann::json::object();
    }
    ImapServer(const ImapServer&) = delete;
    ImapServer& operator=(const ImapServer&) = delete;
    ~ImapServer() { Stop(); }

    bool IsRunning() const { return description_.contains("port"); }
    std::string why() const {
        return description_.value("missing", "the server could not be started");
    }
    static bool MustRun() {
        const char* all = std::getenv("TREVIX_REQUIRE_ALL");
        return all != nullptr && std::strcmp(all, "1") == 0;
    }

    std::string host() const { return description_.value("host", ""); }
    int port() const { return description_.value("port", 0); }
    int tls_port() const { return description_.value("tls_port", 0); }
    std::string ca_file() const { return description_.value("ca_file", ""); }
    std::string password(const std::string& user) const {
        return description_.at("users").value(user, "");
    }
    std::string master() const { return description_.value("master", ""); }
    std::string master_password() const { return description_.value("master_password", ""); }

    // All that the program said; for what has no function of its own.
    const nlohmann::json& description() const { return description_; }

    // Ends it now, so that a test sees what becomes of its connections.
    void Stop() {
        input_.Reset();
        output_.Reset();
        if (process_ > 0) {
            while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
            }
        }
        process_ = 0;
    }

 private:
    bool Start(std::vector<std::string>& words) {
        std::array<int, 2> input{};
        std::array<int, 2> output{};
        if (::pipe2(input.data(), O_CLOEXEC) != 0) return false;
        const UniqueDescriptor their_input(input[0]);
        input_.Reset(input[1]);
        if (::pipe2(output.data(), O_CLOEXEC) != 0) return false;
        output_.Reset(output[0]);
        const UniqueDescriptor their_output(output[1]);

        std::vector<char*> pointers;
        for (std::string& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions{};
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, their_input.get(), STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, their_output.get(), STDOUT_FILENO);
        const int failed = ::posix_spawnp(&process_, pointers.front(), &actions, nullptr,
                                          pointers.data(), environ);
        ::posix_spawn_file_actions_destroy(&actions);
        if (failed != 0) process_ = 0;
        return failed == 0;
    }

    // The program's only line; what came, when it ended before.
    std::string ReadLine() const {
        std::string line;
        std::array<char, 4096> buffer{};
        while (line.find('\n') == std::string::npos) {
            const ssize_t got = ::read(output_.get(), buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            line.append(buffer.data(), static_cast<std::size_t>(got));
        }
        return line;
    }

    pid_t process_ = 0;
    UniqueDescriptor input_;
    UniqueDescriptor output_;
    nlohmann::json description_;
};

}  // namespace trevix::test
