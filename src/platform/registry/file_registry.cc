#include "platform/registry/file_registry.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

#include "platform/errors.h"
#include "platform/registry/file_store.h"
#include "platform/registry/reg_document.h"

namespace trevix::registry {
namespace {

constexpr std::uint32_t kQueryValueRight = 0x0001;
constexpr std::uint32_t kSetValueRight = 0x0002;
constexpr std::uint32_t kEnumerateRight = 0x0008;
constexpr std::uint32_t kDeleteRight = 0x10000;
constexpr std::uint32_t kWriteRights = 0x0006;  // set values, create sub-keys

Error NotFound(const std::string& what) {
    return RuntimeError(kFileNotFound, what);
}

Error Denied(const std::string& what) {
    return RuntimeError(kPermissionDenied, what);
}

std::int32_t Count(std::size_t count) {
    return static_cast<std::int32_t>(std::min<std::size_t>(count, INT32_MAX));
}

class FileKey final : public RegistryKey {
 public:
    FileKey(std::shared_ptr<FileStore> store, std::string path, std::uint32_t access)
        : store_(std::move(store)), path_(std::move(path)), access_(access) {}

    Result<RegistryKeyInfo> QueryInfo() override;
    Result<RegistryValue> EnumValue(std::int32_t index) override;
    Result<std::string> EnumKey(std::int32_t index) override;
    Result<RegistryValue> QueryValue(const std::string& name) override;
    Status SetValue(const std::string& name, std::uint32_t type, const std::string& data) override;
    Status DeleteValue(const std::string& name) override;
    Status DeleteTree(const std::string& sub_key) override { return Delete(sub_key, true); }
    Status DeleteKey(const std::string& sub_key) override { return Delete(sub_key, false); }

 private:
    Result<const RegDocument*> Read(std::uint32_t right);
    Status Change(std::uint32_t right, const FileStore::Edit& edit);
    Status Delete(const std::string& sub_key, bool with_tree);

    // The key was deleted by somebody else since it was opened.
    Error Gone() const {
        Error error = NotFound(path_);
        error.kind = ErrorKind::kGone;
        return error;
    }

    std::shared_ptr<FileStore> store_;
    std::string path_;
    std::uint32_t access_;
};

Result<const RegDocument*> FileKey::Read(std::uint32_t right) {
    if ((access_ & right) == 0) return Denied(path_);
    Result<const RegDocument*> document = store_->Read();
    if (document.ok() && !document.value()->HasKey(path_)) return Gone();
    return document;
}

Status FileKey::Change(std::uint32_t right, const FileStore::Edit& edit) {
    if ((access_ & right) == 0) return Denied(path_);
    return store_->Change([&](RegDocument& document) -> Result<bool> {
        if (!document.HasKey(path_)) return Gone();
        return edit(document);
    });
}

Result<RegistryKeyInfo> FileKey::QueryInfo() {
    const Result<const RegDocument*> document = Read(kQueryValueRight);
    if (!document.ok()) return document.error();
    RegistryKeyInfo info;
    for (const std::string& name : document.value()->SubKeys(path_)) {
        ++info.sub_keys;
        info.longest_sub_key = std::max(info.longest_sub_key, Count(name.size()));
    }
    for (const RegistryValue& value : document.value()->Values(path_)) {
        ++info.values;
        info.longest_value_name = std::max(info.longest_value_name, Count(value.name.size()));
        info.longest_value_data = std::max(info.longest_value_data, Count(value.data.size()));
    }
    return info;
}

Result<RegistryValue> FileKey::EnumValue(std::int32_t index) {
    const Result<const RegDocument*> document = Read(kQueryValueRight);
    if (!document.ok()) return document.error();
    std::vector<RegistryValue> values = document.value()->Values(path_);
    if (index < 0 || index >= Count(values.size())) return NotFound(path_);
    return std::move(values[static_cast<std::size_t>(index)]);
}

Result<std::string> FileKey::EnumKey(std::int32_t index) {
    const Result<const RegDocument*> document = Read(kEnumerateRight);
    if (!document.ok()) return document.error();
    std::vector<std::string> names = document.value()->SubKeys(path_);
    if (index < 0 || index >= Count(names.size())) return NotFound(path_);
    return std::move(names[static_cast<std::size_t>(index)]);
}

Result<RegistryValue> FileKey::QueryValue(const std::string& name) {
    const Result<const RegDocument*> document = Read(kQueryValueRight);
    if (!document.ok()) return document.error();
    const std::string folded = Fold(name);
    for (RegistryValue& value : document.value()->Values(path_)) {
        if (Fold(value.name) == folded) return std::move(value);
    }
    return NotFound(path_ + "\\" + name);
}

Status FileKey::SetValue(const std::string& name, std::uint32_t type, const std::string& data) {
    if (!IsWritableName(name)) return RuntimeError(kInvalidCall, path_);
    return Change(kSetValueRight, [&](RegDocument& document) -> Result<bool> {
        return document.SetValue(path_, {name, type, data});
    });
}

Status FileKey::DeleteValue(const std::string& name) {
    return Change(kSetValueRight, [&](RegDocument& document) -> Result<bool> {
        if (!document.DeleteValue(path_, name)) return NotFound(path_ + "\\" + name);
        return true;
    });
}

Status FileKey::Delete(const std::string& sub_key, bool with_tree) {
    const std::string name = CleanPath(sub_key);
    if (name.empty()) return RuntimeError(kInvalidCall, path_);
    const std::string path = path_ + "\\" + name;
    return Change(kDeleteRight, [&](RegDocument& document) -> Result<bool> {
        if (!document.HasKey(path)) return NotFound(path);
        if (!with_tree && !document.SubKeys(path).empty()) return Denied(path);
        return document.DeleteTree(path);
    });
}

const char* RootName(std::uint32_t root) {
    switch (root) {
        case kClassesRoot: return "HKEY_CLASSES_ROOT";
        case kCurrentUser: return "HKEY_CURRENT_USER";
        case kLocalMachine: return "HKEY_LOCAL_MACHINE";
        default: return nullptr;
    }
}

}  // namespace

FileRegistry::FileRegistry(const std::string& user_file, const std::string& machine_file)
    : user_(std::make_shared<FileStore>(user_file)),
      machine_(std::make_shared<FileStore>(machine_file)) {}

FileRegistry::~FileRegistry() = default;

Result<std::unique_ptr<RegistryKey>> FileRegistry::CreateKey(std::uint32_t root,
                                                             const std::string& path,
                                                             std::uint32_t access) {
    const char* root_name = RootName(root);
    if (root_name == nullptr) return NotFound("root " + std::to_string(root));
    const std::string whole = CleanPath(std::string(root_name) + "\\" + path);
    if (!IsWritablePath(whole)) return RuntimeError(kInvalidCall, root_name);

    const std::shared_ptr<FileStore>& store = root == kCurrentUser ? user_ : machine_;
    const Result<const RegDocument*> document = store->Read();
    if (!document.ok()) return document.error();
    if (!document.value()->HasKey(whole)) {
        TREVIX_RETURN_IF_ERROR(store->Change([&](RegDocument& changed) -> Result<bool> {
            if (changed.HasKey(whole)) return false;
            changed.CreateKey(whole);
            return true;
        }));
    } else if ((access & (kWriteRights | kDeleteRight)) != 0 && !store->IsWritable()) {
        return Denied(store->path());
    }
    return std::unique_ptr<RegistryKey>(std::make_unique<FileKey>(store, whole, access));
}

std::string UserFilePath() {
    // A relative directory is not valid there and is ignored.
    const char* configured = std::getenv("XDG_CONFIG_HOME");
    if (configured != nullptr && configured[0] == '/') {
        return std::string(configured) + "/trevix/user.reg";
    }
    std::string home;
    if (const char* named = std::getenv("HOME")) home = named;
    if (home.empty()) {
        const passwd* entry = ::getpwuid(::geteuid());
        if (entry != nullptr && entry->pw_dir != nullptr) home = entry->pw_dir;
    }
    return home + "/.config/trevix/user.reg";
}

}  // namespace trevix::registry
