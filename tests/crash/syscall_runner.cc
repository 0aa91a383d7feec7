// Runs a program and steps in at its n-th system call: counts, kills, fails or pauses there.
//
//   syscall_runner count [options] -- COMMAND...
//   syscall_runner kill N [--after] [options] -- COMMAND...
//   syscall_runner fail N --errno NAME [--from-then-on] [options] -- COMMAND...
//   syscall_runner pause N --exec SCRIPT [options] -- COMMAND...
//
// Which calls are counted, all of them unless an option says otherwise:
//   --only-writing   calls that can change the file system (and locks, and closing a written file)
//   --calls A,B      calls of these names
//   --errno NAME     calls that can fail with this error
//   --path TEXT      calls on a path that contains the text
//   --arm-at TEXT    count from the first opening of a path that contains the text
// --list FILE writes one line a counted call: its number, name and path.
//
// Exit status: the program's own; 137 when it was killed; 77 when tracing is not permitted; 125 for
// a wrong command line. Lines of the runner itself begin with "syscall_runner:" on standard error.
#include <elf.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "crash/syscall_table.h"

namespace trevix::crash {
namespace {

constexpr int kExitUsage = 125;
constexpr int kExitNoTracing = 77;
constexpr int kExitKilled = 137;

enum class Action { kCount, kKill, kFail, kPause };

struct Options {
    Action action = Action::kCount;
    long target = 0;
    bool only_writing = false;
    bool after = false;
    bool from_then_on = false;
    int error_number = 0;
    std::vector<std::string> calls;
    std::string path;
    std::string arm_at;
    std::string script;
    std::string list_file;
    std::vector<char*> command;  // ends with a null pointer
};

struct Entry {
    CallInfo call;
    std::uint64_t arguments[6] = {};
};

// What the runner knows of one thread of the program.
struct Thread {
    bool in_call = false;
    bool fail_at_exit = false;
    bool kill_at_exit = false;
};

std::string ReadText(pid_t pid, std::uint64_t address) {
    std::string text;
    char buffer[256];
    while (text.size() < 4096) {
        // One read never crosses a page, because the next page may not exist.
        const std::uint64_t here = address + text.size();
        const std::size_t wanted =
            std::min<std::size_t>(sizeof buffer, static_cast<std::size_t>(4096 - here % 4096));
        iovec local = {buffer, wanted};
        iovec remote = {std::bit_cast<void*>(here), wanted};
        const ssize_t got = process_vm_readv(pid, &local, 1, &remote, 1, 0);
        if (got <= 0) return text;
        const auto* end =
            static_cast<const char*>(std::memchr(buffer, 0, static_cast<size_t>(got)));
        if (end != nullptr) return text.append(buffer, static_cast<size_t>(end - buffer));
        text.append(buffer, static_cast<size_t>(got));
    }
    return text;
}

std::string ReadLink(const std::string& link) {
    char buffer[4096];
    const ssize_t length = readlink(link.c_str(), buffer, sizeof buffer);
    return length > 0 ? std::string(buffer, static_cast<std::size_t>(length)) : std::string();
}

std::string ProcPath(pid_t pid, const char* folder, int descriptor) {
    return "/proc/" + std::to_string(pid) + "/" + folder + "/" + std::to_string(descriptor);
}

std::string DescriptorPath(pid_t pid, int descriptor) {
    if (descriptor == AT_FDCWD) return ReadLink("/proc/" + std::to_string(pid) + "/cwd");
    return ReadLink(ProcPath(pid, "fd", descriptor));
}

// The path that the call is about; empty for a pipe, a socket and the like.
std::string CallPath(pid_t pid, const Entry& entry) {
    const CallInfo& call = entry.call;
    std::string path;
    if (call.path_argument >= 0) {
        const std::uint64_t address = entry.arguments[call.path_argument];
        if (address != 0) path = ReadText(pid, address);
        if (!path.empty() && path.front() == '/') return path;
        const int folder = call.directory_argument < 0
                               ? AT_FDCWD
                               : static_cast<int>(entry.arguments[call.directory_argument]);
        const std::string base = DescriptorPath(pid, folder);
        return path.empty() ? base : base + "/" + path;
    }
    if (call.descriptor_argument >= 0)
        path = DescriptorPath(pid, static_cast<int>(entry.arguments[call.descriptor_argument]));
    const bool is_file = !path.empty() && path.front() == '/' && path.rfind("/dev/", 0) != 0;
    return is_file ? path : std::string();
}

std::uint64_t OpenFlags(pid_t pid, const Entry& entry) {
    const std::string name = entry.call.name;
    if (name == "creat") return O_CREAT | O_WRONLY | O_TRUNC;
    if (name == "open") return entry.arguments[1];
    if (name == "openat") return entry.arguments[2];
    open_how how = {};
    iovec local = {&how, sizeof how};
    iovec remote = {std::bit_cast<void*>(entry.arguments[2]), sizeof how};
    return process_vm_readv(pid, &local, 1, &remote, 1, 0) > 0 ? how.flags : 0;
}

bool DescriptorIsWritable(pid_t pid, int descriptor) {
    std::ifstream info(ProcPath(pid, "fdinfo", descriptor));
    std::string label;
    unsigned long flags = 0;
    while (info >> label)
        if (label == "flags:") info >> std::oct >> flags;
    return (flags & O_ACCMODE) != O_RDONLY;
}

bool Creates(pid_t pid, const Entry& entry) {
    return entry.call.kind == CallKind::kOpen && (OpenFlags(pid, entry) & O_CREAT) != 0;
}

bool CanChangeFiles(pid_t pid, const Entry& entry) {
    switch (entry.call.kind) {
        case CallKind::kOther:
        case CallKind::kRead:
        case CallKind::kList: return false;
        case CallKind::kOpen: {
            const std::uint64_t flags = OpenFlags(pid, entry);
            return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
        }
        case CallKind::kClose:
            return !CallPath(pid, entry).empty() &&
                   DescriptorIsWritable(pid, static_cast<int>(entry.arguments[0]));
        case CallKind::kDescriptorLock: {
            const auto command = static_cast<int>(entry.arguments[1]);
            const bool sets_lock = command == F_SETLK || command == F_SETLKW ||
                                   command == F_OFD_SETLK || command == F_OFD_SETLKW;
            return std::strcmp(entry.call.name, "flock") == 0 || sets_lock;
        }
        default: return !CallPath(pid, entry).empty();
    }
}

// Makes the call that the thread is about to enter fail: the kernel skips call -1.
bool SkipCall(pid_t pid) {
#if defined(__x86_64__)
    user_regs_struct registers = {};
    if (ptrace(PTRACE_GETREGS, pid, nullptr, &registers) != 0) return false;
    registers.orig_rax = ~0ULL;
    return ptrace(PTRACE_SETREGS, pid, nullptr, &registers) == 0;
#elif defined(__aarch64__)
    int number = -1;
    iovec value = {&number, sizeof number};
    return ptrace(PTRACE_SETREGSET, pid, NT_ARM_SYSTEM_CALL, &value) == 0;
#else
#error "syscall_runner knows x86-64 and aarch64 only"
#endif
}

bool SetResult(pid_t pid, long result) {
    user_regs_struct registers = {};
    iovec value = {&registers, sizeof registers};
    if (ptrace(PTRACE_GETREGSET, pid, NT_PRSTATUS, &value) != 0) return false;
#if defined(__x86_64__)
    registers.rax = static_cast<unsigned long long>(result);
#else
    registers.regs[0] = static_cast<unsigned long long>(result);
#endif
    return ptrace(PTRACE_SETREGSET, pid, NT_PRSTATUS, &value) == 0;
}

void Say(const std::string& text) {
    std::cerr << "syscall_runner: " << text << std::endl;
}

class Runner {
 public:
    explicit Runner(const Options& options) : options_(options), armed_(options.arm_at.empty()) {
        if (!options.list_file.empty()) list_.open(options.list_file);
    }

    // The exit status to hand on.
    int Run();

 private:
    bool Start();
    std::optional<int> HandleStop(pid_t pid, int status);
    bool HandleCall(pid_t pid);
    bool HandleEntry(pid_t pid, Thread& thread, const Entry& entry);
    bool Counts(pid_t pid, const Entry& entry, const std::string& path);
    void RunScript(pid_t pid) const;
    int KillAll();
    int Finish(int status);

    const Options& options_;
    bool armed_;
    bool executed_ = false;
    pid_t main_pid_ = 0;
    long all_calls_ = 0;
    long counted_ = 0;
    bool reached_ = false;
    std::map<pid_t, Thread> threads_;
    std::ofstream list_;
};

bool Runner::Start() {
    main_pid_ = fork();
    if (main_pid_ < 0) return false;
    if (main_pid_ == 0) {
        setpgid(0, 0);
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(kExitNoTracing);
        raise(SIGSTOP);
        execvp(options_.command[0], options_.command.data());
        std::perror(options_.command[0]);
        _exit(kExitUsage);
    }
    int status = 0;
    if (waitpid(main_pid_, &status, 0) != main_pid_ || !WIFSTOPPED(status)) return false;
    const long wanted = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEFORK |
                        PTRACE_O_TRACEVFORK | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL;
    if (ptrace(PTRACE_SETOPTIONS, main_pid_, nullptr, wanted) != 0) return false;
    threads_[main_pid_] = Thread();
    return ptrace(PTRACE_SYSCALL, main_pid_, nullptr, nullptr) == 0;
}

int Runner::Run() {
    if (!Start()) {
        Say("tracing is not permitted here");
        if (main_pid_ > 0) kill(main_pid_, SIGKILL);
        return kExitNoTracing;
    }
    for (;;) {
        int status = 0;
        const pid_t pid = waitpid(-1, &status, __WALL);
        if (pid < 0) return Finish(1);
        if (WIFEXITED(status) || WIFSIGNALED(status)) {
            threads_.erase(pid);
            if (pid != main_pid_) continue;
            return Finish(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
        }
        if (const std::optional<int> end = HandleStop(pid, status)) return *end;
    }
}

// The exit status when the run is over, else nothing.
std::optional<int> Runner::HandleStop(pid_t pid, int status) {
    const int signal_number = WSTOPSIG(status);
    const bool is_new = threads_.find(pid) == threads_.end();
    int deliver = 0;
    if (signal_number == (SIGTRAP | 0x80)) {
        if (!HandleCall(pid)) return KillAll();
    } else if (status >> 16 != 0) {
        if (status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXEC << 8))) executed_ = true;
    } else if (!(is_new && signal_number == SIGSTOP)) {
        deliver = signal_number;  // a new thread begins with a stop that is not the program's
    }
    threads_.try_emplace(pid);
    ptrace(PTRACE_SYSCALL, pid, nullptr, static_cast<long>(deliver));
    return std::nullopt;
}

// False when the program is to be killed now.
bool Runner::HandleCall(pid_t pid) {
    __ptrace_syscall_info info = {};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) <= 0) return true;
    Thread& thread = threads_[pid];
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
        Entry entry;
        entry.call = FindCall(static_cast<long>(info.entry.nr));
        std::copy_n(info.entry.args, 6, entry.arguments);
        return !executed_ || HandleEntry(pid, thread, entry);
    }
    if (info.op == PTRACE_SYSCALL_INFO_EXIT && thread.fail_at_exit) {
        SetResult(pid, -static_cast<long>(options_.error_number));
        thread.fail_at_exit = false;
    }
    return !thread.kill_at_exit;
}

bool Runner::Counts(pid_t pid, const Entry& entry, const std::string& path) {
    if (!armed_) {
        armed_ = entry.call.kind == CallKind::kOpen && path.find(options_.arm_at) != path.npos;
        if (!armed_) return false;
    }
    ++all_calls_;
    if (options_.only_writing && !CanChangeFiles(pid, entry)) return false;
    if (!options_.path.empty() && path.find(options_.path) == path.npos) return false;
    if (!options_.calls.empty())
        return std::find(options_.calls.begin(), options_.calls.end(),
                         CallName(entry.call.number)) != options_.calls.end();
    if (options_.error_number == 0) return true;
    const bool has_file = entry.call.path_argument >= 0 || !path.empty();
    return has_file && ErrorSuits(entry.call, Creates(pid, entry), options_.error_number);
}

bool Runner::HandleEntry(pid_t pid, Thread& thread, const Entry& entry) {
    const std::string path = CallPath(pid, entry);
    if (!Counts(pid, entry, path)) return true;
    ++counted_;
    const std::string shown = CallName(entry.call.number) + " " + path;
    if (list_.is_open()) list_ << counted_ << ' ' << shown << '\n';

    const bool hit =
        counted_ == options_.target || (options_.from_then_on && counted_ > options_.target);
    if (options_.action == Action::kCount || !hit) return true;
    const std::string place = " call " + std::to_string(counted_) + ": " + shown;
    switch (options_.action) {
        case Action::kKill:
            Say((options_.after ? "killing after" : "killing before") + place);
            if (options_.after) {
                thread.kill_at_exit = true;
                return true;
            }
            SkipCall(pid);
            return false;
        case Action::kFail:
            if (!reached_) Say("failing" + place);
            thread.fail_at_exit = SkipCall(pid);
            break;
        case Action::kPause:
            Say("pausing before" + place);
            RunScript(pid);
            break;
        case Action::kCount: break;
    }
    reached_ = true;
    return true;
}

// Runs the script to its end while the thread stands still.
void Runner::RunScript(pid_t pid) const {
    const pid_t script = fork();
    if (script == 0) {
        setenv("TREVIX_PAUSED_PID", std::to_string(pid).c_str(), 1);
        execl("/bin/sh", "sh", "-c", options_.script.c_str(), nullptr);
        _exit(kExitUsage);
    }
    int status = 0;
    if (script > 0 && waitpid(script, &status, 0) == script && status != 0)
        Say("the script failed with status " + std::to_string(status));
}

int Runner::KillAll() {
    kill(-main_pid_, SIGKILL);
    for (const auto& [pid, thread] : threads_)
        kill(pid, SIGKILL);
    int status = 0;
    while (waitpid(-1, &status, __WALL) > 0) {
    }
    return kExitKilled;
}

int Runner::Finish(int status) {
    if (options_.action == Action::kCount)
        Say("counted " + std::to_string(counted_) + " of " + std::to_string(all_calls_) + " calls");
    else if (!reached_)
        Say("call " + std::to_string(options_.target) + " was not reached, counted " +
            std::to_string(counted_));
    return status;
}

std::optional<int> ErrorNumber(const std::string& name) {
    const std::map<std::string, int> numbers = {
        {"ENOSPC", ENOSPC}, {"EIO", EIO},      {"EACCES", EACCES}, {"EMFILE", EMFILE},
        {"EDQUOT", EDQUOT}, {"EROFS", EROFS},  {"EPERM", EPERM},   {"ENFILE", ENFILE},
        {"ENOMEM", ENOMEM}, {"EXDEV", EXDEV},  {"ENOENT", ENOENT}, {"EEXIST", EEXIST},
        {"EINTR", EINTR},   {"EAGAIN", EAGAIN}};
    const auto found = numbers.find(name);
    return found != numbers.end() ? std::optional<int>(found->second) : std::nullopt;
}

std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, ',');)
        parts.push_back(part);
    return parts;
}

// Takes one option and its value; false when either is wrong.
bool TakeOption(Options& options, const std::string& name, const char* value, int& index) {
    if (name == "--only-writing") return options.only_writing = true;
    if (name == "--after") return options.after = true;
    if (name == "--from-then-on") return options.from_then_on = true;
    if (value == nullptr) return false;
    ++index;
    if (name == "--path")
        options.path = value;
    else if (name == "--arm-at")
        options.arm_at = value;
    else if (name == "--exec")
        options.script = value;
    else if (name == "--list")
        options.list_file = value;
    else if (name == "--calls")
        options.calls = Split(value);
    else if (name == "--errno")
        options.error_number = ErrorNumber(value).value_or(-1);
    else
        return false;
    return options.error_number >= 0;
}

std::optional<Options> ParseCommandLine(int argc, char** argv) {
    const std::map<std::string, Action> actions = {{"count", Action::kCount},
                                                   {"kill", Action::kKill},
                                                   {"fail", Action::kFail},
                                                   {"pause", Action::kPause}};
    const auto action = actions.find(argc > 1 ? argv[1] : "");
    if (action == actions.end()) return std::nullopt;
    Options options;
    options.action = action->second;
    int index = 2;
    if (options.action != Action::kCount) {
        options.target = index < argc ? std::strtol(argv[index++], nullptr, 10) : 0;
        if (options.target <= 0) return std::nullopt;
    }
    for (; index < argc && std::strcmp(argv[index], "--") != 0; ++index) {
        const char* value = index + 1 < argc ? argv[index + 1] : nullptr;
        if (!TakeOption(options, argv[index], value, index)) return std::nullopt;
    }
    for (++index; index < argc; ++index)
        options.command.push_back(argv[index]);
    if (options.command.empty()) return std::nullopt;
    options.command.push_back(nullptr);
    if (options.action == Action::kFail && options.error_number == 0) return std::nullopt;
    if (options.action == Action::kPause && options.script.empty()) return std::nullopt;
    return options;
}

}  // namespace

int Main(int argc, char** argv) {
    const std::optional<Options> options = ParseCommandLine(argc, argv);
    if (!options) {
        Say("usage: count | kill N | fail N --errno NAME | pause N --exec SCRIPT [options] -- "
            "COMMAND...");
        return kExitUsage;
    }
    return Runner(*options).Run();
}

}  // namespace trevix::crash

int main(int argc, char** argv) {
    return trevix::crash::Main(argc, argv);
}
