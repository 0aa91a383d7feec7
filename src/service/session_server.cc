#include "service/session_server.h"

#include <exception>
#include <utility>
#include <vector>

#include "service/names.h"

namespace trevix::service {
namespace {

using dbus::kInt32;
using dbus::kObjectPath;
using dbus::kString;
using dbus::ObjectPath;
using dbus::Value;

constexpr const char* kNoObject = "/";

}  // namespace

SessionServer::SessionServer(BasCI& state, dbus::Connection& connection, posix::PollLoop& loop,
                             Owner owner)
    : state_(state),
      connection_(connection),
      loop_(loop),
      owner_(std::move(owner)),
      session_(std::make_unique<Session>(state)) {}

SessionServer::~SessionServer() = default;

Status SessionServer::Start() {
    TREVIX_RETURN_IF_ERROR(connection_.Admit(
        [this](const dbus::Connection::Caller& caller) { return Judge(caller); }));
    auto exported = connection_.Export(kSessionPath, SessionInterface());
    if (!exported.ok()) return exported.error();
    session_object_ = std::move(exported).value();
    auto details =
        connection_.Export(kSessionPath, DetailsInterface([this] { return session_.get(); }));
    if (!details.ok()) return details.error();
    details_object_ = std::move(details).value();
    connection_.WhenLost([this] { Leave(); });

    // First the watch, then the question: an owner that leaves in between is noticed by either.
    TREVIX_RETURN_IF_ERROR(connection_.WatchName(owner_.name, [this] { Leave(); }));
    const auto has_owner = connection_.HasOwner(owner_.name);
    if (!has_owner.ok()) return has_owner.error();
    if (!has_owner.value()) return Error{ErrorKind::kGone, 0, owner_.name + " left the bus"};
    if (owner_.is_shared) {
        const auto user = connection_.UserOf(owner_.name);
        if (!user.ok()) return user.error();
        owner_user_ = user.value();
    }
    return {};
}

// Anybody may ask whether the process lives and what it looks like; the bus's tools do.
dbus::Connection::Refusal SessionServer::Judge(const dbus::Connection::Caller& caller) {
    if (is_leaving_) return {dbus::kUnknownObject, "the session has been released"};
    if (caller.sender == owner_.name) return {};
    if (caller.interface == "org.freedesktop.DBus.Peer") return {};
    if (caller.interface == "org.freedesktop.DBus.Introspectable") return {};
    if (owner_user_ && IsOwnersUser(caller.sender)) return {};
    return {dbus::kAccessDenied, "the session is another client's"};
}

bool SessionServer::IsOwnersUser(const std::string& sender) {
    const auto judged = judged_senders_.find(sender);
    if (judged != judged_senders_.end()) return judged->second;
    // One-shot callers come with a new name each.
    constexpr std::size_t kMostKept = 1000;
    if (judged_senders_.size() >= kMostKept) judged_senders_.clear();
    const auto user = connection_.UserOf(sender);
    return judged_senders_[sender] = user.ok() && user.value() == *owner_user_;
}

dbus::Interface SessionServer::SessionInterface() {
    const auto text = [this](const char* name, const std::string& (Session::*get)() const,
                             void (Session::*set)(const std::string&)) {
        dbus::Property property{
            name, kString, [this, get] { return Value(((*session_).*get)()); }, {}};
        if (set != nullptr) {
            property.set = [this, set](const Value& value) {
                ((*session_).*set)(std::get<std::string>(value));
            };
        }
        return property;
    };
    const auto object = [](const char* name, const std::string& path) {
        return dbus::Property{
            name,
            kObjectPath,
            [&path] { return Value(ObjectPath{path.empty() ? kNoObject : path}); },
            {}};
    };
    return {kSessionInterface,
            {WhenAtRest("Logon", {{kString, "profile"}}, &SessionServer::Logon),
             WhenAtRest("EndSession", {}, &SessionServer::EndSession),
             WhenAtRest("Release", {}, &SessionServer::End)},
            {text("Server", &Session::Server, &Session::Server),
             text("Alias", &Session::Alias, &Session::Alias),
             text("Profile", &Session::Profile, &Session::Profile),
             text("LastError", &Session::LastError, nullptr),
             object("Index", runs_.index_path),
             object("Manage", runs_.manage_path),
             {"State", kInt32, [this] { return Value(session_->State()); }, {}}},
            {}};
}

// A method that is done, and answered, when no run is on the stack. Whatever happens in it, the
// caller is answered: outcomes are read from State and LastError.
dbus::Method SessionServer::WhenAtRest(const char* name, std::vector<dbus::Argument> in,
                                       void (SessionServer::*work)(const dbus::Values&)) {
    return {name, std::move(in), {}, [this, work](dbus::IncomingCall call) {
                const auto kept = std::make_shared<dbus::IncomingCall>(std::move(call));
                AtRest([this, work, kept] {
                    try {
                        (this->*work)(kept->arguments());
                    } catch (const std::exception&) {
                        // Nothing in there throws but for want of memory.
                    }
                    kept->Reply();
                });
            }};
}

void SessionServer::AtRest(std::function<void()> work) {
    connection_.Hold(true);
    if (state_.is_running) CancelRun();
    loop_.Defer([this, work = std::move(work)] {
        work();
        connection_.Hold(false);
    });
}

void SessionServer::CancelRun() {
    if (CManage* run = session_->Manage()) run->Cancel(true);
    if (CIndex* run = session_->Index()) run->Cancel(true);
}

void SessionServer::Logon(const dbus::Values& arguments) {
    session_->Logon(std::get<std::string>(arguments.front()));
    if (session_->LogonCount() == exported_logon_) return;
    exported_logon_ = session_->LogonCount();
    // Without objects the client reads "/", as before a log-on.
    Drop(ExportRuns());
}

Status SessionServer::ExportRuns() {
    runs_ = {};
    const std::string number = std::to_string(exported_logon_);
    const std::string manage_path = kManagePath + number;
    auto manage = connection_.Export(manage_path, ManageInterface(*session_->Manage()));
    if (!manage.ok()) return manage.error();
    const std::string index_path = kIndexPath + number;
    auto index = connection_.Export(index_path, IndexInterface(*session_->Index()));
    if (!index.ok()) return index.error();

    runs_.manage = std::move(manage).value();
    const auto manage_figures = [this, &run = *session_->Manage()] {
        return FiguresOf(run.Summary(), runs_.folders_told);
    };
    runs_.manage_events = std::make_unique<EventSignals<CManageEvents>>(
        SenderOf(manage_path, kManageInterface),
        RunFigures(SenderOf(kSessionPath, kDetailsInterface), "ManageFigures", manage_figures,
                   state_.ports.clock));
    session_->Manage()->Events(runs_.manage_events.get());
    runs_.manage_path = manage_path;
    runs_.index = std::move(index).value();
    const auto index_figures = [&run = *session_->Index()] { return FiguresOf(run.Summary()); };
    runs_.index_events = std::make_unique<EventSignals<CIndexEvents>>(
        SenderOf(index_path, kIndexInterface),
        RunFigures(SenderOf(kSessionPath, kDetailsInterface), "IndexFigures", index_figures,
                   state_.ports.clock));
    session_->Index()->Events(runs_.index_events.get());
    runs_.index_path = index_path;
    return {};
}

SignalSender SessionServer::SenderOf(const std::string& path, const char* interface) {
    return {connection_, owner_.name, {{}, path, interface}};
}

void SessionServer::ShowProblem(int type, const std::string& procedure, const std::string& text) {
    SenderOf(kSessionPath, kDetailsInterface)
        .Send("Problem", {std::int32_t{type}, procedure, text});
}

void SessionServer::EndSession(const dbus::Values& /*arguments*/) {
    session_->EndSession();
}

void SessionServer::Leave() {
    if (is_leaving_) return;
    is_leaving_ = true;
    AtRest([this] { End({}); });
}

void SessionServer::End(const dbus::Values& /*arguments*/) {
    is_leaving_ = true;
    // The objects refer to the runs, and these to what the session closes.
    session_object_.reset();
    details_object_.reset();
    runs_.manage.reset();
    runs_.index.reset();
    session_.reset();
    loop_.Quit();
}

}  // namespace trevix::service
