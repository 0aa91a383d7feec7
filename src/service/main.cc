// trevixci: the automation service. As the bus starts it, it is the broker; the broker starts it
// once more for each session.
#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <string>

#include "assembly/adapters.h"
#include "service/broker.h"
#include "service/names.h"
#include "service/options.h"
#include "service/session_server.h"
#include "service/termination.h"
#include "shell/bas_ci.h"
#include "shell/event_echo.h"

namespace trevix::service {
namespace {

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

int Complain(const std::string& why) {
    std::cerr << "trevixci: " << why << '\n';
    return kExitFailed;
}

int ServeAsBroker(const Options& options) {
    posix::PollLoop loop;
    Termination termination;
    auto connection = dbus::Connection::Open(options.bus);
    if (!connection.ok()) return Complain(connection.error().description);

    Broker::Plan plan;
    plan.program = "/proc/self/exe";
    if (!options.bus_text.empty()) plan.arguments = {"--bus", options.bus_text};
    plan.leaves_when_idle = options.leaves_when_idle;
    Broker broker(*connection.value(), loop, plan);
    const Status started = broker.Start();
    if (!started.ok()) return Complain(started.error().description);
    termination.Watch(loop, [&broker] { broker.Stop(); });
    loop.Attach(*connection.value());
    loop.Run();
    loop.Detach(*connection.value());
    return 0;
}

// Tells the broker the name, and that it may pass it on.
bool Report(const std::string& unique_name) {
    const std::string line = unique_name + "\n";
    constexpr int kBroker = posix::ChildProcess::kReportDescriptor;
    const bool written =
        ::write(kBroker, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    ::close(kBroker);
    return written;
}

// A session is called by its unique name, but the policy of the system bus knows programs by the
// names that they own.
std::string OwnName() {
    return std::string(kBusName) + ".Session" + std::to_string(::getpid());
}

// The work directory is the first thing that a session needs, and nobody else's may be used.
bool HasWorkDirectory(BasCI& state) {
    if (!state.ports.files.TemporaryPath().empty()) return true;
    state.log.Write("basCI", "Main", " no private directory for temporary files", 1);
    return false;
}

int ServeSession(const Options& options) {
    EventLog* log = nullptr;
    assembly::AdapterPlan plan;
    plan.stores.tell = [&log](const std::string& sentence) {
        constexpr int kWarning = 2;
        // A log that cannot be written is nobody's failure.
        Drop(log->Report({sentence}, "TXServer", "", kWarning));
    };
    plan.data_from_program = TREVIX_DATA_FROM_LIBEXEC;
    assembly::Adapters adapters(plan);
    Termination termination;
    // Whom the session is for is known only later.
    EventEcho::Show tell;
    EventEcho event_log(&adapters.event_log(),
                        [&tell](int type, const std::string& procedure, const std::string& text) {
                            if (tell) tell(type, procedure, text);
                        });
    log = &event_log;
    BasCI state(adapters.PortsWith(event_log, adapters.registry()));
    if (!HasWorkDirectory(state)) return Complain("no private directory for temporary files");
    if (!state.Main()) return Complain("the messaging session cannot be created");

    auto connection = dbus::Connection::Open(options.bus);
    if (!connection.ok()) return Complain(connection.error().description);
    SessionServer server(state, *connection.value(), adapters.loop(),
                         {options.owner, options.is_shared});
    const Status started = server.Start();
    tell = [&server](int type, const std::string& procedure, const std::string& text) {
        server.ShowProblem(type, procedure, text);
    };
    // A client that did not wait for its session needs none.
    if (!started.ok() && started.error().kind == ErrorKind::kGone) return 0;
    if (!started.ok()) return Complain(started.error().description);
    const Status named = connection.value()->RequestName(OwnName());
    if (!named.ok()) return Complain(named.error().description);
    if (!Report(connection.value()->unique_name())) return 0;

    termination.Watch(adapters.loop(), [&server] { server.Leave(); });
    adapters.loop().Attach(*connection.value());
    adapters.loop().Run();
    adapters.loop().Detach(*connection.value());
    return 0;
}

int Serve(int argc, char** argv) {
    // A bus or a broker that is gone is noticed where it is written to.
    ::signal(SIGPIPE, SIG_IGN);
    std::string complaint;
    const auto options = ParseOptions(argc, argv, complaint);
    if (!options) {
        Complain(complaint);
        return kExitUsage;
    }
    if (options->shows_help) {
        std::cout << kHelp;
        return 0;
    }
    if (options->shows_version) {
        std::cout << "trevixci " << kVersionText << '\n';
        return 0;
    }
    return options->owner.empty() ? ServeAsBroker(*options) : ServeSession(*options);
}

}  // namespace
}  // namespace trevix::service

int main(int argc, char** argv) {
    try {
        return trevix::service::Serve(argc, argv);
    } catch (const std::exception& failure) {
        return trevix::service::Complain(failure.what());
    }
}
