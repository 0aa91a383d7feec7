// Connection: this process on a message bus, as a server of objects and as a client of others.
//
// One thread: the connection is an EventSource, and all that it calls is called from ServeOne().
// The loop must never enter it twice. Errors are those of the system (SystemError); an error that
// the other side answered with has its name and text as description.
#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/dbus/exported_object.h"
#include "platform/dbus/handles.h"
#include "platform/dbus/interface.h"
#include "platform/event_source.h"
#include "platform/result.h"

namespace trevix::dbus {

// One interface of one object of one connection.
struct Address {
    std::string bus_name;
    std::string path;
    std::string interface;
};

class Connection final : public EventSource {
 public:
    // kStarter is the bus that started this process, else the session bus, else the system bus.
    enum class Bus { kStarter, kSession, kSystem };

    // Connects and waits until the bus has greeted.
    static Result<std::unique_ptr<Connection>> Open(Bus bus);
    static Result<std::unique_ptr<Connection>> OpenAddress(const std::string& address);

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Sends what is waiting, as long as the bus takes it within a second, and leaves the bus.
    ~Connection() override;

    const std::string& unique_name() const { return unique_name_; }

    // Called once when the bus is gone. From then on the connection does nothing.
    void WhenLost(std::function<void()> lost) { when_lost_ = std::move(lost); }

    Wait WaitsFor() override;
    bool ServeOne() override;

    // While it is held, calls and signals stay in the queue, in their order.
    void Hold(bool hold) { is_held_ = hold; }

    // --- Names. These wait for the bus, never for another client.

    // kExists when another connection has the name.
    Status RequestName(const std::string& name);
    Status ReleaseName(const std::string& name);
    Result<bool> HasOwner(const std::string& name);
    Result<std::uint32_t> UserOf(const std::string& name);

    // Calls `gone` when the connection with the unique name `name` leaves the bus. One that is gone
    // already is not reported: ask HasOwner() after this.
    Status WatchName(const std::string& name, std::function<void()> gone);

    // --- Serving.

    Result<std::unique_ptr<ExportedObject>> Export(const std::string& path, Interface interface);

    // What a caller is told instead of being served; null name: it is served.
    struct Refusal {
        const char* error_name = nullptr;
        const char* text = "";
    };
    struct Caller {
        std::string sender;
        std::string interface;  // empty when the caller named none
    };
    // Asked for each call before anything else looks at it.
    Status Admit(std::function<Refusal(const Caller&)> decide);

    // Sends a signal of ours to one client. It never waits long: when the bus takes nothing for a
    // second, signals are queued, and lost when too many are.
    void Emit(const std::string& destination, const std::string& path, const std::string& interface,
              const std::string& signal, const Values& arguments);

    // --- Calling. Without a time-out the bus library's own (25 s) holds.

    Result<Values> Call(const Address& to, const std::string& method, const Values& arguments = {},
                        std::uint64_t timeout_us = 0);
    Result<Value> Get(const Address& of, const std::string& property);
    Status Set(const Address& of, const std::string& property, const Value& value);

    // As Call and Set, but `done` gets the outcome later, from ServeOne(); it may be empty. False
    // when nothing could be sent; `done` is not called then.
    using Done = std::function<void(Result<Values>)>;
    bool CallLater(const Address& to, const std::string& method, const Values& arguments,
                   Done done);
    bool SetLater(const Address& of, const std::string& property, const Value& value, Done done);

    // Calls `on_signal` with the name and the arguments of each signal from there, in their order.
    using OnSignal = std::function<void(const std::string& signal, const Values& arguments)>;
    Status Listen(const Address& from, OnSignal on_signal);

 private:
    // What the library calls back with; it lives as long as its slot.
    struct NameWatch {
        std::function<void()> gone;
        SlotPtr slot;
    };
    struct Listener {
        OnSignal on_signal;
        SlotPtr slot;
    };

    explicit Connection(sd_bus* bus) : bus_(bus) {}
    static Result<std::unique_ptr<Connection>> Greet(sd_bus* bus, int opened);

    static int OnFilter(sd_bus_message* message, void* connection, sd_bus_error* error);
    static int OnNameGone(sd_bus_message* message, void* watch, sd_bus_error* error);
    static int OnListened(sd_bus_message* message, void* listener, sd_bus_error* error);
    static int OnDone(sd_bus_message* message, void* done, sd_bus_error* error);

    void Lose();
    std::uint64_t Queued() const;
    bool WaitUntilWritable(int timeout_ms) const;
    bool HasRoom();
    Result<MessagePtr> NewCall(const Address& to, const std::string& method);
    Result<MessagePtr> Ask(sd_bus_message* call, std::uint64_t timeout_us);
    Result<MessagePtr> AskBus(const char* method, const std::string& name);
    bool SendLater(sd_bus_message* call, Done done);

    sd_bus* bus_;  // null when it is lost
    std::string unique_name_;
    std::function<void()> when_lost_;
    std::function<Refusal(const Caller&)> admit_;
    SlotPtr filter_;
    std::vector<std::unique_ptr<NameWatch>> watches_;
    std::vector<std::unique_ptr<Listener>> listeners_;
    bool is_held_ = false;
    bool is_serving_ = false;
    bool is_stalled_ = false;
};

}  // namespace trevix::dbus
