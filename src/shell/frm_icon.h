// frmIcon: the hidden form whose timers start a run from the message loop.
//
// A public call arms a timer and returns; the timer's event disables it and starts the run, so that
// a pump inside the run cannot start it again. Unloading the form (its destruction) disarms both.
#pragma once

#include <optional>

#include "shell/bas_ci.h"

namespace trevix {

class FrmIcon {
 public:
    explicit FrmIcon(BasCI& state) : state_(state) {}
    FrmIcon(const FrmIcon&) = delete;
    FrmIcon& operator=(const FrmIcon&) = delete;
    ~FrmIcon();

    void EnableIndexTimer(int interval_ms);
    void EnableManageTimer(int interval_ms);

 private:
    void Disarm(std::optional<MessageLoop::TimerId>& timer);

    BasCI& state_;
    std::optional<MessageLoop::TimerId> tmrIndex_;
    std::optional<MessageLoop::TimerId> tmrManage_;
};

}  // namespace trevix
