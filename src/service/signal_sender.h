// SignalSender: signals of one object to one client.
#pragma once

#include <string>
#include <utility>

#include "platform/dbus/connection.h"

namespace trevix::service {

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

}  // namespace trevix::service
