#include "platform/posix/child_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/errors.h"

namespace trevix::posix {
namespace {

// What posix_spawn() is told, freed at the end.
class SpawnPlan {
 public:
    SpawnPlan() {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
        sigset_t none;
        ::sigemptyset(&none);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;
    ~SpawnPlan() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }

    void GiveNoInput() {
        ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }

    // When the two are the same it loses its close-on-exec flag.
    void GiveDescriptor(int ours, int theirs) {
        ::posix_spawn_file_actions_adddup2(&actions_, ours, theirs);
    }

    void KeepNoneAbove(int last) {
        ::posix_spawn_file_actions_addclosefrom_np(&actions_, last + 1);
    }

    int Spawn(pid_t& process, const std::string& program, std::vector<char*>& arguments) const {
        return ::posix_spawn(&process, program.c_str(), &actions_, &attributes_, arguments.data(),
                             environ);
    }

 private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

}  // namespace

Result<std::unique_ptr<ChildProcess>> ChildProcess::Start(const std::string& program,
                                                          const std::vector<std::string>& arguments,
                                                          Report through) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return SystemError(errno, program);
    UniqueDescriptor report(ends[0]);
    const UniqueDescriptor child_report(ends[1]);
    // Only our end: a program does not expect of its output that it takes nothing for a moment.
    if (::fcntl(report.get(), F_SETFL, O_NONBLOCK) != 0) return SystemError(errno, program);

    std::vector<std::string> texts{program};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);

    SpawnPlan plan;
    if (through == Report::kOutput) {
        plan.GiveNoInput();
        plan.GiveDescriptor(child_report.get(), STDOUT_FILENO);
        plan.KeepNoneAbove(STDERR_FILENO);
    } else {
        plan.GiveDescriptor(child_report.get(), kReportDescriptor);
        plan.KeepNoneAbove(kReportDescriptor);
    }
    pid_t process = 0;
    const int failed = plan.Spawn(process, program, pointers);
    if (failed != 0) return SystemError(failed, program);

    // The C library's own wrapper is not declared for C++.
    UniqueDescriptor end(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
    if (!end.valid()) {
        const int why = errno;
        // A child whose end nobody would notice.
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
        return SystemError(why, program);
    }
    return std::unique_ptr<ChildProcess>(
        new ChildProcess(process, std::move(report), std::move(end)));
}

bool ChildProcess::ReadReport(std::string& text) {
    std::array<char, 256> buffer{};
    while (true) {
        const ssize_t got = ::read(report_.get(), buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno == EAGAIN;
        if (got == 0) return false;
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

int ChildProcess::Reap() {
    int status = 0;
    if (process_ != 0) ::waitpid(std::exchange(process_, 0), &status, 0);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

void ChildProcess::Terminate() {
    if (process_ != 0) ::kill(process_, SIGTERM);
}

// The parent may end between the start and this call; then it is not the parent any more.
bool EndWithParent(pid_t parent) {
    return ::prctl(PR_SET_PDEATHSIG, SIGTERM) == 0 && ::getppid() == parent;
}

}  // namespace trevix::posix
