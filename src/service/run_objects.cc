#include "service/run_objects.h"

#include <exception>
#include <vector>

#include "service/names.h"

namespace trevix::service {
namespace {

using dbus::kBoolean;
using dbus::kInt32;
using dbus::kString;
using dbus::Value;

// The four signals; only the name of Progress's text differs.
std::vector<dbus::Signal> EventsOf(const char* progress_text) {
    return {{"FolderChange", {{kString, "FolderName"}, {kInt32, "Count"}}},
            {"Progress", {{kString, progress_text}, {kInt32, "Count"}}},
            {"Complete", {{kInt32, "ElapsedTime"}}},
            {"Abort", {{kString, "Message"}}}};
}

dbus::Property Boolean(const char* name, std::function<bool()> get,
                       std::function<void(bool)> set = {}) {
    dbus::Property property{name, kBoolean, [get = std::move(get)] { return Value(get()); }, {}};
    if (set) {
        property.set = [set = std::move(set)](const Value& value) { set(std::get<bool>(value)); };
    }
    return property;
}

dbus::Property Text(const char* name, std::function<std::string()> get,
                    std::function<void(const std::string&)> set) {
    return {name, kString, [get = std::move(get)] { return Value(get()); },
            [set = std::move(set)](const Value& value) { set(std::get<std::string>(value)); }};
}

// A method that starts a run. The caller is answered in any case.
dbus::Method Starter(const char* name, const char* argument, std::function<void(bool)> start) {
    return {name, {{kBoolean, argument}}, {}, [start = std::move(start)](dbus::IncomingCall call) {
                try {
                    start(std::get<bool>(call.arguments().front()));
                } catch (const std::exception&) {
                    // Without memory for a timer there is no run; InProcess says so.
                }
                call.Reply();
            }};
}

}  // namespace

dbus::Interface ManageInterface(CManage& run) {
    return {kManageInterface,
            {Starter("Manage", "index", [&run](bool index) { run.Manage(index); })},
            {
                Boolean(
                    "Cancel", [&run] { return run.Cancel(); }, [&run](bool on) { run.Cancel(on); }),
                Boolean(
                    "Compress", [&run] { return run.Compress(); },
                    [&run](bool on) { run.Compress(on); }),
                Boolean(
                    "HTML", [&run] { return run.HTML(); }, [&run](bool on) { run.HTML(on); }),
                // For writing only, which the bus's own tools do not cope with.
                Text(
                    "FolderIDs", [] { return std::string(); },
                    [&run](const std::string& ids) { run.FolderIDs(ids); }),
                Boolean("InProcess", [&run] { return run.InProcess(); }),
                Boolean("SkipIndex", [&run] { return run.SkipIndex(); }),
            },
            EventsOf("FolderName")};
}

dbus::Interface IndexInterface(CIndex& run) {
    return {
        kIndexInterface,
        {Starter("Index", "recreate", [&run](bool recreate) { run.Index(recreate); })},
        {
            Boolean(
                "Cancel", [&run] { return run.Cancel(); }, [&run](bool on) { run.Cancel(on); }),
            Boolean(
                "Refresh", [&run] { return run.Refresh(); }, [&run](bool on) { run.Refresh(on); }),
            Text(
                "TargetStoreIDs", [&run] { return run.TargetStoreIDs(); },
                [&run](const std::string& ids) { run.TargetStoreIDs(ids); }),
            Text(
                "UpdateStoreIDs", [&run] { return run.UpdateStoreIDs(); },
                [&run](const std::string& ids) { run.UpdateStoreIDs(ids); }),
            Boolean(
                "Regenerate", [&run] { return run.Regenerate(); },
                [&run](bool on) { run.Regenerate(on); }),
            Boolean(
                "OffLine", [] { return false; }, [&run](bool on) { run.OffLine(on); }),
            Boolean("InProcess", [&run] { return run.InProcess(); }),
        },
        EventsOf("Text")};
}

}  // namespace trevix::service
