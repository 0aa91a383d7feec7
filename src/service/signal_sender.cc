#include "service/signal_sender.h"

#include <exception>

namespace trevix::service {

void SignalSender::Send(const char* signal, const dbus::Values& arguments) noexcept {
    try {
        connection_.Emit(client_, object_.path, object_.interface, signal, arguments);
    } catch (const std::exception&) {
        // The client learns the rest from the properties.
    }
}

}  // namespace trevix::service
