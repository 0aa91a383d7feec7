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

    // The library looks into the table for as long as a call is unanswered, which may be longer
    // than the object lives: each unanswered call keeps the table.
    struct Table {
        std::vector<std::unique_ptr<std::string>> texts;  // that the entries refer to
        std::vector<sd_bus_vtable> entries;
    };

    Interface interface_;
    std::shared_ptr<Table> table_;
    SlotPtr slot_;
};

}  // namespace trevix::dbus
