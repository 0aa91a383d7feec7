// SettingFile: the user's settings file, read without touching it and changed as a whole.
#pragma once

#include <optional>
#include <string>

#include "cli/console.h"
#include "cli/setting_table.h"
#include "platform/registry.h"
#include "platform/registry/file_store.h"
#include "platform/result.h"
#include "platform/variant.h"

namespace trevix::cli {

class SettingFile {
 public:
    SettingFile();

    const std::string& path() const { return store_.path(); }

    // Empty when it is not set. kMalformed with file and line for a damaged file.
    Result<Variant> Read(const Setting& setting);

    // The first setting that would stop a log-on, or the reason why there is none to be read.
    std::optional<Complaint> FindUnusable();

    Status Write(const RegistryValue& value);

    // A setting that is not there is removed already.
    Status Remove(const Setting& setting);

    // Takes over all values for this user of a registry-editor file, in one change. Nothing is
    // changed when the file holds anything else, or a setting that could not be used.
    Status Import(const std::string& file);

    // The settings in registry-editor form.
    Result<std::string> Export();

    // kExists when there is something of that name.
    static Status WriteNew(const std::string& path, const std::string& text);

 private:
    registry::FileStore store_;
};

}  // namespace trevix::cli
