#include "cli/setting_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/errors.h"
#include "platform/posix/posix_file_system.h"
#include "platform/registry/file_registry.h"
#include "platform/registry/utf16.h"
#include "platform/unique_descriptor.h"
#include "shell/settings.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

constexpr const char* kUserRoot = "HKEY_CURRENT_USER";

std::string KeyPath() {
    return std::string(kUserRoot) + "\\" + kAddinKey;
}

Error Refused(const std::string& file, const std::string& why) {
    return {ErrorKind::kMalformed, 0, file + ": " + why};
}

struct KeyedValue {
    std::string key;
    RegistryValue value;
};

void CollectValues(const registry::RegDocument& document, const std::string& key,
                   std::vector<KeyedValue>& found) {
    for (RegistryValue& value : document.Values(key)) {
        found.push_back({key, std::move(value)});
    }
    for (const std::string& sub_key : document.SubKeys(key)) {
        CollectValues(document, key + "\\" + sub_key, found);
    }
}

// Reading takes deletion lines as done, so they would be lost without a word.
Status RefuseDeletions(const std::string& bytes, const std::string& file) {
    const bool is_utf16 = bytes.starts_with("\xFF\xFE");
    const std::string text = is_utf16 ? registry::Utf8FromUtf16(bytes.substr(2)) : bytes;
    int number = 0;
    for (std::string line : Split(text, "\n")) {
        ++number;
        if (line.ends_with('\r')) line.pop_back();
        line = TrimBlanks(line);
        if (!line.starts_with("[-") && !line.ends_with("\"=-") && line != "@=-") continue;
        return Refused(file + ":" + std::to_string(number),
                       "lines that delete are not taken over; use \"config set NAME --default\"");
    }
    return {};
}

Status CheckImported(const std::vector<KeyedValue>& values, const std::string& file) {
    for (const KeyedValue& one : values) {
        if (!EqualsNoCase(one.key, KeyPath())) continue;
        const Setting* setting = FindSetting(one.value.name);
        if (setting == nullptr || !EqualsNoCase(one.value.name, setting->value_name)) continue;
        const Status usable = CheckStored(*setting, DecodeStored(one.value));
        if (usable.ok()) continue;
        return Refused(file, one.value.name + ": " + usable.error().description);
    }
    return {};
}

Result<std::vector<KeyedValue>> ReadImport(const std::string& file) {
    posix::PosixFileSystem files;
    const auto bytes = files.ReadText(file);
    if (!bytes.ok()) return bytes.error();
    const auto document = registry::RegDocument::Parse(bytes.value(), file);
    if (!document.ok()) return document.error();
    TREVIX_RETURN_IF_ERROR(RefuseDeletions(bytes.value(), file));
    for (const char* root : {"HKEY_LOCAL_MACHINE", "HKEY_CLASSES_ROOT"}) {
        if (document.value().SubKeys(root).empty() && document.value().Values(root).empty()) {
            continue;
        }
        return Refused(file, std::string("it holds ") + root +
                                 "; only settings of this user can be taken over");
    }
    std::vector<KeyedValue> values;
    CollectValues(document.value(), kUserRoot, values);
    TREVIX_RETURN_IF_ERROR(CheckImported(values, file));
    return values;
}

}  // namespace

SettingFile::SettingFile() : store_(registry::UserFilePath()) {}

Result<Variant> SettingFile::Read(const Setting& setting) {
    const auto document = store_.Read();
    if (!document.ok()) return document.error();
    for (const RegistryValue& value : document.value()->Values(KeyPath())) {
        if (EqualsNoCase(value.name, setting.value_name)) return DecodeStored(value);
    }
    return Variant();
}

std::optional<Complaint> SettingFile::FindUnusable() {
    for (const Setting& setting : Settings()) {
        const auto stored = Read(setting);
        // The description of a syntax error begins with the file and the line.
        if (!stored.ok()) {
            return Complaint{"settings", stored.error().description,
                             "correct " + path() + " by hand, or move it away to start anew"};
        }
        const Status usable = CheckStored(setting, stored.value());
        if (usable.ok()) continue;
        const std::string name = setting.name;
        return Complaint{path(),
                         std::string(setting.value_name) + ": " + usable.error().description,
                         "set it anew with \"trevixctl config set " + name +
                             " VALUE\", or to its default with \"--default\""};
    }
    return std::nullopt;
}

Status SettingFile::Write(const RegistryValue& value) {
    return store_.Change([&](registry::RegDocument& document) -> Result<bool> {
        return document.SetValue(KeyPath(), value);
    });
}

Status SettingFile::Remove(const Setting& setting) {
    return store_.Change([&](registry::RegDocument& document) -> Result<bool> {
        return document.DeleteValue(KeyPath(), setting.value_name);
    });
}

Status SettingFile::Import(const std::string& file) {
    const auto values = ReadImport(file);
    if (!values.ok()) return values.error();
    return store_.Change([&](registry::RegDocument& document) -> Result<bool> {
        bool changed = false;
        for (const KeyedValue& one : values.value()) {
            changed = document.SetValue(one.key, one.value) || changed;
        }
        return changed;
    });
}

Result<std::string> SettingFile::Export() {
    const auto document = store_.Read();
    if (!document.ok()) return document.error();
    registry::RegDocument exported;
    exported.CreateKey(KeyPath());
    for (const RegistryValue& value : document.value()->Values(KeyPath())) {
        exported.SetValue(KeyPath(), value);
    }
    return exported.Format();
}

Status SettingFile::WriteNew(const std::string& path, const std::string& text) {
    UniqueDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.valid()) return SystemError(errno, path);
    file.Reset();
    posix::PosixFileSystem files;
    return files.WriteText(path, text);
}

}  // namespace trevix::cli
