// CManage and CIndex on the bus: their interfaces, and their events as signals to the owner.
#pragma once

#include <string>
#include <utility>

#include "index/cindex.h"
#include "manage/cmanage.h"
#include "service/details.h"
#include "service/signal_sender.h"

namespace trevix::service {

// The interfaces borrow the run, which outlives them.
dbus::Interface ManageInterface(CManage& run);
dbus::Interface IndexInterface(CIndex& run);

// The four events of either class, each with the figures of its time in front.
template <typename Events>
class EventSignals final : public Events {
 public:
    EventSignals(SignalSender sender, RunFigures figures)
        : sender_(std::move(sender)), figures_(std::move(figures)) {}

    void FolderChange(const std::string& folder_name, std::int32_t count) override {
        figures_.Send();
        sender_.Send("FolderChange", {folder_name, count});
    }
    void Progress(const std::string& text, std::int32_t count) override {
        // One that counts nothing says that something else begins.
        if (count == 0) {
            figures_.Send();
        } else {
            figures_.SendNowAndThen();
        }
        sender_.Send("Progress", {text, count});
    }
    void Complete(std::int32_t elapsed_ms) override {
        figures_.Send();
        sender_.Send("Complete", {elapsed_ms});
    }
    void Abort(const std::string& message) override {
        figures_.Send();
        sender_.Send("Abort", {message});
    }

 private:
    SignalSender sender_;
    RunFigures figures_;
};

}  // namespace trevix::service
