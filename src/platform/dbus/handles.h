// What the bus library hands out, owned.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>

namespace trevix::dbus {

struct MessageDeleter {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using MessagePtr = std::unique_ptr<sd_bus_message, MessageDeleter>;

struct SlotDeleter {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using SlotPtr = std::unique_ptr<sd_bus_slot, SlotDeleter>;

// An error of the library with its texts.
class BusError {
 public:
    BusError() = default;
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    ~BusError() { sd_bus_error_free(&error_); }

    sd_bus_error* get() { return &error_; }
    const char* name() const { return error_.name == nullptr ? "" : error_.name; }
    const char* text() const { return error_.message == nullptr ? "" : error_.message; }

 private:
    sd_bus_error error_{};
};

}  // namespace trevix::dbus
