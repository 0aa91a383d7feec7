// The settings that the command line offers, by value name and by a name for people.
#pragma once

#include <string>
#include <vector>

#include "platform/registry.h"
#include "platform/result.h"
#include "platform/variant.h"

namespace trevix::cli {

enum class SettingKind { kInteger16, kInteger32, kText, kExtensions, kBoolean, kLevel, kPresence };

struct Setting {
    const char* name;        // for people: "min-size"
    const char* value_name;  // in the settings file: "ZipBytesCompress"
    SettingKind kind;
    const char* fallback;  // shown as the default
    const char* about;
};

const std::vector<Setting>& Settings();

// By either name, without regard to case. Null when there is none.
const Setting* FindSetting(const std::string& name);

// The value to store for what the user wrote; kConversion with the reason when it does not fit.
Result<RegistryValue> ParseSetting(const Setting& setting, const std::string& text);

// A stored value as the component reads it. Empty stays Empty.
Variant DecodeStored(const RegistryValue& value);

// Whether the component could use the stored value; kConversion with the reason when not.
Status CheckStored(const Setting& setting, const Variant& stored);

// The stored value as ParseSetting takes it.
std::string ShowStored(const Setting& setting, const Variant& stored);

}  // namespace trevix::cli
