// Values into messages and out of them.
#pragma once

#include "platform/dbus/handles.h"
#include "platform/dbus/value.h"
#include "platform/result.h"

namespace trevix::dbus {

// Below 0 is the library's error number.
int Append(sd_bus_message* message, const Value& value);
int Append(sd_bus_message* message, const Values& values);

// A value in a variant, as the Properties interface has it.
int AppendVariant(sd_bus_message* message, const Value& value);

// The next value, which is of type `type`; below 0 when it is not.
int Read(sd_bus_message* message, char type, Value& value);

// All that is left of the message; variants are looked into. A value of another type than those of
// Value is an error.
Result<Values> ReadAll(sd_bus_message* message);

}  // namespace trevix::dbus
