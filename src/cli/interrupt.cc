#include "cli/interrupt.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "cli/exit_codes.h"

namespace trevix::cli {
namespace {

// A signal handler is given nothing but the signal's number, so what it works on must be static.
std::atomic<int> g_write_end{-1};
std::atomic<int> g_signals{0};

std::atomic<const char*> g_last_words{""};

extern "C" void OnSignal(int /*signal*/) {
    if (g_signals.fetch_add(1) > 0) {
        const char* words = g_last_words.load();
        if (words == nullptr) return;
        static_cast<void>(::write(STDERR_FILENO, words, std::strlen(words)));
        ::_exit(kExitCancelled);
    }
    // The interrupted code may be about to look at errno.
    const int interrupted_error = errno;
    const char byte = 1;
    static_cast<void>(::write(g_write_end.load(), &byte, 1));
    errno = interrupted_error;
}

void Handle(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

Interrupt::Interrupt(posix::PollLoop& loop, const char* last_words, std::function<void()> cancel)
    : loop_(loop) {
    int ends[2] = {-1, -1};
    // Without a pipe Ctrl-C keeps its plain meaning, which loses nothing but the clean end.
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
    read_end_ = ends[0];
    write_end_ = ends[1];
    g_write_end = write_end_;
    g_signals = 0;
    g_last_words = last_words;
    loop_.WatchDescriptor(read_end_, [read_end = read_end_, cancel = std::move(cancel)] {
        char bytes[16];
        if (::read(read_end, bytes, sizeof bytes) > 0) cancel();
    });
    Handle(&OnSignal);
}

Interrupt::~Interrupt() {
    if (read_end_ < 0) return;
    Handle(SIG_DFL);
    loop_.Unwatch(read_end_);
    g_write_end = -1;
    ::close(read_end_);
    ::close(write_end_);
}

}  // namespace trevix::cli
