#include "platform/dbus/connection.h"

#include <poll.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <utility>

#include "platform/dbus/message_values.h"
#include "platform/errors.h"

namespace trevix::dbus {
namespace {

constexpr const char* kBusName = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

// How many messages may wait to be sent before an event waits for room, and before it is lost.
constexpr std::uint64_t kMostQueued = 1000;
constexpr std::uint64_t kMostStalled = 100000;

Error BusFailure(int outcome, const std::string& what) {
    return SystemError(-outcome, what);
}

Error AnswerFailure(int outcome, const BusError& error, const std::string& what) {
    if (*error.name() == '\0') return BusFailure(outcome, what);
    const bool is_denied = std::strcmp(error.name(), kAccessDenied) == 0;
    return Error{is_denied ? ErrorKind::kDenied : ErrorKind::kOther, -outcome,
                 std::string(error.name()) + ": " + error.text()};
}

}  // namespace

Result<std::unique_ptr<Connection>> Connection::Open(Bus bus) {
    sd_bus* raw = nullptr;
    int opened = 0;
    // The library takes a process without a starter for one of the system, whatever else is set.
    const bool has_session = std::getenv("DBUS_STARTER_BUS_TYPE") == nullptr &&
                             std::getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr;
    if (bus == Bus::kSystem) {
        opened = sd_bus_open_system(&raw);
    } else if (bus == Bus::kSession || has_session) {
        opened = sd_bus_open_user(&raw);
    } else {
        opened = sd_bus_open(&raw);
    }
    return Greet(raw, opened);
}

Result<std::unique_ptr<Connection>> Connection::OpenAddress(const std::string& address) {
    sd_bus* raw = nullptr;
    int opened = sd_bus_new(&raw);
    if (opened >= 0) opened = sd_bus_set_address(raw, address.c_str());
    if (opened >= 0) opened = sd_bus_set_bus_client(raw, 1);
    if (opened >= 0) opened = sd_bus_start(raw);
    return Greet(raw, opened);
}

Result<std::unique_ptr<Connection>> Connection::Greet(sd_bus* bus, int opened) {
    std::unique_ptr<Connection> connection(new Connection(bus));
    if (opened < 0) return BusFailure(opened, "message bus");
    const char* name = nullptr;
    const int greeted = sd_bus_get_unique_name(bus, &name);
    if (greeted < 0) return BusFailure(greeted, "message bus");
    connection->unique_name_ = name;
    return connection;
}

Connection::~Connection() {
    constexpr int kTries = 10;
    constexpr int kTryMs = 100;
    for (int i = 0; bus_ != nullptr && i < kTries && Queued() > 0; ++i) {
        // Flushing waits without end; a queue that the socket has room for does not make it wait.
        if (!WaitUntilWritable(kTryMs)) continue;
        if (Queued() < kMostQueued) sd_bus_flush(bus_);
        break;
    }
    filter_.reset();
    watches_.clear();
    listeners_.clear();
    if (bus_ != nullptr) sd_bus_close_unref(bus_);
}

EventSource::Wait Connection::WaitsFor() {
    Wait wait;
    if (bus_ == nullptr || is_held_) return wait;
    const int events = sd_bus_get_events(bus_);
    std::uint64_t until_us = 0;
    // What cannot be asked is found out by serving.
    if (events < 0 || sd_bus_get_timeout(bus_, &until_us) < 0) until_us = 0;
    wait.descriptor = sd_bus_get_fd(bus_);
    wait.is_read = events > 0 && (events & POLLIN) != 0;
    wait.is_write = events > 0 && (events & POLLOUT) != 0;
    constexpr std::uint64_t kFarAway = std::uint64_t{1} << 50;
    if (until_us < kFarAway) wait.until_ns = static_cast<std::int64_t>(until_us) * 1000;
    return wait;
}

bool Connection::ServeOne() {
    if (bus_ == nullptr || is_held_ || is_serving_) return false;
    is_serving_ = true;
    const int outcome = sd_bus_process(bus_, nullptr);
    is_serving_ = false;
    if (outcome < 0) Lose();
    return outcome > 0;
}

void Connection::Lose() {
    filter_.reset();
    watches_.clear();
    listeners_.clear();
    sd_bus_close(bus_);
    // The objects that are exported may still refer to it.
    sd_bus_unref(std::exchange(bus_, nullptr));
    if (when_lost_) std::exchange(when_lost_, nullptr)();
}

Status Connection::RequestName(const std::string& name) {
    if (bus_ == nullptr) return BusFailure(-ENOTCONN, name);
    const int outcome = sd_bus_request_name(bus_, name.c_str(), 0);
    if (outcome < 0) return BusFailure(outcome, name);
    return {};
}

Status Connection::ReleaseName(const std::string& name) {
    if (bus_ == nullptr) return BusFailure(-ENOTCONN, name);
    const int outcome = sd_bus_release_name(bus_, name.c_str());
    if (outcome < 0) return BusFailure(outcome, name);
    return {};
}

Result<MessagePtr> Connection::AskBus(const char* method, const std::string& name) {
    auto call = NewCall({kBusName, kBusPath, kBusName}, method);
    if (!call.ok()) return call;
    const int outcome = Append(call.value().get(), Value(name));
    if (outcome < 0) return BusFailure(outcome, name);
    return Ask(call.value().get(), 0);
}

Result<bool> Connection::HasOwner(const std::string& name) {
    const auto answer = AskBus("NameHasOwner", name);
    if (!answer.ok()) return answer.error();
    int has_owner = 0;
    const int outcome = sd_bus_message_read_basic(answer.value().get(), kBoolean, &has_owner);
    if (outcome < 0) return BusFailure(outcome, name);
    return has_owner != 0;
}

Result<std::uint32_t> Connection::UserOf(const std::string& name) {
    const auto answer = AskBus("GetConnectionUnixUser", name);
    if (!answer.ok()) return answer.error();
    std::uint32_t user = 0;
    const int outcome = sd_bus_message_read_basic(answer.value().get(), 'u', &user);
    if (outcome < 0) return BusFailure(outcome, name);
    return user;
}

Status Connection::WatchName(const std::string& name, std::function<void()> gone) {
    if (bus_ == nullptr) return BusFailure(-ENOTCONN, name);
    auto watch = std::make_unique<NameWatch>();
    watch->gone = std::move(gone);
    const std::string rule = std::string("type='signal',sender='") + kBusName + "',path='" +
                             kBusPath + "',member='NameOwnerChanged',arg0='" + name + "',arg2=''";
    sd_bus_slot* slot = nullptr;
    const int outcome = sd_bus_add_match(bus_, &slot, rule.c_str(), &OnNameGone, watch.get());
    if (outcome < 0) return BusFailure(outcome, name);
    watch->slot.reset(slot);
    watches_.push_back(std::move(watch));
    return {};
}

int Connection::OnNameGone(sd_bus_message* /*message*/, void* watch, sd_bus_error* /*error*/) try {
    static_cast<NameWatch*>(watch)->gone();
    return 0;
} catch (const std::exception&) {
    return 0;
}

Result<std::unique_ptr<ExportedObject>> Connection::Export(const std::string& path,
                                                           Interface interface) {
    if (bus_ == nullptr) return BusFailure(-ENOTCONN, path);
    auto object = std::make_unique<ExportedObject>(std::move(interface));
    const int outcome = object->Add(bus_, path);
    if (outcome < 0) return BusFailure(outcome, path);
    return object;
}

Status Connection::Admit(std::function<Refusal(const Caller&)> decide) {
    if (bus_ == nullptr) return BusFailure(-ENOTCONN, "message bus");
    admit_ = std::move(decide);
    sd_bus_slot* slot = nullptr;
    const int outcome = sd_bus_add_filter(bus_, &slot, &OnFilter, this);
    if (outcome < 0) return BusFailure(outcome, "message bus");
    filter_.reset(slot);
    return {};
}

int Connection::OnFilter(sd_bus_message* message, void* connection, sd_bus_error* /*error*/) try {
    std::uint8_t type = 0;
    if (sd_bus_message_get_type(message, &type) < 0) return 0;
    if (type != SD_BUS_MESSAGE_METHOD_CALL) return 0;
    const char* sender = sd_bus_message_get_sender(message);
    const char* interface = sd_bus_message_get_interface(message);
    const Refusal refusal =
        static_cast<Connection*>(connection)
            ->admit_({sender == nullptr ? "" : sender, interface == nullptr ? "" : interface});
    if (refusal.error_name == nullptr) return 0;
    sd_bus_reply_method_errorf(message, refusal.error_name, "%s", refusal.text);
    return 1;
} catch (const std::exception&) {
    // Who cannot be judged is not let in.
    return -EACCES;
}

std::uint64_t Connection::Queued() const {
    std::uint64_t queued = 0;
    return sd_bus_get_n_queued_write(bus_, &queued) < 0 ? 0 : queued;
}

bool Connection::WaitUntilWritable(int timeout_ms) const {
    pollfd socket{sd_bus_get_fd(bus_), POLLOUT, 0};
    return ::poll(&socket, 1, timeout_ms) > 0;
}

// Only processing sends what is queued. Between two steps of a run it may serve calls as well.
bool Connection::HasRoom() {
    constexpr int kTries = 20;
    constexpr int kTryMs = 50;
    const bool may_process = !is_held_ && !is_serving_;
    for (int i = 0; may_process && !is_stalled_ && i < kTries && Queued() > kMostQueued; ++i) {
        if (WaitUntilWritable(kTryMs)) ServeOne();
        if (bus_ == nullptr) return false;
    }
    is_stalled_ = Queued() > kMostQueued;
    return Queued() < kMostStalled;
}

void Connection::Emit(const std::string& destination, const std::string& path,
                      const std::string& interface, const std::string& signal,
                      const Values& arguments) {
    if (bus_ == nullptr || !HasRoom()) return;
    sd_bus_message* raw = nullptr;
    int outcome =
        sd_bus_message_new_signal(bus_, &raw, path.c_str(), interface.c_str(), signal.c_str());
    const MessagePtr message(raw);
    if (outcome >= 0) outcome = sd_bus_message_set_destination(raw, destination.c_str());
    if (outcome >= 0) outcome = Append(raw, arguments);
    // A client that misses an event reads the properties; nobody here can do more about it.
    if (outcome >= 0) sd_bus_send(bus_, raw, nullptr);
}

Result<MessagePtr> Connection::NewCall(const Address& to, const std::string& method) {
    if (bus_ == nullptr) return BusFailure(-ENOTCONN, method);
    sd_bus_message* raw = nullptr;
    const int outcome = sd_bus_message_new_method_call(
        bus_, &raw, to.bus_name.c_str(), to.path.c_str(), to.interface.c_str(), method.c_str());
    if (outcome < 0) return BusFailure(outcome, method);
    return MessagePtr(raw);
}

Result<MessagePtr> Connection::Ask(sd_bus_message* call, std::uint64_t timeout_us) {
    if (bus_ == nullptr) return BusFailure(-ENOTCONN, "message bus");
    BusError error;
    sd_bus_message* raw = nullptr;
    const int outcome = sd_bus_call(bus_, call, timeout_us, error.get(), &raw);
    if (outcome < 0) return AnswerFailure(outcome, error, "message bus");
    return MessagePtr(raw);
}

Result<Values> Connection::Call(const Address& to, const std::string& method,
                                const Values& arguments, std::uint64_t timeout_us) {
    const auto call = NewCall(to, method);
    if (!call.ok()) return call.error();
    const int outcome = Append(call.value().get(), arguments);
    if (outcome < 0) return BusFailure(outcome, method);
    const auto answer = Ask(call.value().get(), timeout_us);
    if (!answer.ok()) return answer.error();
    return ReadAll(answer.value().get());
}

Result<Value> Connection::Get(const Address& of, const std::string& property) {
    auto values = Call({of.bus_name, of.path, kProperties}, "Get", {of.interface, property});
    if (!values.ok()) return values.error();
    if (values.value().size() != 1) return BusFailure(-EBADMSG, property);
    return values.value().front();
}

Status Connection::Set(const Address& of, const std::string& property, const Value& value) {
    const auto call = NewCall({of.bus_name, of.path, kProperties}, "Set");
    if (!call.ok()) return call.error();
    int outcome = Append(call.value().get(), {of.interface, property});
    if (outcome >= 0) outcome = AppendVariant(call.value().get(), value);
    if (outcome < 0) return BusFailure(outcome, property);
    const auto answer = Ask(call.value().get(), 0);
    if (!answer.ok()) return answer.error();
    return {};
}

bool Connection::CallLater(const Address& to, const std::string& method, const Values& arguments,
                           Done done) {
    const auto call = NewCall(to, method);
    return call.ok() && Append(call.value().get(), arguments) >= 0 &&
           SendLater(call.value().get(), std::move(done));
}

bool Connection::SetLater(const Address& of, const std::string& property, const Value& value,
                          Done done) {
    const auto call = NewCall({of.bus_name, of.path, kProperties}, "Set");
    return call.ok() && Append(call.value().get(), {of.interface, property}) >= 0 &&
           AppendVariant(call.value().get(), value) >= 0 &&
           SendLater(call.value().get(), std::move(done));
}

// The slot belongs to the library, and takes `done` with it when the connection ends first.
bool Connection::SendLater(sd_bus_message* call, Done done) {
    auto kept = std::make_unique<Done>(std::move(done));
    sd_bus_slot* slot = nullptr;
    if (sd_bus_call_async(bus_, &slot, call, &OnDone, kept.get(), 0) < 0) return false;
    sd_bus_slot_set_destroy_callback(slot, [](void* data) { delete static_cast<Done*>(data); });
    static_cast<void>(kept.release());
    sd_bus_slot_set_floating(slot, 1);
    sd_bus_slot_unref(slot);
    return true;
}

int Connection::OnDone(sd_bus_message* message, void* done, sd_bus_error* /*error*/) try {
    const Done& then = *static_cast<Done*>(done);
    if (!then) return 1;
    const sd_bus_error* error = sd_bus_message_get_error(message);
    if (error == nullptr) {
        then(ReadAll(message));
    } else {
        then(Error{
            ErrorKind::kOther, sd_bus_message_get_errno(message),
            std::string(error->name) + ": " + (error->message == nullptr ? "" : error->message)});
    }
    return 1;
} catch (const std::exception&) {
    return 1;
}

Status Connection::Listen(const Address& from, OnSignal on_signal) {
    if (bus_ == nullptr) return BusFailure(-ENOTCONN, from.bus_name);
    auto listener = std::make_unique<Listener>();
    listener->on_signal = std::move(on_signal);
    sd_bus_slot* slot = nullptr;
    const int outcome =
        sd_bus_match_signal(bus_, &slot, from.bus_name.c_str(), from.path.c_str(),
                            from.interface.c_str(), nullptr, &OnListened, listener.get());
    if (outcome < 0) return BusFailure(outcome, from.bus_name);
    listener->slot.reset(slot);
    listeners_.push_back(std::move(listener));
    return {};
}

int Connection::OnListened(sd_bus_message* message, void* listener, sd_bus_error* /*error*/) try {
    const auto values = ReadAll(message);
    // A signal of other types is none that anybody here listens for.
    if (values.ok()) {
        static_cast<Listener*>(listener)->on_signal(sd_bus_message_get_member(message),
                                                    values.value());
    }
    return 0;
} catch (const std::exception&) {
    return 0;
}

}  // namespace trevix::dbus
