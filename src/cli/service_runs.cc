#include "cli/service_runs.h"

#include <array>
#include <utility>

#include "cli/text_format.h"
#include "cli/world.h"
#include "platform/dbus/names.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

using dbus::Address;
using dbus::Values;

constexpr const char* kService = "service";

// A store is opened while the caller waits, and may be large.
constexpr std::uint64_t kLogonMicroseconds = 600ULL * 1000 * 1000;

// A run that was silent for so long is asked whether it is still there: what the bus could not keep
// for a client that was stopped is lost.
constexpr int kSilenceMs = 5000;

dbus::Connection::Bus BusOf(ServiceBus bus) {
    return bus == ServiceBus::kSystem ? dbus::Connection::Bus::kSystem
                                      : dbus::Connection::Bus::kSession;
}

void ComplainOfBus(ServiceBus bus, const Error& error, Console& console) {
    const char* name = bus == ServiceBus::kSystem ? "the system bus" : "the session bus";
    console.Complain({kService, std::string(name) + " cannot be reached: " + error.description,
                      "leave out the option: the run then goes on in this program"});
}

void ComplainOfService(ServiceBus bus, const Error& error, Console& console) {
    std::string hint = "\"journalctl\" may say more";
    if (error.description.find("ServiceUnknown") != std::string::npos) {
        hint = "it is not installed for this bus";
    } else if (error.kind == ErrorKind::kDenied && bus == ServiceBus::kSystem) {
        hint = "it is for root and the members of its group, see trevixci(8)";
    }
    console.Complain({kService, "no session was made: " + error.description, hint});
}

std::int64_t Number(const Values& arguments, std::size_t at) {
    return std::get<std::int64_t>(arguments.at(at));
}

std::int32_t Count(const Values& arguments, std::size_t at) {
    return std::get<std::int32_t>(arguments.at(at));
}

const std::string& Text(const Values& arguments, std::size_t at) {
    return std::get<std::string>(arguments.at(at));
}

// The four events of either run. False for a signal that ends none.
template <typename Events>
bool Raise(Events* events, const std::string& signal, const Values& arguments) {
    const bool is_end = signal == "Complete" || signal == "Abort";
    if (events == nullptr) return is_end;
    if (signal == "FolderChange") events->FolderChange(Text(arguments, 0), Count(arguments, 1));
    if (signal == "Progress") events->Progress(Text(arguments, 0), Count(arguments, 1));
    if (signal == "Complete") events->Complete(Count(arguments, 0));
    if (signal == "Abort") events->Abort(Text(arguments, 0));
    return is_end;
}

}  // namespace

Complaint LossComplaint(const std::string& loss) {
    return {kService, loss,
            "nothing is lost; start again, in five minutes at most the store counts as free"};
}

std::unique_ptr<ServiceRuns> ServiceRuns::Open(ServiceBus bus, const StoreName& name,
                                               EventEcho::Show show_problem, Console& console) {
    auto connection = dbus::Connection::Open(BusOf(bus));
    if (!connection.ok()) {
        ComplainOfBus(bus, connection.error(), console);
        return nullptr;
    }
    std::unique_ptr<ServiceRuns> runs(
        new ServiceRuns(std::move(connection).value(), std::move(show_problem)));
    std::string refusal;
    Status opened = runs->CreateSession();
    if (opened.ok()) opened = runs->LogOn(name, refusal);
    if (opened.ok() && refusal.empty()) opened = runs->FindRuns();
    if (!opened.ok()) {
        ComplainOfService(bus, opened.error(), console);
        return nullptr;
    }
    if (!refusal.empty()) {
        console.Complain(RefusalComplaint(name.Text(), refusal));
        return nullptr;
    }
    return runs;
}

ServiceRuns::ServiceRuns(std::unique_ptr<dbus::Connection> connection, EventEcho::Show show_problem)
    : connection_(std::move(connection)), show_problem_(std::move(show_problem)) {
    loop_.Attach(*connection_);
    connection_->WhenLost([this] { Lose("the message bus is gone"); });
    silence_timer_ = loop_.ArmTimer(kSilenceMs, [this] { AskWhenSilent(); });
}

// The session ends with this connection.
ServiceRuns::~ServiceRuns() {
    connection_->WhenLost({});
    loop_.DisarmTimer(silence_timer_);
    loop_.Detach(*connection_);
}

Status ServiceRuns::CreateSession() {
    const Address factory{dbus::kServiceName, dbus::kFactoryPath, dbus::kFactoryInterface};
    const auto made = connection_->Call(factory, "CreateSession");
    if (!made.ok()) return made.error();
    const auto* name = std::get_if<std::string>(made.value().data());
    if (made.value().size() != 2 || name == nullptr) {
        return Error{ErrorKind::kMalformed, 0, "the service answers in another way"};
    }
    // By its own name: the service's would start a new one when this one is gone.
    session_ = {*name, std::get<dbus::ObjectPath>(made.value()[1]).path, dbus::kSessionInterface};
    details_ = {session_.bus_name, session_.path, dbus::kDetailsInterface};
    TREVIX_RETURN_IF_ERROR(
        connection_->WatchName(session_.bus_name, [this] { Lose("the service is gone"); }));
    return connection_->Listen(details_, [this](const std::string& signal, const Values& values) {
        OnDetails(signal, values);
    });
}

// A log-on that was refused is no failure of the bus: `refusal` says why.
Status ServiceRuns::LogOn(const StoreName& name, std::string& refusal) {
    if (name.profile.empty()) {
        TREVIX_RETURN_IF_ERROR(connection_->Set(session_, "Server", name.server));
        TREVIX_RETURN_IF_ERROR(connection_->Set(session_, "Alias", name.alias));
    }
    const auto logged_on = connection_->Call(session_, "Logon", {name.profile}, kLogonMicroseconds);
    if (!logged_on.ok()) return logged_on.error();
    const auto state = connection_->Get(session_, "State");
    if (!state.ok()) return state.error();
    if (std::get<std::int32_t>(state.value()) != txNoSession) return {};
    const auto failure = connection_->Get(details_, "LogonFailure");
    if (!failure.ok()) return failure.error();
    refusal = std::get<std::string>(failure.value());
    if (!refusal.empty()) return {};
    const auto last_error = connection_->Get(session_, "LastError");
    if (!last_error.ok()) return last_error.error();
    refusal = std::get<std::string>(last_error.value());
    if (refusal.empty()) refusal = "the log-on was refused";
    return {};
}

// Listens before anything is started, so that no event is missed.
Status ServiceRuns::FindRuns() {
    const auto manage = connection_->Get(session_, "Manage");
    if (!manage.ok()) return manage.error();
    const auto index = connection_->Get(session_, "Index");
    if (!index.ok()) return index.error();
    manage_ = {session_.bus_name, std::get<dbus::ObjectPath>(manage.value()).path,
               dbus::kManageInterface};
    index_ = {session_.bus_name, std::get<dbus::ObjectPath>(index.value()).path,
              dbus::kIndexInterface};
    TREVIX_RETURN_IF_ERROR(connection_->Listen(
        manage_,
        [this](const std::string& signal, const Values& values) { OnManage(signal, values); }));
    return connection_->Listen(index_, [this](const std::string& signal, const Values& values) {
        OnIndex(signal, values);
    });
}

void ServiceRuns::StartCompression(const Compression& plan) {
    compression_ = {};
    indexing_ = {};
    heard_indexing_ = false;
    is_compressing_ = true;
    Status outcome = connection_->Set(manage_, "Compress", plan.compress);
    if (outcome.ok()) outcome = connection_->Set(manage_, "HTML", plan.html);
    if (outcome.ok()) outcome = connection_->Set(manage_, "FolderIDs", plan.folder_ids);
    if (outcome.ok()) {
        const auto started = connection_->Call(manage_, "Manage", {plan.indexes});
        if (!started.ok()) outcome = started.error();
    }
    Note(outcome);
}

void ServiceRuns::StartIndexing(const std::string& store_ids, bool anew) {
    indexing_ = {};
    is_indexing_ = true;
    Status outcome = connection_->Set(index_, "TargetStoreIDs", store_ids);
    if (outcome.ok()) {
        const auto started = connection_->Call(index_, "Index", {anew});
        if (!started.ok()) outcome = started.error();
    }
    Note(outcome);
}

// Without waiting: the display goes on, and a busy service holds nobody up.
void ServiceRuns::CancelCompression() {
    connection_->SetLater(manage_, "Cancel", true, {});
}

void ServiceRuns::CancelIndexing() {
    connection_->SetLater(index_, "Cancel", true, {});
}

// The service starts it before it tells the end of the compression run, so the answer comes behind
// that; and a run that has ended by then has told so before it.
bool ServiceRuns::IndexingFollows() {
    if (!loss_.empty()) return false;
    const auto in_process = connection_->Get(index_, "InProcess");
    is_indexing_ = in_process.ok() && std::get<bool>(in_process.value());
    connection_->Hold(false);
    loop_.Pump();
    return is_indexing_ || heard_indexing_;
}

void ServiceRuns::OnManage(const std::string& signal, const Values& arguments) {
    heard_ = true;
    if (!Raise(compression_events_, signal, arguments)) return;
    is_compressing_ = false;
    // The run behind it is another one's to follow, when this one has been told of to its end.
    connection_->Hold(true);
}

void ServiceRuns::OnIndex(const std::string& signal, const Values& arguments) {
    heard_ = true;
    heard_indexing_ = true;
    if (Raise(indexing_events_, signal, arguments)) is_indexing_ = false;
}

void ServiceRuns::OnDetails(const std::string& signal, const Values& arguments) {
    heard_ = true;
    if (signal == "Problem") {
        show_problem_(Count(arguments, 0), Text(arguments, 1), Text(arguments, 2));
    } else if (signal == "ManageFigures") {
        RunSummary& run = compression_;
        const std::array<std::int64_t*, 7> numbers = {
            &run.messages_changed,   &run.messages_failed,    &run.messages_left,
            &run.attachments_zipped, &run.stationery_removed, &run.original_bytes,
            &run.compressed_bytes};
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            *numbers[i] = Number(arguments, i);
        }
        for (const std::string& path : Split(Text(arguments, numbers.size()), "\n")) {
            if (!path.empty()) run.folders.push_back({path, 0, 0, 0});
        }
    } else if (signal == "IndexFigures") {
        IndexSummary& run = indexing_;
        const std::array<std::int64_t*, 8> numbers = {
            &run.folders_scanned, &run.folders_failed, &run.messages_indexed,
            &run.messages_failed, &run.rows_added,     &run.rows,
            &run.bytes,           &run.stored_bytes};
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            *numbers[i] = Number(arguments, i);
        }
        run.text = Text(arguments, numbers.size());
    }
}

void ServiceRuns::Note(const Status& outcome) {
    if (!outcome.ok()) Lose(outcome.error().description);
}

void ServiceRuns::Lose(const std::string& why) {
    if (loss_.empty()) loss_ = why;
    is_compressing_ = false;
    is_indexing_ = false;
    loop_.Quit();
}

void ServiceRuns::AskWhenSilent() {
    if (!std::exchange(heard_, false)) {
        if (is_compressing_) AskWhetherItRuns(manage_, is_compressing_);
        if (is_indexing_) AskWhetherItRuns(index_, is_indexing_);
    }
}

// The answer comes behind every event that was sent before it. A run that is busy with one message
// for long answers late or not at all, which says nothing.
void ServiceRuns::AskWhetherItRuns(const Address& run, bool& is_running) {
    connection_->CallLater({run.bus_name, run.path, "org.freedesktop.DBus.Properties"}, "Get",
                           {std::string(run.interface), std::string("InProcess")},
                           [this, &is_running](const Result<Values>& answer) {
                               if (!answer.ok() || answer.value().size() != 1) return;
                               const auto* runs = std::get_if<bool>(answer.value().data());
                               if (runs == nullptr || *runs || !is_running) return;
                               is_running = false;
                               loop_.Quit();
                           });
}

}  // namespace trevix::cli
