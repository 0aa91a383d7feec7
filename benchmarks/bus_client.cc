// What a client of the service waits for, measured by a client. benchmarks/bus_peers runs it on a
// private bus; each result is one line "NAME VALUE".
//
//   bus_client pump | emit COUNT | get STORE COUNT | cycles STORE COUNT | activation STORE COUNT
//              | run STORE | gets-in-run STORE | cancel STORE
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/dbus/connection.h"
#include "platform/posix/poll_loop.h"
#include "service/names.h"

namespace trevix {
namespace {

using dbus::Address;
using dbus::Connection;
using std::chrono::duration;
using std::chrono::steady_clock;

template <typename T>
T Must(Result<T> outcome) {
    if (outcome.ok()) return std::move(outcome).value();
    std::fprintf(stderr, "bus_client: %s\n", outcome.error().description.c_str());
    std::exit(1);
}
void Must(const Status& outcome) {
    if (outcome.ok()) return;
    std::fprintf(stderr, "bus_client: %s\n", outcome.error().description.c_str());
    std::exit(1);
}

double MicrosecondsSince(steady_clock::time_point begin) {
    return duration<double, std::micro>(steady_clock::now() - begin).count();
}

void Print(const std::string& name, double value) {
    std::printf("%s %.2f\n", name.c_str(), value);
}

void PrintSpread(const std::string& name, std::vector<double> values) {
    if (values.empty()) return;
    std::sort(values.begin(), values.end());
    Print(name + "_median", values[values.size() / 2]);
    Print(name + "_p99", values[values.size() * 99 / 100]);
    Print(name + "_max", values.back());
}

std::unique_ptr<Connection> Connect() {
    return Must(Connection::Open(Connection::Bus::kSession));
}

// A session of this client, logged on when a store is given.
struct Client {
    explicit Client(const std::string& store = {}) : connection(Connect()) {
        const auto made = Must(
            connection->Call({service::kBusName, service::kFactoryPath, service::kFactoryInterface},
                             "CreateSession"));
        session = {std::get<std::string>(made[0]), std::get<dbus::ObjectPath>(made[1]).path,
                   service::kSessionInterface};
        if (!store.empty()) Logon(store);
    }
    void Logon(const std::string& store) {
        Must(connection->Call(session, "Logon", {"maildir:" + store}));
        const auto path = Must(connection->Get(session, "Manage"));
        manage = {session.bus_name, std::get<dbus::ObjectPath>(path).path,
                  service::kManageInterface};
    }
    std::int32_t State() { return std::get<std::int32_t>(Must(connection->Get(session, "State"))); }
    void Release() { Must(connection->Call(session, "Release")); }

    std::unique_ptr<Connection> connection;
    Address session;
    Address manage;
};

// Starts a run and serves `loop` until its end; `on_event` sees each event before that.
void Follow(Client& client, posix::PollLoop& loop, bool compresses,
            const std::function<void(const std::string&)>& on_event) {
    Must(client.connection->Listen(client.manage,
                                   [&](const std::string& signal, const dbus::Values&) {
                                       on_event(signal);
                                       if (signal == "Complete" || signal == "Abort") loop.Quit();
                                   }));
    loop.Attach(*client.connection);
    Must(client.connection->Set(client.manage, "Compress", compresses));
    Must(client.connection->Call(client.manage, "Manage", {false}));
    loop.Run();
    loop.Detach(*client.connection);
}

void MeasurePump() {
    const auto connection = Connect();
    posix::PollLoop loop;
    for (const bool is_attached : {false, true}) {
        if (is_attached) loop.Attach(*connection);
        for (const int timers : {0, 2}) {
            if (timers > 0) {
                loop.ArmTimer(3600000, [] {});
                loop.ArmTimer(3600000, [] {});
            }
            std::vector<double> rounds;
            for (int round = 0; round < 50; ++round) {
                constexpr int kPumps = 2000;
                const auto begin = steady_clock::now();
                for (int i = 0; i < kPumps; ++i)
                    loop.Pump();
                rounds.push_back(MicrosecondsSince(begin) / kPumps);
            }
            const std::string name = std::string(is_attached ? "pump_bus" : "pump_alone") +
                                     (timers > 0 ? "_timers_us" : "_us");
            PrintSpread(name, rounds);
        }
    }
    loop.Detach(*connection);
}

// Signals to one client, in another process, as fast as they go.
void MeasureEmit(int count) {
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0) std::exit(1);
    const auto sender = Connect();
    const pid_t receiver = ::fork();
    if (receiver == 0) {
        const auto connection = Connect();
        posix::PollLoop loop;
        std::int32_t expected = 0;
        Must(connection->Listen({sender->unique_name(), "/x", "x.y"},
                                [&](const std::string&, const dbus::Values& values) {
                                    if (std::get<std::int32_t>(values[1]) != expected++) _exit(2);
                                    if (expected == count) loop.Quit();
                                }));
        const std::string name = connection->unique_name() + "\n";
        if (::write(ends[1], name.data(), name.size()) < 0) _exit(1);
        loop.Attach(*connection);
        loop.Run();
        _exit(0);
    }
    std::string name(64, '\0');
    const ssize_t got = ::read(ends[0], name.data(), name.size());
    name.resize(got > 0 ? static_cast<std::size_t>(got) - 1 : 0);

    posix::PollLoop loop;
    loop.Attach(*sender);
    const auto begin = steady_clock::now();
    double slowest_us = 0;
    for (int i = 0; i < count; ++i) {
        const auto step = steady_clock::now();
        sender->Emit(name, "/x", "x.y", "Progress", {std::string("Inbox"), i});
        loop.Pump();
        slowest_us = std::max(slowest_us, MicrosecondsSince(step));
    }
    loop.ArmTimer(1, [&] {
        int status = 0;
        if (::waitpid(receiver, &status, WNOHANG) != receiver) return;
        Print("emit_per_second", count / (MicrosecondsSince(begin) / 1e6));
        Print("emit_slowest_us", slowest_us);
        Print("emit_out_of_order", WEXITSTATUS(status));
        loop.Quit();
    });
    loop.Run();
    loop.Detach(*sender);
}

void MeasureGet(const std::string& store, int count) {
    Client client(store);
    std::vector<double> times;
    const auto begin = steady_clock::now();
    for (int i = 0; i < count; ++i) {
        const auto step = steady_clock::now();
        client.State();
        times.push_back(MicrosecondsSince(step));
    }
    Print("get_idle_per_second", count / (MicrosecondsSince(begin) / 1e6));
    PrintSpread("get_idle_us", times);
    client.Release();
}

// While another session keeps the broker; each in a new process.
void MeasureCycles(const std::string& store, int count) {
    Client keeper;
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        const auto step = steady_clock::now();
        Client client(store);
        times.push_back(MicrosecondsSince(step));
        client.Release();
    }
    PrintSpread("create_and_logon_us", times);
    keeper.Release();
}

// The whole life of the service in each: activation, session, log-on, release, exit.
void MeasureActivation(const std::string& store, int count) {
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        const auto step = steady_clock::now();
        Client client(store);
        if (client.State() != 1) std::exit(1);
        client.Release();
        times.push_back(MicrosecondsSince(step));
    }
    PrintSpread("whole_cycle_us", times);
    Print("whole_cycles", count);
}

void MeasureRun(const std::string& store) {
    const auto begin = steady_clock::now();
    Client client(store);
    posix::PollLoop loop;
    int events = 0;
    std::string last;
    Follow(client, loop, true, [&](const std::string& signal) {
        ++events;
        last = signal;
    });
    client.Release();
    Print("run_ms", MicrosecondsSince(begin) / 1000);
    Print("run_events", events);
    Print("run_complete", last == "Complete" ? 1 : 0);
}

// Asks for State without a pause while a run is under way.
void MeasureGetsInRun(const std::string& store) {
    Client client(store);
    posix::PollLoop loop;
    std::vector<double> times;
    bool is_running = true;
    std::function<void()> ask;
    steady_clock::time_point asked;
    const auto answered = [&](const Result<dbus::Values>&) {
        times.push_back(MicrosecondsSince(asked));
        if (is_running) ask();
    };
    ask = [&] {
        asked = steady_clock::now();
        client.connection->CallLater(
            {client.session.bus_name, client.session.path, "org.freedesktop.DBus.Properties"},
            "Get", {std::string(service::kSessionInterface), std::string("State")}, answered);
    };
    bool is_first = true;
    const auto begin = steady_clock::now();
    int progress = 0;
    Follow(client, loop, true, [&](const std::string& signal) {
        if (std::exchange(is_first, false)) ask();
        if (signal == "Progress") ++progress;
        if (signal == "Complete") is_running = false;
    });
    const double run_us = MicrosecondsSince(begin);
    PrintSpread("get_in_run_us", times);
    Print("message_us", run_us / std::max(progress, 1));
    client.Release();
}

void MeasureCancel(const std::string& store) {
    Client client(store);
    posix::PollLoop loop;
    int progress = 0;
    steady_clock::time_point asked;
    Follow(client, loop, true, [&](const std::string& signal) {
        if (signal == "Progress" && ++progress == 3) {
            asked = steady_clock::now();
            client.connection->SetLater(client.manage, "Cancel", true, {});
        }
    });
    Print("cancel_us", MicrosecondsSince(asked));
    client.Release();
}

int Measure(const std::vector<std::string>& arguments) {
    const auto at = [&](std::size_t i) { return i < arguments.size() ? arguments[i] : ""; };
    const auto number = [&](std::size_t i) { return std::atoi(at(i).c_str()); };
    const std::string what = at(0);
    if (what == "pump") MeasurePump();
    if (what == "emit") MeasureEmit(number(1));
    if (what == "get") MeasureGet(at(1), number(2));
    if (what == "cycles") MeasureCycles(at(1), number(2));
    if (what == "activation") MeasureActivation(at(1), number(2));
    if (what == "run") MeasureRun(at(1));
    if (what == "gets-in-run") MeasureGetsInRun(at(1));
    if (what == "cancel") MeasureCancel(at(1));
    return 0;
}

}  // namespace
}  // namespace trevix

int main(int argc, char** argv) {
    return trevix::Measure({argv + 1, argv + argc});
}
