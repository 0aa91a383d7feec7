// RegOp: typed access to one registry key.
//
// The key is opened when it is first needed, and created when it is missing. All its values are
// read at once into a cache, from which reads are served; a write or a deletion empties the cache.
// A value is written with the type that it already has, else with one that suits what is written.
//
// Nothing fails visibly: a step that fails leaves its result at the neutral value (Empty, False,
// 0). What the class itself refuses is told to the callback, when option 8 is set.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/registry.h"
#include "platform/variant.h"

namespace trevix {

class RegOp {
 public:
    static constexpr std::int32_t kNumbersAsText = 1;
    static constexpr std::int32_t kMultiTextAsArray = 2;
    static constexpr std::int32_t kExpandEnvironment = 4;
    static constexpr std::int32_t kShowErrors = 8;

    // Shows one message to the user.
    using ShowError = std::function<void(const std::string&)>;

    RegOp(Registry& registry, Environment& environment, ShowError show_error = {});

    // Every root is kept as given; one outside the three predefined roots reopens the key even when
    // it is the root already.
    void Root(std::int32_t root);

    // An empty name and one that differs in case only are ignored. The first name does not open.
    void Key(const std::string& key);

    // 0 to 15; anything else leaves the options as they were.
    void Options(std::int32_t options);

    // The empty name is the key's default value. Empty when the value does not exist. Data of a
    // type that cannot be shown reads "(unsupported data format)".
    Variant Value(const std::string& value_name = {});

    // Does nothing for an Empty value, for an existing value of an unsupported type and for a value
    // that does not convert to the existing type.
    void Value(const std::string& value_name, const Variant& value);

    // Names with values, in the order of the registry.
    std::vector<std::pair<std::string, Variant>> AllValues();

    // Names of the sub-keys; one that could not be read is Empty.
    std::vector<Variant> AllKeys();

    bool DeleteValue(const std::string& value_name = {});

    // Deletes the last component of the key name; the object then stands on the key above. False
    // for a name of one component and for one that ends in a separator.
    bool DeleteKey();

    std::int32_t ValueCount();
    std::int32_t KeyCount();

 private:
    void OpenKey(std::int32_t root, const std::string& key);
    bool EnsureKeyOpen();
    void CloseKey();
    void RequestAccess(std::uint32_t access) { requested_access_ = access; }
    void QueryInfo();
    void LoadValues();
    void LoadValue(std::int32_t index);
    Variant DwordAt(std::int32_t index);
    bool FitsBuffers(const RegistryValue& value) const;
    void Keep(const std::string& name, Variant value);
    const Variant* Cached(const std::string& name) const;
    bool ConvertToExisting(const std::string& value_name, Variant& value);
    void Write(const std::string& value_name, const Variant& value);
    std::string ExpandEnvironment(const std::string& text);
    bool HasShellDelete() { return registry_.HasTreeDelete(); }
    bool HasEnvironmentReference(const std::string& text);
    void ReportError(const std::string& message);

    Registry& registry_;
    Environment& environment_;
    ShowError show_error_;
    std::int32_t root_;
    std::string key_name_;
    std::int32_t options_ = 0;
    std::unique_ptr<RegistryKey> key_;
    std::uint32_t requested_access_ = kKeyRead;
    std::uint32_t open_access_ = 0;
    RegistryKeyInfo info_;
    std::vector<std::pair<std::string, Variant>> cache_;
};

}  // namespace trevix
