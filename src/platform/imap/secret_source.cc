#include "platform/imap/secret_source.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "platform/errors.h"
#include "platform/unique_descriptor.h"

namespace trevix::imap {
namespace {

using Clock = std::chrono::steady_clock;

// Tokens have some thousand characters.
constexpr std::size_t kLongest = std::size_t{64} * 1024;

Error Denied(const std::string& what) {
    return {ErrorKind::kDenied, static_cast<int>(kLogonFailed), what};
}

// A buffer that a secret is read into: it never grows, so no copy is left anywhere.
class Buffer {
 public:
    Buffer() : bytes_(kLongest + 1, '\0') {}
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() { Secret::Wipe(bytes_); }

    enum class End { kMore, kEnd, kNothingNow, kFailed, kTooLong };
    End ReadOnce(int descriptor) {
        if (used_ > kLongest) return End::kTooLong;
        const ssize_t got = ::read(descriptor, bytes_.data() + used_, bytes_.size() - used_);
        if (got < 0 && errno == EINTR) return End::kMore;
        if (got < 0) return errno == EAGAIN ? End::kNothingNow : End::kFailed;
        used_ += static_cast<std::size_t>(got);
        return got == 0 ? End::kEnd : End::kMore;
    }

    // The first line; nothing when it is empty.
    Result<Secret> FirstLine(const std::string& of) const {
        const std::string_view all(bytes_.data(), used_);
        std::string_view line = all.substr(0, all.find('\n'));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty()) return Denied(of + ": no password in the first line");
        if (line.find('\0') != std::string_view::npos) return Denied(of + ": not a text");
        return Secret(std::string(line));
    }

 private:
    std::string bytes_;
    std::size_t used_ = 0;
};

Result<Secret> ReadFrom(int descriptor, const std::string& of) {
    Buffer buffer;
    while (true) {
        switch (buffer.ReadOnce(descriptor)) {
            case Buffer::End::kMore: break;
            case Buffer::End::kEnd: return buffer.FirstLine(of);
            case Buffer::End::kTooLong: return Denied(of + ": too long for a password");
            case Buffer::End::kNothingNow:
            case Buffer::End::kFailed: return Denied(of + ": " + std::strerror(errno));
        }
    }
}

// `is_private`: only its owner may read it.
Result<Secret> ReadFile(const std::string& path, const std::string& of, bool is_private) {
    // A pipe must not make the program wait.
    const UniqueDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat about {};
    if (!file.valid() || ::fstat(file.get(), &about) != 0) {
        return Denied(of + ": " + std::strerror(errno));
    }
    if (!S_ISREG(about.st_mode)) return Denied(of + ": not a file");
    if (is_private && about.st_uid != ::geteuid() && about.st_uid != 0) {
        return Denied(of + ": it belongs to somebody else; it must be yours");
    }
    if (is_private && (about.st_mode & 077) != 0) {
        return Denied(of + ": others may read or change it; make it private with chmod 600");
    }
    return ReadFrom(file.get(), of);
}

Result<Secret> ReadCredential(const SecretSource& source) {
    const std::string of = source.said_at + ": credential " + source.name;
    const char* directory = std::getenv("CREDENTIALS_DIRECTORY");
    if (directory == nullptr || directory[0] != '/') {
        return Denied(of +
                      ": this program was not given any; start it as a service with "
                      "LoadCredential=");
    }
    // The service manager makes them private, with access lists where a mode does not say it.
    return ReadFile(std::string(directory) + "/" + source.name, of, false);
}

// A started command and the pipe that it prints into.
class Command {
 public:
    Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    ~Command() { Kill(); }

    // 0, or why it cannot be started.
    int Start(const std::vector<std::string>& words) {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) return errno;
        output_.Reset(ends[0]);
        const UniqueDescriptor child_output(ends[1]);
        if (::fcntl(output_.get(), F_SETFL, O_NONBLOCK) != 0) return errno;
        const int failed = Spawn(words, child_output.get());
        if (failed != 0) return failed;
        // The C library's own wrapper is not declared for C++.
        end_.Reset(static_cast<int>(::syscall(SYS_pidfd_open, process_, 0)));
        return end_.valid() ? 0 : errno;
    }

    int output() const { return output_.get(); }
    int end() const { return end_.get(); }

    // Of a command that has ended, as waitpid() says it.
    int Reap() {
        int status = 0;
        while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
        process_ = 0;
        return status;
    }

 private:
    // It stays in our process group: Ctrl-C means it as well, and it may ask on the terminal.
    int Spawn(const std::vector<std::string>& words, int child_output) {
        std::vector<std::string> texts = words;
        std::vector<char*> pointers;
        for (std::string& text : texts)
            pointers.push_back(text.data());
        pointers.push_back(nullptr);

        posix_spawn_file_actions_t actions{};
        posix_spawnattr_t attributes{};
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawnattr_init(&attributes);
        ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_adddup2(&actions, child_output, STDOUT_FILENO);
        ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        sigset_t none;
        ::sigemptyset(&none);
        ::posix_spawnattr_setsigmask(&attributes, &none);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
        const int failed = ::posix_spawnp(&process_, pointers.front(), &actions, &attributes,
                                          pointers.data(), environ);
        if (failed != 0) process_ = 0;
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
        return failed;
    }

    void Kill() {
        if (process_ == 0) return;
        ::kill(process_, SIGKILL);
        Reap();
    }

    pid_t process_ = 0;
    UniqueDescriptor output_;
    UniqueDescriptor end_;
};

// Reads until the command has ended. What it has started may keep the pipe open for longer.
Status Follow(Command& command, Buffer& buffer, Clock::time_point deadline, const std::string& of) {
    bool is_open = true;
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            return Denied(of + ": no answer in time; try it in a shell");
        }
        // A negative descriptor is passed over.
        std::array<pollfd, 2> watched{pollfd{is_open ? command.output() : -1, POLLIN, 0},
                                      pollfd{command.end(), POLLIN, 0}};
        const int ready = ::poll(watched.data(), watched.size(), static_cast<int>(left.count()));
        if (ready < 0 && errno != EINTR) return Denied(of + ": " + std::strerror(errno));
        if (ready <= 0) continue;
        Buffer::End end = Buffer::End::kNothingNow;
        if (is_open) {
            do {
                end = buffer.ReadOnce(command.output());
            } while (end == Buffer::End::kMore);
        }
        if (end == Buffer::End::kTooLong) return Denied(of + ": too long for a password");
        if (end == Buffer::End::kFailed) return Denied(of + ": " + std::strerror(errno));
        if (end == Buffer::End::kEnd) is_open = false;
        if (watched[1].revents != 0) return {};
    }
}

Result<Secret> RunCommand(const SecretSource& source, std::chrono::milliseconds patience) {
    const std::string of = source.said_at + ": " + source.command.front();
    Command command;
    const int failed = command.Start(source.command);
    if (failed != 0) return Denied(of + ": " + std::strerror(failed));
    Buffer buffer;
    TREVIX_RETURN_IF_ERROR(Follow(command, buffer, Clock::now() + patience, of));
    const int status = command.Reap();
    if (WIFSIGNALED(status)) {
        return Denied(of + ": ended by signal " + std::to_string(WTERMSIG(status)));
    }
    if (WEXITSTATUS(status) != 0) {
        return Denied(of + ": failed with exit status " + std::to_string(WEXITSTATUS(status)) +
                      "; try it in a shell");
    }
    return buffer.FirstLine(of);
}

}  // namespace

Result<Secret> ReadSecret(const SecretSource& source, std::chrono::milliseconds patience) {
    switch (source.kind) {
        case SecretSource::Kind::kNone: break;
        case SecretSource::Kind::kCommand: return RunCommand(source, patience);
        case SecretSource::Kind::kFile:
            return ReadFile(source.name, source.said_at + ": " + source.name, true);
        case SecretSource::Kind::kCredential: return ReadCredential(source);
        case SecretSource::Kind::kText: return Secret(std::string(source.text->text()));
    }
    return Denied("no password is known; name one in " + source.said_at +
                  ", as trevix-servers(5) shows");
}

}  // namespace trevix::imap
