#include "shell/frm_icon.h"

namespace trevix {

FrmIcon::~FrmIcon() {
    Disarm(tmrIndex_);
    Disarm(tmrManage_);
}

// The handlers work on a reference to the state alone: the run that they start unloads this form.
// They hold the run while it works, for a pump in it may serve the end of the session.
void FrmIcon::EnableIndexTimer(int interval_ms) {
    Disarm(tmrIndex_);
    tmrIndex_ = state_.ports.loop.ArmTimer(interval_ms, [this] {
        BasCI& state = state_;
        Disarm(tmrIndex_);
        const std::shared_ptr<IndexRun> run = state.gIndex;
        if (run != nullptr) run->StartIndex();
    });
}

void FrmIcon::EnableManageTimer(int interval_ms) {
    Disarm(tmrManage_);
    tmrManage_ = state_.ports.loop.ArmTimer(interval_ms, [this] {
        BasCI& state = state_;
        Disarm(tmrManage_);
        const std::shared_ptr<ManageRun> run = state.gManage;
        if (run != nullptr) run->StartManage();
    });
}

void FrmIcon::Disarm(std::optional<MessageLoop::TimerId>& timer) {
    if (timer) state_.ports.loop.DisarmTimer(*timer);
    timer.reset();
}

}  // namespace trevix
