// What an object offers on the bus under one interface name.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/dbus/incoming_call.h"
#include "platform/dbus/value.h"

namespace trevix::dbus {

struct Argument {
    char type = kString;
    std::string name;
};

struct Method {
    std::string name;
    std::vector<Argument> in;
    std::vector<Argument> out;
    // Called with arguments of the stated types. It may keep the call and answer it later.
    std::function<void(IncomingCall)> serve;
};

struct Property {
    std::string name;
    char type = kString;
    std::function<Value()> get;             // gives a value of that type
    std::function<void(const Value&)> set;  // gets one; empty: clients cannot write it
    bool is_constant = false;
};

struct Signal {
    std::string name;
    std::vector<Argument> arguments;
};

struct Interface {
    std::string name;
    std::vector<Method> methods;
    std::vector<Property> properties;
    std::vector<Signal> signals;
};

}  // namespace trevix::dbus
