#include "cli/setting_table.h"

#include "cli/registry_overlay.h"
#include "shell/settings.h"
#include "util/convert.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

struct LevelName {
    const char* name;
    const char* token;
};

// Any token but the first three is the standard level.
constexpr LevelName kLevels[] = {{"ex", "-ex"}, {"ef", "-ef"}, {"es", "-es"}, {"std", "-std"}};

Error DoesNotFit(const std::string& why) {
    return {ErrorKind::kConversion, 0, why};
}

Result<RegistryValue> ParseNumber(const Setting& setting, const std::string& text) {
    constexpr const char* kDigits = "0123456789";
    if (text.empty() || text.find_first_not_of(kDigits) != std::string::npos) {
        return DoesNotFit("\"" + text + "\" is not a whole number of at least 0");
    }
    const auto number = ToLong(text);
    const bool fits = setting.kind == SettingKind::kInteger16 ? ToInteger(text).ok() : number.ok();
    if (!fits) return DoesNotFit(text + " is too large");
    return NumberOverlay(setting.value_name, number.value()).value;
}

Result<RegistryValue> ParseBoolean(const Setting& setting, const std::string& text) {
    for (const char* word : {"on", "yes", "true", "1"}) {
        if (EqualsNoCase(text, word)) return NumberOverlay(setting.value_name, 1).value;
    }
    for (const char* word : {"off", "no", "false", "0"}) {
        if (EqualsNoCase(text, word)) return NumberOverlay(setting.value_name, 0).value;
    }
    return DoesNotFit("\"" + text + "\" is neither \"on\" nor \"off\"");
}

Result<RegistryValue> ParseLevel(const Setting& setting, const std::string& text) {
    for (const LevelName& level : kLevels) {
        if (text == level.name || text == level.token) {
            return TextOverlay(setting.value_name, level.token).value;
        }
    }
    return DoesNotFit("\"" + text + "\" is none of ex, ef, es, std");
}

Result<RegistryValue> ParseExtensions(const Setting& setting, const std::string& text) {
    for (const std::string& extension : Split(text, ":")) {
        if (extension.size() > 1 && extension.front() == '.') continue;
        return DoesNotFit("\"" + extension +
                          "\" is no extension; write a list as \".zip:.jpg:.gif\"");
    }
    return TextOverlay(setting.value_name, text).value;
}

}  // namespace

const std::vector<Setting>& Settings() {
    static const std::vector<Setting> kSettings = {
        {"exclude", "ExcludeCompress", SettingKind::kExtensions, kDefaultExcludeCompress,
         "attachments that are not zipped, by extension: \".zip:.jpg\""},
        {"min-size", "ZipBytesCompress", SettingKind::kInteger32, "0",
         "bytes from which on an attachment is zipped"},
        {"rollup", "CombineCompress", SettingKind::kBoolean, "on",
         "one archive a message instead of one an attachment"},
        {"custom-items", "CustomItems", SettingKind::kBoolean, "off",
         "treat messages of custom classes as well"},
        {"level", "Level", SettingKind::kLevel, "std",
         "compression: ex smallest, std, ef fast, es fastest"},
        {"block", "Block", SettingKind::kExtensions, "(built-in list)",
         "dangerous attachments that are never zipped, by extension"},
        {"log-level", "ErrorLogLevel", SettingKind::kInteger16, "4",
         "what is logged: 1 errors, 2 warnings, 4 milestones, 8 details, 12 all"},
        {"log-size", "ErrorLogSize", SettingKind::kInteger32, "100000",
         "bytes that trevix.log may grow to; 0 writes none"},
        {"reset-folders", "ResetFolderRST", SettingKind::kBoolean, "off",
         "forget at the next run which messages were treated"},
        {"tray", "Tray", SettingKind::kPresence, "off",
         "programs other than trevixctl take these settings too"},
    };
    return kSettings;
}

const Setting* FindSetting(const std::string& name) {
    for (const Setting& setting : Settings()) {
        if (EqualsNoCase(name, setting.name) || EqualsNoCase(name, setting.value_name)) {
            return &setting;
        }
    }
    return nullptr;
}

Result<RegistryValue> ParseSetting(const Setting& setting, const std::string& text) {
    if (text.find('\0') != std::string::npos) return DoesNotFit("the text holds a NUL");
    switch (setting.kind) {
        case SettingKind::kInteger16:
        case SettingKind::kInteger32: return ParseNumber(setting, text);
        case SettingKind::kBoolean: return ParseBoolean(setting, text);
        case SettingKind::kLevel: return ParseLevel(setting, text);
        case SettingKind::kExtensions: return ParseExtensions(setting, text);
        case SettingKind::kText: return TextOverlay(setting.value_name, text).value;
        case SettingKind::kPresence: {
            auto value = ParseBoolean(setting, text);
            if (value.ok() && value.value().data.front() == 0) {
                return DoesNotFit("its mere presence turns it on; remove it with --default");
            }
            return value;
        }
    }
    return DoesNotFit("a setting of no known kind");
}

Variant DecodeStored(const RegistryValue& value) {
    if (value.type == kRegSz || value.type == kRegExpandSz) {
        return value.data.substr(0, value.data.find('\0'));
    }
    if (value.type == kRegDword && value.data.size() == 4) {
        std::uint32_t bits = 0;
        for (std::size_t i = 4; i-- > 0;) {
            bits = (bits << 8) | static_cast<unsigned char>(value.data[i]);
        }
        return static_cast<std::int32_t>(bits);
    }
    return std::string("(unsupported data format)");
}

Status CheckStored(const Setting& setting, const Variant& stored) {
    if (IsEmpty(stored)) return {};
    Status converted;
    const auto check = [&](const auto& result) {
        if (!result.ok()) converted = result.error();
    };
    switch (setting.kind) {
        case SettingKind::kInteger16: check(ToInteger(stored)); break;
        case SettingKind::kInteger32: check(ToLong(stored)); break;
        case SettingKind::kBoolean: check(ToBoolean(stored)); break;
        default: check(ToText(stored)); break;
    }
    if (converted.ok()) return {};
    const auto text = ToText(stored);
    std::string shown = text.ok() ? text.value() : "";
    if (converted.error().kind == ErrorKind::kOverflow) return DoesNotFit(shown + " is too large");
    return DoesNotFit("\"" + shown + "\" is not " +
                      (setting.kind == SettingKind::kBoolean ? "a yes or no" : "a number"));
}

std::string ShowStored(const Setting& setting, const Variant& stored) {
    const auto text = ToText(stored);
    const std::string shown = text.ok() ? text.value() : "";
    if (setting.kind == SettingKind::kPresence) return IsEmpty(stored) ? "off" : "on";
    if (setting.kind == SettingKind::kBoolean) {
        const auto flag = ToBoolean(stored);
        if (flag.ok()) return flag.value() ? "on" : "off";
    }
    if (setting.kind == SettingKind::kLevel) {
        for (const LevelName& level : kLevels) {
            if (shown == level.token) return level.name;
        }
        return "std";
    }
    return shown;
}

}  // namespace trevix::cli
