// What programs that talk to a person want to know beyond the classes' own events: how much a run
// has done, what went wrong with which message, why a log-on was refused.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "index/cindex.h"
#include "manage/cmanage.h"
#include "platform/clock.h"
#include "platform/dbus/interface.h"
#include "service/signal_sender.h"
#include "shell/session.h"

namespace trevix::service {

// On the session's object, beside Session. Borrows the session, asked for when it is needed.
dbus::Interface DetailsInterface(std::function<const Session*()> session);

// Sends what a run has done so far as one signal: in front of an event, but in front of those that
// only count messages not more often than anybody could look.
class RunFigures {
 public:
    RunFigures(SignalSender sender, const char* signal, std::function<dbus::Values()> figures,
               Clock& clock)
        : sender_(std::move(sender)),
          signal_(signal),
          figures_(std::move(figures)),
          clock_(clock) {}

    void Send() noexcept;
    void SendNowAndThen() noexcept;

 private:
    SignalSender sender_;
    const char* signal_;
    std::function<dbus::Values()> figures_;
    Clock& clock_;
    std::int32_t last_sent_ = 0;  // ticks
};

// The arguments of the signals ManageFigures and IndexFigures. The folders are those that the run
// has left since the last call, each name followed by a line feed; `told` is how many were told.
dbus::Values FiguresOf(const RunSummary& summary, std::size_t& told);
dbus::Values FiguresOf(const IndexSummary& summary);

}  // namespace trevix::service
