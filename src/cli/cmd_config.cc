// trevixctl config: read, change, carry over the settings.
#include <CLI/App.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "cli/command_table.h"
#include "cli/exit_codes.h"
#include "cli/setting_file.h"
#include "cli/setting_table.h"
#include "cli/store_choice.h"
#include "cli/text_format.h"

namespace trevix::cli {
namespace {

struct Options {
    std::string name;
    std::string value;
    bool to_default = false;
    bool json = false;
    std::string file;
};

const Setting* Named(const std::string& name, Console& console) {
    const Setting* setting = FindSetting(name);
    if (setting == nullptr) {
        console.Complain({name, "no such setting", "\"trevixctl config list\" shows them all"});
    }
    return setting;
}

int Complain(const SettingFile& file, const Error& error, Console& console) {
    const std::string hint = error.kind == ErrorKind::kMalformed
                                 ? "correct the file by hand; it was left as it is"
                                 : "the settings are kept in " + file.path();
    console.Complain({"settings", error.description, hint});
    return kExitFailed;
}

int Get(const Options& options, Console& console) {
    const Setting* setting = Named(options.name, console);
    if (setting == nullptr) return kExitUsage;
    SettingFile file;
    const auto stored = file.Read(*setting);
    if (!stored.ok()) return Complain(file, stored.error(), console);
    console.out() << (IsEmpty(stored.value()) ? setting->fallback
                                              : Printable(ShowStored(*setting, stored.value())))
                  << "\n";
    return kExitDone;
}

int Set(const Options& options, Console& console) {
    const Setting* setting = Named(options.name, console);
    if (setting == nullptr) return kExitUsage;
    SettingFile file;
    if (options.to_default) {
        const Status removed = file.Remove(*setting);
        return removed.ok() ? kExitDone : Complain(file, removed.error(), console);
    }
    const auto value = ParseSetting(*setting, options.value);
    if (!value.ok()) {
        console.Complain(
            {options.name, value.error().description, std::string("it is for: ") + setting->about});
        return kExitUsage;
    }
    const Status written = file.Write(value.value());
    return written.ok() ? kExitDone : Complain(file, written.error(), console);
}

void ShowSetting(const Setting& setting, const Variant& stored, const SettingFile& file,
                 Console& console) {
    const bool is_default = IsEmpty(stored);
    const std::string value = is_default ? setting.fallback : ShowStored(setting, stored);
    const Status usable = CheckStored(setting, stored);
    const std::string from = is_default ? "default" : file.path();
    if (console.json) {
        console.Event({{"event", "setting"},
                       {"name", setting.name},
                       {"value_name", setting.value_name},
                       {"value", value},
                       {"default", setting.fallback},
                       {"from", from},
                       {"usable", usable.ok()},
                       {"about", setting.about}});
        return;
    }
    std::ostream& out = console.out();
    out << setting.name << " (" << setting.value_name << "): " << setting.about << "\n"
        << "    value    " << Printable(value);
    if (!usable.ok()) out << "   ** not usable: " << Printable(usable.error().description);
    out << "\n    default  " << setting.fallback << "\n    from     " << from << "\n";
}

int List(const Options& options, Console& console) {
    console.json = options.json;
    SettingFile file;
    for (const Setting& setting : Settings()) {
        const auto stored = file.Read(setting);
        if (!stored.ok()) return Complain(file, stored.error(), console);
        ShowSetting(setting, stored.value(), file, console);
    }
    return console.EndWith(kExitDone);
}

int Import(const Options& options, Console& console) {
    SettingFile file;
    const Status imported = file.Import(AbsolutePath(options.file));
    return imported.ok() ? kExitDone : Complain(file, imported.error(), console);
}

int Export(const Options& options, Console& console) {
    SettingFile file;
    const auto text = file.Export();
    if (!text.ok()) return Complain(file, text.error(), console);
    if (options.file.empty() || options.file == "-") {
        console.out() << text.value();
        return kExitDone;
    }
    const Status written = SettingFile::WriteNew(AbsolutePath(options.file), text.value());
    if (written.ok()) return kExitDone;
    console.Complain({"config export", written.error().description,
                      "an existing file is never replaced; choose another name"});
    return kExitFailed;
}

std::string NameHelp() {
    std::string help = "Settings, by either name:";
    for (const Setting& setting : Settings()) {
        help +=
            "\n  " + PadRight(setting.name, 15) + PadRight(setting.value_name, 18) + setting.about;
    }
    return help;
}

}  // namespace

Runner AttachConfig(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.require_subcommand(1);
    app.footer(app.get_footer() + "\n\n" + NameHelp());

    CLI::App* get = AddSubCommand(app, "get", "Show the value of a setting", "config get SETTING",
                                  "trevixctl config get min-size");
    get->add_option("SETTING", options->name, "The setting")->required();

    CLI::App* set =
        AddSubCommand(app, "set", "Change a setting", "config set SETTING [VALUE] [--default]",
                      "trevixctl config set exclude .zip:.jpg:.gif\n"
                      "trevixctl config set exclude --default");
    set->add_option("SETTING", options->name, "The setting")->required();
    auto* value = set->add_option("VALUE", options->value, "Its new value");
    auto* to_default = set->add_flag("--default", options->to_default, "Back to the default");
    to_default->excludes(value);

    CLI::App* list = AddSubCommand(app, "list", "Show all settings", "config list [--json]",
                                   "trevixctl config list --json");
    list->add_flag("--json", options->json, "One JSON object a line");

    CLI::App* import = AddSubCommand(app, "import", "Take over a file in registry-editor form",
                                     "config import FILE", "trevixctl config import settings.reg");
    import->add_option("FILE", options->file, "The file")->required();

    CLI::App* save = AddSubCommand(app, "export", "Write the settings in registry-editor form",
                                   "config export [FILE]", "trevixctl config export settings.reg");
    save->add_option("FILE", options->file, "A new file (default: the standard output)");

    return [=](Console& console) {
        if (get->parsed()) return Get(*options, console);
        if (set->parsed() && value->count() + to_default->count() == 0) {
            console.Complain({"config set", "no value given", "give a VALUE, or --default"});
            return kExitUsage;
        }
        if (set->parsed()) return Set(*options, console);
        if (list->parsed()) return List(*options, console);
        if (import->parsed()) return Import(*options, console);
        return Export(*options, console);
    };
}

}  // namespace trevix::cli
