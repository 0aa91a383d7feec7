#include "cli/world.h"

#include <optional>
#include <utility>

#include "assembly/adapters.h"
#include "cli/dry_run_store.h"
#include "cli/private_place.h"
#include "cli/setting_file.h"
#include "cli/text_format.h"
#include "manage/cmanage.h"
#include "platform/posix/posix_file_system.h"
#include "platform/registry/file_registry.h"
#include "store/results_message.h"

namespace trevix::cli {
namespace {

using Writes = WorldPlan::Writes;

constexpr const char* kTemporaryHint =
    "make room there, or set TMPDIR to a directory that you may write";

// The store of a world that writes nothing looks, and keeps what it is told to write.
Result<std::unique_ptr<MailStore>> Admit(std::unique_ptr<MailStore> store, const WorldPlan& plan,
                                         Clock& clock, const PrivatePlace* place) {
    const Status usable = CheckStore(*store, plan.folder_use);
    if (!usable.ok()) return usable.error();
    if (plan.writes != Writes::kNothing) return store;
    return std::unique_ptr<MailStore>(
        std::make_unique<DryRunStore>(std::move(store), clock, place->path(), plan.held_lock));
}

// What the command line stands for: the add-in, whose settings and log are this user's own.
std::vector<OverlayValue> OverlayOf(const WorldPlan& plan) {
    std::vector<OverlayValue> values = plan.options;
    if (!plan.server_mode) values.push_back(TextOverlay("Tray", "1"));
    if (plan.writes == Writes::kNothing) values.push_back(NumberOverlay("ErrorLogSize", 0));
    return values;
}

struct SettingFiles {
    std::string user = registry::UserFilePath();
    std::string machine = registry::kMachineFilePath;
};

using Tell = std::function<void(const std::string& sentence)>;

assembly::AdapterPlan AdaptersFor(const WorldPlan& plan, const PrivatePlace* place,
                                  const SettingFiles& settings, Tell tell) {
    assembly::AdapterPlan adapters;
    adapters.first_tick = posix::FirstTick::kAtOnce;
    adapters.data_from_program = TREVIX_DATA_FROM_BIN;
    if (place != nullptr) adapters.temporary = place->path();
    adapters.user_settings = settings.user;
    adapters.machine_settings = settings.machine;
    adapters.keeps_summaries = plan.writes == Writes::kEverything || plan.keeps_summaries;
    adapters.stores.tell = std::move(tell);
    adapters.stores.looks_only = plan.writes == Writes::kNothing;
    adapters.stores.admit = [plan, place](std::unique_ptr<MailStore> store, Clock& clock) {
        return Admit(std::move(store), plan, clock, place);
    };
    return adapters;
}

class BuiltWorld final : public World {
 public:
    BuiltWorld(const WorldPlan& plan, std::unique_ptr<PrivatePlace> place,
               const SettingFiles& settings)
        : place_(std::move(place)),
          adapters_(AdaptersFor(plan, place_.get(), settings,
                                [this](const std::string& sentence) { Warn(sentence); })),
          event_log_(plan.writes == Writes::kNothing ? nullptr : &adapters_.event_log(),
                     plan.show_error),
          registry_(adapters_.registry(), OverlayOf(plan)),
          state_(adapters_.PortsWith(event_log_, registry_)),
          session_(state_) {}

    BasCI& state() override { return state_; }
    Session& session() override { return session_; }
    posix::PollLoop& loop() override { return adapters_.loop(); }
    FileSystem& files() { return adapters_.files(); }

 private:
    void Warn(const std::string& sentence) {
        constexpr int kWarning = 2;
        // A log that cannot be written is nobody's failure.
        Drop(event_log_.Report({sentence}, "Trevix", "", kWarning));
    }

    // In the order in which they are needed, so that each outlives who uses it.
    std::unique_ptr<PrivatePlace> place_;
    assembly::Adapters adapters_;
    EventEcho event_log_;
    RegistryOverlay registry_;
    BasCI state_;
    Session session_;
};

// A settings file that the component would not understand must not be taken for the defaults.
bool CheckSettings(Console& console) {
    SettingFile user;
    const auto unusable = user.FindUnusable();
    if (unusable) console.Complain(*unusable);
    return !unusable;
}

// Opening a key makes it, so a world that writes nothing works on copies of the settings.
bool CopySettings(PrivatePlace& place, SettingFiles& settings, Console& console) {
    for (std::string* file : {&settings.user, &settings.machine}) {
        auto copy = place.CopyOf(*file);
        if (!copy.ok()) {
            const bool is_full = copy.error().kind == ErrorKind::kNoSpace;
            console.Complain({"settings", copy.error().description,
                              is_full ? kTemporaryHint : "give this user permission to read it"});
            return false;
        }
        *file = std::move(copy).value();
    }
    return true;
}

std::unique_ptr<BuiltWorld> Build(const WorldPlan& plan, Console& console) {
    SettingFiles settings;
    std::unique_ptr<PrivatePlace> place;
    if (plan.writes == Writes::kNothing) {
        auto made = PrivatePlace::Make(posix::DefaultPlaces().temporary);
        if (!made.ok()) {
            console.Complain({"temporary files", made.error().description, kTemporaryHint});
            return nullptr;
        }
        place = std::move(made).value();
        if (!CopySettings(*place, settings, console)) return nullptr;
    }
    auto world = std::make_unique<BuiltWorld>(plan, std::move(place), settings);
    if (!world->files().TemporaryPath().empty()) return world;
    console.Complain({posix::DefaultPlaces().temporary,
                      "no private directory can be made for temporary files", kTemporaryHint});
    return nullptr;
}

}  // namespace

std::unique_ptr<World> World::Open(const WorldPlan& plan, const StoreName& name, Console& console) {
    if (!CheckSettings(console)) return nullptr;
    std::unique_ptr<BuiltWorld> world = Build(plan, console);
    if (world == nullptr) return nullptr;
    if (!world->state().Main()) {
        console.Complain({"start", "the messaging session cannot be created", ""});
        return nullptr;
    }
    Session& session = world->session();
    session.Server(name.server);
    session.Alias(name.alias);
    session.Logon(name.profile);
    if (session.Manage() == nullptr) {
        const std::string& failure = session.LogonFailure();
        console.Complain(
            RefusalComplaint(name.Text(), failure.empty() ? session.LastError() : failure));
        return nullptr;
    }
    return world;
}

Complaint RefusalComplaint(const std::string& store_name, const std::string& why) {
    Complaint complaint{store_name, PlainText(why),
                        "\"trevixctl profile list\" shows your profiles"};
    const std::size_t advice = complaint.why.rfind("; ");
    if (advice != std::string::npos) {
        complaint.hint = complaint.why.substr(advice + 2);
        complaint.why.erase(advice);
    }
    return complaint;
}

Variant ResultsProperty(BasCI& state, const std::string& name, std::uint16_t type) {
    const std::unique_ptr<Message> message = GetResultsHM(state);
    if (message == nullptr) return {};
    auto value = GetNamed(*message, name, type);
    return value.ok() ? std::move(value).value() : Variant();
}

}  // namespace trevix::cli
