// ExportedObject: an object of ours on the bus, there as long as this lives.
#pragma once

#include <systemd/sd-bus.h>

#include <string>
#include <vector>

#include "platform/dbus/handles.h"
#include "platform/dbus/interface.h"

namespace trevix::dbus {

// It must not be destroyed from within one of its own handlers. No exception of a handler gets into
// the library, whose state it would break: the caller gets an error, or the type's neutral value.
class ExportedObject {
 public:
    // Borrows `bus`. Whether it is really there is said by Add().
    explicit ExportedObject(Interface interface);
    ExportedObject(const ExportedObject&) = delete;
    ExportedObject& operator=(const ExportedObject&) = delete;

    // Puts it on the bus at `path`; below 0 is the library's error number.
    int Add(sd_bus* bus, const std::string& path);

 private:
    void BuildTable();
    const char* NamesOf(const std::vector<Argument>& in, const std::vector<Argument>& out);
    const char* SignatureOf(const std::vector<Argument>& arguments);
    const Property* FindProperty(const char* name) const;

    static int OnMethod(sd_bus_message* message, void* object, sd_bus_error* error);
    static int OnGet(sd_bus* bus, const char* path, const char* interface, const char* name,
                     sd_bus_message* reply, void* object, sd_bus_error* error);
    static int OnSet(sd_bus* bus, const char* path, const char* interface, const char* name,
                     sd_bus_message* message, void* object, sd_bus_error* error);

    Interface interface_;
    std::vector<std::unique_ptr<std::string>> texts_;  // that the table refers to
    std::vector<sd_bus_vtable> table_;
    SlotPtr slot_;
};

}  // namespace trevix::dbus
