#include "platform/dbus/message_values.h"

#include <cerrno>

#include "platform/dbus/clean_text.h"
#include "platform/errors.h"

namespace trevix::dbus {
namespace {

struct Appender {
    sd_bus_message* message;

    int operator()(bool value) const {
        const int number = value ? 1 : 0;
        return sd_bus_message_append_basic(message, kBoolean, &number);
    }
    int operator()(std::int32_t value) const {
        return sd_bus_message_append_basic(message, kInt32, &value);
    }
    int operator()(std::int64_t value) const {
        return sd_bus_message_append_basic(message, kInt64, &value);
    }
    int operator()(const std::string& value) const {
        return sd_bus_message_append_basic(message, kString, CleanText(value).c_str());
    }
    int operator()(const ObjectPath& value) const {
        return sd_bus_message_append_basic(message, kObjectPath, value.path.c_str());
    }
};

}  // namespace

char TypeOf(const Value& value) {
    constexpr char kTypes[] = {kBoolean, kInt32, kInt64, kString, kObjectPath};
    return kTypes[value.index()];
}

int Append(sd_bus_message* message, const Value& value) {
    return std::visit(Appender{message}, value);
}

int Append(sd_bus_message* message, const Values& values) {
    for (const Value& value : values) {
        const int outcome = Append(message, value);
        if (outcome < 0) return outcome;
    }
    return 0;
}

int AppendVariant(sd_bus_message* message, const Value& value) {
    const char contents[] = {TypeOf(value), '\0'};
    int outcome = sd_bus_message_open_container(message, SD_BUS_TYPE_VARIANT, contents);
    if (outcome >= 0) outcome = Append(message, value);
    return outcome < 0 ? outcome : sd_bus_message_close_container(message);
}

int Read(sd_bus_message* message, char type, Value& value) {
    if (type == kBoolean) {
        int number = 0;
        const int outcome = sd_bus_message_read_basic(message, type, &number);
        if (outcome > 0) value = number != 0;
        return outcome;
    }
    if (type == kInt32) {
        std::int32_t number = 0;
        const int outcome = sd_bus_message_read_basic(message, type, &number);
        if (outcome > 0) value = number;
        return outcome;
    }
    if (type == kInt64) {
        std::int64_t number = 0;
        const int outcome = sd_bus_message_read_basic(message, type, &number);
        if (outcome > 0) value = number;
        return outcome;
    }
    if (type != kString && type != kObjectPath) return -EINVAL;
    const char* text = nullptr;
    const int outcome = sd_bus_message_read_basic(message, type, &text);
    if (outcome <= 0) return outcome;
    if (type == kString) {
        value = std::string(text);
    } else {
        value = ObjectPath{text};
    }
    return outcome;
}

Result<Values> ReadAll(sd_bus_message* message) {
    Values values;
    while (true) {
        char type = 0;
        const char* contents = nullptr;
        const int left = sd_bus_message_peek_type(message, &type, &contents);
        if (left < 0) return SystemError(-left, {});
        if (left == 0) return values;
        const bool is_variant = type == SD_BUS_TYPE_VARIANT;
        int outcome = 1;
        if (is_variant) outcome = sd_bus_message_enter_container(message, type, contents);
        Value value;
        if (outcome > 0) outcome = Read(message, is_variant ? contents[0] : type, value);
        if (outcome > 0 && is_variant) outcome = sd_bus_message_exit_container(message);
        if (outcome < 0) return SystemError(-outcome, {});
        values.push_back(std::move(value));
    }
}

}  // namespace trevix::dbus
