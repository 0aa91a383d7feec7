#include "shell/frm_icon.h"

namespace trevix {

FrmIcon::~FrmIcon() {
    Disarm(tmrIndex_);
    Disarm(tmrManage_);
}

// The handlers work on a reference to the state alone: the run that they start unloads this form.
void FrmIcon::EnableIndexTimer(int interval_ms) {
    Disarm(tmrIndex_);
    tmrIndex_ = state_.ports.loop.ArmTimer(interval_ms, [this] {
        BasCI& state = state_;
        Disarm(tmrIndex_);
        if (state.gIndex != nullptr) state.gIndex->StartIndex();
    });
}

void FrmIcon::EnableManageTimer(int interval_ms) {
    Disarm(tmrManage_);
    tmrManage_ = state_.ports.loop.ArmTimer(interval_ms, [this] {
        BasCI& state = state_;
        Disarm(tmrManage_);
        if (state.gManage != nullptr) state.gManage->StartManage();
    });
}

void FrmIcon::Disarm(std::optional<MessageLoop::TimerId>& timer) {
    if (timer) state_.ports.loop.DisarmTimer(*timer);
    timer.reset();
}

}  // namespace trevix
