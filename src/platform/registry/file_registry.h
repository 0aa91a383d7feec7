// FileRegistry: the registry port over two registry-editor text files.
//
// HKEY_CURRENT_USER lives in the user's file, HKEY_LOCAL_MACHINE and HKEY_CLASSES_ROOT in the
// machine's; no other root exists. A file that cannot be written still serves its existing keys. A
// file with a syntax error serves nothing and is never overwritten.
//
// Names match without regard to the case of ASCII letters. Lengths of names count bytes, as the
// single-byte functions do.
#pragma once

#include <memory>
#include <string>

#include "platform/registry.h"

namespace trevix::registry {

class FileStore;

class FileRegistry final : public Registry {
 public:
    FileRegistry(const std::string& user_file, const std::string& machine_file);
    ~FileRegistry() override;

    Result<std::unique_ptr<RegistryKey>> CreateKey(std::uint32_t root, const std::string& path,
                                                   std::uint32_t access) override;
    bool HasTreeDelete() override { return true; }

 private:
    std::shared_ptr<FileStore> user_;
    std::shared_ptr<FileStore> machine_;
};

// $XDG_CONFIG_HOME/trevix/user.reg, by default below ~/.config.
std::string UserFilePath();

inline constexpr const char* kMachineFilePath = "/etc/trevix/machine.reg";

}  // namespace trevix::registry
