// FakeRegistry: keys and values in memory. FakeEnvironment: environment entries by position.
//
// `keys` may be read and filled directly; a key's path is "root number:path", in the spelling of
// its first use. Put() is the short way to fill in a text.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fakes/fault_plan.h"
#include "platform/errors.h"
#include "platform/registry.h"

namespace trevix::fakes {

inline std::string FoldAscii(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

struct FakeRegistryKey {
    std::string path;
    std::vector<RegistryValue> values;
};

class FakeRegistry final : public Registry {
 public:
    explicit FakeRegistry(FaultPlan& plan) : plan_(plan) {}

    std::vector<FakeRegistryKey> keys;
    bool has_tree_delete = true;
    std::set<std::uint32_t> read_only_roots;

    static std::string PathOf(std::uint32_t root, const std::string& path) {
        return std::to_string(root) + ":" + path;
    }

    // Makes the key and, above it, what is missing.
    FakeRegistryKey& Make(const std::string& path) {
        const std::size_t end = path.rfind('\\');
        if (end != std::string::npos) Make(path.substr(0, end));
        if (FakeRegistryKey* key = Find(path)) return *key;
        keys.push_back({path, {}});
        return keys.back();
    }

    FakeRegistryKey* Find(const std::string& path) {
        const auto key = std::find_if(keys.begin(), keys.end(), [&](const FakeRegistryKey& one) {
            return FoldAscii(one.path) == FoldAscii(path);
        });
        return key == keys.end() ? nullptr : &*key;
    }

    void Put(std::uint32_t root, const std::string& path, const std::string& name,
             std::uint32_t type, const std::string& data) {
        Set(Make(PathOf(root, path)), name, type, data);
    }

    void PutText(std::uint32_t root, const std::string& path, const std::string& name,
                 const std::string& text) {
        Put(root, path, name, kRegSz, text + '\0');
    }

    // The value as it is stored; a null pointer when there is none.
    const RegistryValue* Stored(std::uint32_t root, const std::string& path,
                                const std::string& name) {
        FakeRegistryKey* key = Find(PathOf(root, path));
        return key == nullptr ? nullptr : FindValue(*key, name);
    }

    bool Has(std::uint32_t root, const std::string& path) {
        return Find(PathOf(root, path)) != nullptr;
    }

    Result<std::unique_ptr<RegistryKey>> CreateKey(std::uint32_t root, const std::string& path,
                                                   std::uint32_t access) override;
    bool HasTreeDelete() override {
        return plan_.Enter("registry.HasTreeDelete").ok() && has_tree_delete;
    }

    static RegistryValue* FindValue(FakeRegistryKey& key, const std::string& name) {
        for (RegistryValue& value : key.values) {
            if (FoldAscii(value.name) == FoldAscii(name)) return &value;
        }
        return nullptr;
    }

    static void Set(FakeRegistryKey& key, const std::string& name, std::uint32_t type,
                    const std::string& data) {
        RegistryValue* value = FindValue(key, name);
        if (value == nullptr) value = &key.values.emplace_back(RegistryValue{name, 0, {}});
        value->type = type;
        value->data = data;
    }

 private:
    FaultPlan& plan_;
};

class FakeOpenKey final : public RegistryKey {
 public:
    FakeOpenKey(FakeRegistry& registry, FaultPlan& plan, std::string path, std::uint32_t access)
        : registry_(registry), plan_(plan), path_(std::move(path)), access_(access) {}

    Result<RegistryKeyInfo> QueryInfo() override {
        const auto key = Enter("registry.QueryInfo", 0x1);
        if (!key.ok()) return key.error();
        RegistryKeyInfo info;
        for (const std::string& name : SubKeys(path_)) {
            ++info.sub_keys;
            info.longest_sub_key = std::max(info.longest_sub_key, Size(name));
        }
        for (const RegistryValue& value : key.value()->values) {
            ++info.values;
            info.longest_value_name = std::max(info.longest_value_name, Size(value.name));
            info.longest_value_data = std::max(info.longest_value_data, Size(value.data));
        }
        return info;
    }

    Result<RegistryValue> EnumValue(std::int32_t index) override {
        const auto key = Enter("registry.EnumValue", 0x1);
        if (!key.ok()) return key.error();
        const std::vector<RegistryValue>& values = key.value()->values;
        if (index < 0 || static_cast<std::size_t>(index) >= values.size()) return Missing();
        return values[static_cast<std::size_t>(index)];
    }

    Result<std::string> EnumKey(std::int32_t index) override {
        const auto key = Enter("registry.EnumKey", 0x8);
        if (!key.ok()) return key.error();
        const std::vector<std::string> names = SubKeys(path_);
        if (index < 0 || static_cast<std::size_t>(index) >= names.size()) return Missing();
        return names[static_cast<std::size_t>(index)];
    }

    Result<RegistryValue> QueryValue(const std::string& name) override {
        const auto key = Enter("registry.QueryValue", 0x1);
        if (!key.ok()) return key.error();
        const RegistryValue* value = FakeRegistry::FindValue(*key.value(), name);
        if (value == nullptr) return Missing();
        return *value;
    }

    Status SetValue(const std::string& name, std::uint32_t type, const std::string& data) override {
        const auto key = Enter("registry.SetValue", 0x2);
        if (!key.ok()) return key.error();
        FakeRegistry::Set(*key.value(), name, type, data);
        return {};
    }

    Status DeleteValue(const std::string& name) override {
        const auto key = Enter("registry.DeleteValue", 0x2);
        if (!key.ok()) return key.error();
        const RegistryValue* value = FakeRegistry::FindValue(*key.value(), name);
        if (value == nullptr) return Missing();
        std::erase_if(key.value()->values, [&](const RegistryValue& one) { return &one == value; });
        return {};
    }

    Status DeleteTree(const std::string& sub_key) override {
        const auto key = Enter("registry.DeleteTree", 0x10000);
        if (!key.ok()) return key.error();
        return Remove(sub_key);
    }

    Status DeleteKey(const std::string& sub_key) override {
        const auto key = Enter("registry.DeleteKey", 0x10000);
        if (!key.ok()) return key.error();
        if (!SubKeys(path_ + "\\" + sub_key).empty()) return RuntimeError(kPermissionDenied);
        return Remove(sub_key);
    }

 private:
    static std::int32_t Size(const std::string& text) {
        return static_cast<std::int32_t>(text.size());
    }

    static Error Missing() { return RuntimeError(kFileNotFound); }

    Result<FakeRegistryKey*> Enter(const char* call, std::uint32_t right) {
        TREVIX_RETURN_IF_ERROR(plan_.Enter(call));
        if ((access_ & right) == 0) return RuntimeError(kPermissionDenied);
        FakeRegistryKey* key = registry_.Find(path_);
        if (key != nullptr) return key;
        Error gone = Missing();
        gone.kind = ErrorKind::kGone;
        return gone;
    }

    std::vector<std::string> SubKeys(const std::string& path) {
        std::vector<std::string> names;
        for (const FakeRegistryKey& key : registry_.keys) {
            const std::size_t start = path.size() + 1;
            const bool below = FoldAscii(key.path).starts_with(FoldAscii(path) + "\\");
            if (below && key.path.find('\\', start) == std::string::npos) {
                names.push_back(key.path.substr(start));
            }
        }
        return names;
    }

    Status Remove(const std::string& sub_key) {
        if (sub_key.empty()) return RuntimeError(kInvalidCall);
        const std::string path = path_ + "\\" + sub_key;
        if (registry_.Find(path) == nullptr) return Missing();
        std::erase_if(registry_.keys, [&](const FakeRegistryKey& key) {
            return FoldAscii(key.path + "\\").starts_with(FoldAscii(path) + "\\");
        });
        return {};
    }

    FakeRegistry& registry_;
    FaultPlan& plan_;
    std::string path_;
    std::uint32_t access_;
};

inline Result<std::unique_ptr<RegistryKey>> FakeRegistry::CreateKey(std::uint32_t root,
                                                                    const std::string& path,
                                                                    std::uint32_t access) {
    TREVIX_RETURN_IF_ERROR(plan_.Enter("registry.CreateKey"));
    if (root < kClassesRoot || root > kLocalMachine) return RuntimeError(kFileNotFound);
    const std::string whole = PathOf(root, path);
    const bool read_only = read_only_roots.contains(root);
    const bool writes = (access & 0x10006U) != 0;
    if (read_only && (writes || Find(whole) == nullptr)) return RuntimeError(kPermissionDenied);
    Make(whole);
    return std::unique_ptr<RegistryKey>(std::make_unique<FakeOpenKey>(*this, plan_, whole, access));
}

class FakeEnvironment final : public Environment {
 public:
    std::vector<std::string> entries;  // "NAME=value"

    std::string Entry(int position) override {
        const auto at = static_cast<std::size_t>(position);
        return position < 1 || at > entries.size() ? std::string() : entries[at - 1];
    }

    std::string Expand(const std::string& text) override {
        std::string result;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t taken = ExpandAt(text, at, result);
            if (taken == 0) result += text[at];
            at += taken == 0 ? 1 : taken;
        }
        return result;
    }

 private:
    std::size_t ExpandAt(const std::string& text, std::size_t at, std::string& result) const {
        for (const std::string& entry : entries) {
            const std::size_t equals = entry.find('=');
            const std::string name = "%" + entry.substr(0, equals) + "%";
            if (FoldAscii(text.substr(at, name.size())) != FoldAscii(name)) continue;
            result += entry.substr(equals + 1);
            return name.size();
        }
        return 0;
    }
};

}  // namespace trevix::fakes
