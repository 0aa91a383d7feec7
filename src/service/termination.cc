#include "service/termination.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace trevix::service {

Termination::Termination() {
    sigset_t signals;
    ::sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        ::sigaddset(&signals, signal);
    descriptor_ = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    // Without the descriptor the signals keep their plain meaning.
    if (descriptor_ >= 0) ::sigprocmask(SIG_BLOCK, &signals, nullptr);
}

Termination::~Termination() {
    if (loop_ != nullptr) loop_->Unwatch(descriptor_);
    if (descriptor_ >= 0) ::close(descriptor_);
}

void Termination::Watch(posix::PollLoop& loop, std::function<void()> end) {
    if (descriptor_ < 0) return;
    loop_ = &loop;
    loop.WatchDescriptor(descriptor_, [descriptor = descriptor_, end = std::move(end)] {
        signalfd_siginfo signal{};
        while (::read(descriptor, &signal, sizeof signal) > 0) {
        }
        end();
    });
}

}  // namespace trevix::service
