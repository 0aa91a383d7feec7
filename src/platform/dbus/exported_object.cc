#include "platform/dbus/exported_object.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <utility>

#include "platform/dbus/message_values.h"

namespace trevix::dbus {
namespace {

// The answer to a call over the bus. What cannot be sent has nobody who waits for it.
class BusAnswer final : public IncomingCall::Answer {
 public:
    BusAnswer(sd_bus_message* call, std::shared_ptr<const void> table)
        : table_(std::move(table)), call_(sd_bus_message_ref(call)) {}

    void Reply(const Values& results) override {
        sd_bus_message* raw = nullptr;
        if (sd_bus_message_new_method_return(call_.get(), &raw) < 0) return;
        const MessagePtr reply(raw);
        if (Append(reply.get(), results) < 0) {
            Fail(kFailed, "the answer does not fit a message");
            return;
        }
        sd_bus_send(nullptr, reply.get(), nullptr);
    }
    void Fail(const char* error_name, const std::string& text) override {
        sd_bus_reply_method_errorf(call_.get(), error_name, "%s", text.c_str());
    }

 private:
    std::shared_ptr<const void> table_;  // which the call refers to
    MessagePtr call_;
};

Value NeutralOf(char type) {
    if (type == kBoolean) return false;
    if (type == kInt32) return std::int32_t{0};
    if (type == kInt64) return std::int64_t{0};
    if (type == kObjectPath) return ObjectPath{"/"};
    return std::string();
}

}  // namespace

ExportedObject::ExportedObject(Interface interface)
    : interface_(std::move(interface)), table_(std::make_shared<Table>()) {
    BuildTable();
}

int ExportedObject::Add(sd_bus* bus, const std::string& path) {
    sd_bus_slot* slot = nullptr;
    const int outcome = sd_bus_add_object_vtable(bus, &slot, path.c_str(), interface_.name.c_str(),
                                                 table_->entries.data(), this);
    slot_.reset(slot);
    return outcome;
}

// Members are open to every caller here; who may call is decided for the whole connection.
void ExportedObject::BuildTable() {
    table_->entries.push_back(SD_BUS_VTABLE_START(0));
    for (const Method& method : interface_.methods) {
        table_->entries.push_back(SD_BUS_METHOD_WITH_NAMES(
            method.name.c_str(), SignatureOf(method.in), NamesOf(method.in, method.out),
            SignatureOf(method.out), /* names of the results */, &OnMethod,
            SD_BUS_VTABLE_UNPRIVILEGED));
    }
    for (const Property& property : interface_.properties) {
        const char* signature = SignatureOf({{property.type, ""}});
        if (property.set) {
            table_->entries.push_back(SD_BUS_WRITABLE_PROPERTY(
                property.name.c_str(), signature, &OnGet, &OnSet, 0, SD_BUS_VTABLE_UNPRIVILEGED));
        } else if (property.is_constant) {
            table_->entries.push_back(SD_BUS_PROPERTY(property.name.c_str(), signature, &OnGet, 0,
                                                      SD_BUS_VTABLE_PROPERTY_CONST));
        } else {
            table_->entries.push_back(
                SD_BUS_PROPERTY(property.name.c_str(), signature, &OnGet, 0, 0));
        }
    }
    for (const Signal& signal : interface_.signals) {
        table_->entries.push_back(SD_BUS_SIGNAL_WITH_NAMES(
            signal.name.c_str(), SignatureOf(signal.arguments), NamesOf(signal.arguments, {}), 0));
    }
    table_->entries.push_back(SD_BUS_VTABLE_END);
}

const char* ExportedObject::SignatureOf(const std::vector<Argument>& arguments) {
    auto text = std::make_unique<std::string>();
    for (const Argument& argument : arguments)
        text->push_back(argument.type);
    return table_->texts.emplace_back(std::move(text))->c_str();
}

// The library wants the names one behind the other, each with its final NUL.
const char* ExportedObject::NamesOf(const std::vector<Argument>& in,
                                    const std::vector<Argument>& out) {
    auto text = std::make_unique<std::string>();
    for (const auto* arguments : {&in, &out}) {
        for (const Argument& argument : *arguments) {
            *text += argument.name;
            text->push_back('\0');
        }
    }
    return table_->texts.emplace_back(std::move(text))->c_str();
}

const Property* ExportedObject::FindProperty(const char* name) const {
    const auto found = std::ranges::find(interface_.properties, name, &Property::name);
    return found == interface_.properties.end() ? nullptr : &*found;
}

int ExportedObject::OnMethod(sd_bus_message* message, void* object, sd_bus_error* /*error*/) try {
    const auto& self = *static_cast<ExportedObject*>(object);
    const Interface& interface = self.interface_;
    const auto method =
        std::ranges::find(interface.methods, sd_bus_message_get_member(message), &Method::name);
    if (method == interface.methods.end()) return -ENOENT;
    Values arguments;
    for (const Argument& argument : method->in) {
        Value value;
        const int outcome = Read(message, argument.type, value);
        if (outcome <= 0) return outcome < 0 ? outcome : -EINVAL;
        arguments.push_back(std::move(value));
    }
    const char* sender = sd_bus_message_get_sender(message);
    method->serve(IncomingCall(std::make_unique<BusAnswer>(message, self.table_),
                               sender == nullptr ? "" : sender, std::move(arguments)));
    return 1;
} catch (const std::exception&) {
    // The call went with the handler's frame, and was answered by that.
    return 1;
}

int ExportedObject::OnGet(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                          const char* name, sd_bus_message* reply, void* object,
                          sd_bus_error* /*error*/) {
    const Property* property = static_cast<ExportedObject*>(object)->FindProperty(name);
    if (property == nullptr) return -ENOENT;
    try {
        return Append(reply, property->get());
    } catch (const std::exception&) {
        return Append(reply, NeutralOf(property->type));
    }
}

int ExportedObject::OnSet(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                          const char* name, sd_bus_message* message, void* object,
                          sd_bus_error* /*error*/) {
    const Property* property = static_cast<ExportedObject*>(object)->FindProperty(name);
    if (property == nullptr) return -ENOENT;
    try {
        Value value;
        const int outcome = Read(message, property->type, value);
        if (outcome <= 0) return outcome < 0 ? outcome : -EINVAL;
        property->set(value);
        return 1;
    } catch (const std::exception&) {
        return -ENOMEM;
    }
}

}  // namespace trevix::dbus
