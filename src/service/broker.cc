#include "service/broker.h"

#include <utility>

#include "service/names.h"
#include "shell/log_writer.h"

namespace trevix::service {
namespace {

using dbus::kObjectPath;
using dbus::kString;

// How long a broker that nobody asked for a session waits for somebody who does.
constexpr int kIdleMs = 2000;

// Each is a process; a client that never releases any must not bring the machine down.
constexpr std::size_t kMostSessions = 500;

}  // namespace

Broker::Broker(dbus::Connection& connection, posix::PollLoop& loop, Plan plan)
    : connection_(connection), loop_(loop), plan_(std::move(plan)) {}

Broker::~Broker() {
    loop_.DisarmTimer(idle_timer_);
    for (const Child& child : children_) {
        loop_.Unwatch(child.process->report_descriptor());
        loop_.Unwatch(child.process->end_descriptor());
    }
}

Status Broker::Start() {
    auto exported = connection_.Export(kFactoryPath, FactoryInterface());
    if (!exported.ok()) return exported.error();
    factory_ = std::move(exported).value();
    connection_.WhenLost([this] { Stop(); });
    if (plan_.leaves_when_idle) {
        idle_timer_ = loop_.ArmTimer(kIdleMs, [this] { Leave(); });
    }
    // Last, so that nobody meets a broker that is not ready.
    return connection_.RequestName(kBusName);
}

dbus::Interface Broker::FactoryInterface() {
    const std::vector<dbus::Argument> session = {{kString, "bus_name"}, {kObjectPath, "path"}};
    return {kFactoryInterface,
            {{"CreateSession",
              {},
              session,
              [this](dbus::IncomingCall call) {
                  const std::string owner = call.sender();
                  StartSession(std::move(call), owner, false);
              }},
             {"CreateSessionFor",
              {{kString, "holder"}},
              session,
              [this](dbus::IncomingCall call) { CreateSessionFor(std::move(call)); }}},
            {{"Version", kString, [] { return dbus::Value(std::string(kVersionText)); }, {}, true}},
            {}};
}

void Broker::CreateSessionFor(dbus::IncomingCall call) {
    const std::string holder = std::get<std::string>(call.arguments().front());
    const auto holder_user =
        holder.starts_with(':') ? connection_.UserOf(holder) : Error{ErrorKind::kMalformed, 0, ""};
    if (!holder_user.ok()) {
        call.Fail(dbus::kInvalidArguments, "the holder is not the unique name of a connection");
        return;
    }
    const auto caller_user = connection_.UserOf(call.sender());
    if (!caller_user.ok() || caller_user.value() != holder_user.value()) {
        call.Fail(dbus::kAccessDenied, "the holder is another user's");
        return;
    }
    StartSession(std::move(call), holder, true);
}

void Broker::StartSession(dbus::IncomingCall call, const std::string& owner, bool is_shared) {
    if (is_stopping_) {
        call.Fail(dbus::kFailed, "the service is being stopped");
        return;
    }
    if (children_.size() >= kMostSessions) {
        call.Fail(dbus::kLimitsExceeded, "too many sessions");
        return;
    }
    std::vector<std::string> arguments = plan_.arguments;
    arguments.insert(arguments.end(), {is_shared ? "--holder" : "--owner", owner});
    auto process = posix::ChildProcess::Start(plan_.program, arguments);
    if (!process.ok()) {
        call.Fail(dbus::kForkFailed, process.error().description);
        return;
    }
    const auto child = children_.emplace(children_.end());
    child->process = std::move(process).value();
    child->caller.emplace(std::move(call));
    loop_.WatchDescriptor(child->process->report_descriptor(), [this, child] { OnReport(child); });
    loop_.WatchDescriptor(child->process->end_descriptor(), [this, child] { OnEnd(child); });
}

// The report is one line: the session's bus name.
void Broker::OnReport(Children::iterator child) {
    const bool more = child->process->ReadReport(child->report);
    const std::size_t end = child->report.find('\n');
    if (end != std::string::npos && child->caller) {
        child->caller->Reply({child->report.substr(0, end), dbus::ObjectPath{kSessionPath}});
        child->caller.reset();
    }
    if (!more || end != std::string::npos) loop_.Unwatch(child->process->report_descriptor());
}

void Broker::OnEnd(Children::iterator child) {
    // What it reported last may still be unread.
    OnReport(child);
    if (child->caller) {
        child->caller->Fail(dbus::kChildExited, "the session's process ended at its start");
    }
    loop_.Unwatch(child->process->report_descriptor());
    loop_.Unwatch(child->process->end_descriptor());
    child->process->Reap();
    children_.erase(child);
    if (!children_.empty()) return;
    if (is_stopping_) {
        loop_.Quit();
    } else if (plan_.leaves_when_idle) {
        loop_.Defer([this] { Leave(); });
    }
}

void Broker::Leave() {
    if (!children_.empty() || is_stopping_) return;
    // Without a bus there is nobody left to serve, and a name that another has is not ours to keep.
    Drop(connection_.ReleaseName(kBusName));
    while (connection_.ServeOne()) {
    }
    if (children_.empty()) {
        loop_.Quit();
        return;
    }
    // Somebody got in. When a new broker has the name by now, this one serves on without it.
    Drop(connection_.RequestName(kBusName));
}

void Broker::Stop() {
    if (is_stopping_) return;
    is_stopping_ = true;
    // As above.
    Drop(connection_.ReleaseName(kBusName));
    for (const Child& child : children_)
        child.process->Terminate();
    if (children_.empty()) loop_.Quit();
}

}  // namespace trevix::service
