// CManage and CIndex on the bus: their interfaces, and their events as signals to the owner.
#pragma once

#include <string>
#include <utility>

#include "index/cindex.h"
#include "manage/cmanage.h"
#include "platform/dbus/connection.h"

namespace trevix::service {

// The interfaces borrow the run, which outlives them.
dbus::Interface ManageInterface(CManage& run);
dbus::Interface IndexInterface(CIndex& run);

// Sends signals of one object to one client.
class SignalSender {
 public:
    SignalSender(dbus::Connection& connection, std::string client, dbus::Address object)
        : connection_(connection), client_(std::move(client)), object_(std::move(object)) {}

    // An event that cannot be sent must not end the run that raises it.
    void Send(const char* signal, const dbus::Values& arguments) noexcept;

 private:
    dbus::Connection& connection_;
    std::string client_;
    dbus::Address object_;
};

// The four events of either class.
template <typename Events>
class EventSignals final : public Events {
 public:
    explicit EventSignals(SignalSender sender) : sender_(std::move(sender)) {}

    void FolderChange(const std::string& folder_name, std::int32_t count) override {
        sender_.Send("FolderChange", {folder_name, count});
    }
    void Progress(const std::string& text, std::int32_t count) override {
        sender_.Send("Progress", {text, count});
    }
    void Complete(std::int32_t elapsed_ms) override { sender_.Send("Complete", {elapsed_ms}); }
    void Abort(const std::string& message) override { sender_.Send("Abort", {message}); }

 private:
    SignalSender sender_;
};

}  // namespace trevix::service
