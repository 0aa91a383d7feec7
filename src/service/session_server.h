// SessionServer: one client's Session on the bus, and its CManage and CIndex from a log-on.
//
// It serves its owner (or, when it is shared, the owner's user) until the session is released or
// the owner leaves the bus. What would pull something away from under a run (log-on, log-off, the
// end) first cancels the run and is done when the run has left the stack; calls that come in
// between are served after it, so that a client sees its calls done in their order.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/dbus/connection.h"
#include "platform/posix/poll_loop.h"
#include "service/run_objects.h"
#include "shell/session.h"

namespace trevix::service {

class SessionServer {
 public:
    struct Owner {
        std::string name;  // unique name
        bool is_shared = false;
    };

    // Borrows all; Main() has succeeded on the state. The connection serves nothing else.
    SessionServer(BasCI& state, dbus::Connection& connection, posix::PollLoop& loop, Owner owner);
    SessionServer(const SessionServer&) = delete;
    SessionServer& operator=(const SessionServer&) = delete;
    ~SessionServer();

    // From here on the session is served. kGone when the owner is no longer there.
    Status Start();

    // Ends the session and then the loop.
    void Leave();

    // Tells the owner of a log entry: type 1 an error, 2 a warning.
    void ShowProblem(int type, const std::string& procedure, const std::string& text);

 private:
    struct Runs {
        std::size_t folders_told = 0;
        std::string manage_path;
        std::string index_path;
        std::unique_ptr<EventSignals<CManageEvents>> manage_events;
        std::unique_ptr<EventSignals<CIndexEvents>> index_events;
        std::unique_ptr<dbus::ExportedObject> manage;
        std::unique_ptr<dbus::ExportedObject> index;
    };
    using SharedCall = std::shared_ptr<dbus::IncomingCall>;

    dbus::Interface SessionInterface();
    dbus::Method WhenAtRest(const char* name, std::vector<dbus::Argument> in,
                            void (SessionServer::*work)(const dbus::Values&));
    void AtRest(std::function<void()> work);
    void CancelRun();
    dbus::Connection::Refusal Judge(const dbus::Connection::Caller& caller);
    bool IsOwnersUser(const std::string& sender);

    void Logon(const dbus::Values& arguments);
    void EndSession(const dbus::Values& arguments);
    void End(const dbus::Values& arguments);
    Status ExportRuns();
    SignalSender SenderOf(const std::string& path, const char* interface);

    BasCI& state_;
    dbus::Connection& connection_;
    posix::PollLoop& loop_;
    Owner owner_;
    std::optional<std::uint32_t> owner_user_;
    std::map<std::string, bool> judged_senders_;  // by unique name; these are never used twice
    bool is_leaving_ = false;
    int exported_logon_ = 0;
    std::unique_ptr<Session> session_;
    std::unique_ptr<dbus::ExportedObject> session_object_;
    std::unique_ptr<dbus::ExportedObject> details_object_;
    Runs runs_;
};

}  // namespace trevix::service
