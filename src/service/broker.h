// Broker: the process that the bus starts. It gives each client a session in a process of its own,
// and leaves when there is none left.
//
// Clients that come at the moment of its leaving lose nothing: it gives up its name first, so that
// the bus starts another broker for every later call, and then serves what had come to it already.
#pragma once

#include <list>
#include <memory>
#include <optional>
#include <string>

#include "platform/dbus/connection.h"
#include "platform/posix/child_process.h"
#include "platform/posix/poll_loop.h"

namespace trevix::service {

class Broker {
 public:
    struct Plan {
        std::string program;                 // of a session's process
        std::vector<std::string> arguments;  // in front of those that name the owner
        bool leaves_when_idle = true;
    };

    Broker(dbus::Connection& connection, posix::PollLoop& loop, Plan plan);
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;
    ~Broker();

    // From here on clients are served. kExists when another broker has the name.
    Status Start();

    // Asks the sessions to end and leaves when they have.
    void Stop();

 private:
    // A session's process, and the caller who waits for it until it has reported.
    struct Child {
        std::unique_ptr<posix::ChildProcess> process;
        std::optional<dbus::IncomingCall> caller;
        std::string report;
    };
    using Children = std::list<Child>;

    dbus::Interface FactoryInterface();
    void CreateSessionFor(dbus::IncomingCall call);
    void StartSession(dbus::IncomingCall call, const std::string& owner, bool is_shared);
    void OnReport(Children::iterator child);
    void OnEnd(Children::iterator child);
    void Leave();

    dbus::Connection& connection_;
    posix::PollLoop& loop_;
    Plan plan_;
    Children children_;
    bool is_stopping_ = false;
    MessageLoop::TimerId idle_timer_ = 0;
    std::unique_ptr<dbus::ExportedObject> factory_;
};

}  // namespace trevix::service
