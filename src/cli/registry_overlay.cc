#include "cli/registry_overlay.h"

#include <algorithm>

#include "shell/settings.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

class OverlayKey final : public RegistryKey {
 public:
    // `behind` is null when the key could not be opened; `failure` then says why.
    OverlayKey(std::unique_ptr<RegistryKey> behind, Error failure,
               std::vector<RegistryValue> overlaid)
        : behind_(std::move(behind)),
          failure_(std::move(failure)),
          overlaid_(std::move(overlaid)) {}

    Result<RegistryKeyInfo> QueryInfo() override;
    Result<RegistryValue> EnumValue(std::int32_t index) override;
    Result<RegistryValue> QueryValue(const std::string& name) override;

    Result<std::string> EnumKey(std::int32_t index) override {
        if (behind_ == nullptr) return failure_;
        return behind_->EnumKey(index);
    }
    Status SetValue(const std::string& name, std::uint32_t type, const std::string& data) override {
        return behind_ == nullptr ? Status(failure_) : behind_->SetValue(name, type, data);
    }
    Status DeleteValue(const std::string& name) override {
        return behind_ == nullptr ? Status(failure_) : behind_->DeleteValue(name);
    }
    Status DeleteTree(const std::string& sub_key) override {
        return behind_ == nullptr ? Status(failure_) : behind_->DeleteTree(sub_key);
    }
    Status DeleteKey(const std::string& sub_key) override {
        return behind_ == nullptr ? Status(failure_) : behind_->DeleteKey(sub_key);
    }

 private:
    const RegistryValue* Overlaid(const std::string& name) const;
    std::vector<RegistryValue> Merged();

    std::unique_ptr<RegistryKey> behind_;
    Error failure_;
    std::vector<RegistryValue> overlaid_;
};

const RegistryValue* OverlayKey::Overlaid(const std::string& name) const {
    const auto found =
        std::find_if(overlaid_.begin(), overlaid_.end(),
                     [&](const RegistryValue& value) { return EqualsNoCase(value.name, name); });
    return found == overlaid_.end() ? nullptr : &*found;
}

// The stored values that are not hidden, then ours.
std::vector<RegistryValue> OverlayKey::Merged() {
    std::vector<RegistryValue> merged;
    for (std::int32_t index = 0; behind_ != nullptr; ++index) {
        auto value = behind_->EnumValue(index);
        if (!value.ok()) break;
        if (Overlaid(value.value().name) == nullptr) merged.push_back(std::move(value).value());
    }
    merged.insert(merged.end(), overlaid_.begin(), overlaid_.end());
    return merged;
}

Result<RegistryKeyInfo> OverlayKey::QueryInfo() {
    RegistryKeyInfo info;
    if (behind_ != nullptr) {
        const auto stored = behind_->QueryInfo();
        if (!stored.ok()) return stored.error();
        info.sub_keys = stored.value().sub_keys;
        info.longest_sub_key = stored.value().longest_sub_key;
    }
    for (const RegistryValue& value : Merged()) {
        ++info.values;
        info.longest_value_name =
            std::max(info.longest_value_name, static_cast<std::int32_t>(value.name.size()));
        info.longest_value_data =
            std::max(info.longest_value_data, static_cast<std::int32_t>(value.data.size()));
    }
    return info;
}

Result<RegistryValue> OverlayKey::EnumValue(std::int32_t index) {
    std::vector<RegistryValue> merged = Merged();
    if (index < 0 || static_cast<std::size_t>(index) >= merged.size()) {
        return Error{ErrorKind::kNotFound, 0, "no more values"};
    }
    return std::move(merged[static_cast<std::size_t>(index)]);
}

Result<RegistryValue> OverlayKey::QueryValue(const std::string& name) {
    if (const RegistryValue* value = Overlaid(name)) return *value;
    if (behind_ == nullptr) return failure_;
    return behind_->QueryValue(name);
}

}  // namespace

Result<std::unique_ptr<RegistryKey>> RegistryOverlay::CreateKey(std::uint32_t root,
                                                                const std::string& path,
                                                                std::uint32_t access) {
    std::vector<RegistryValue> overlaid;
    for (const OverlayValue& one : values_) {
        if (one.root == root && EqualsNoCase(one.key, path)) overlaid.push_back(one.value);
    }
    auto behind = behind_.CreateKey(root, path, access);
    if (overlaid.empty()) return behind;
    if (!behind.ok() && behind.error().kind == ErrorKind::kMalformed) return behind;
    std::unique_ptr<RegistryKey> key;
    Error failure;
    if (behind.ok()) {
        key = std::move(behind).value();
    } else {
        failure = behind.error();
    }
    return std::unique_ptr<RegistryKey>(
        std::make_unique<OverlayKey>(std::move(key), std::move(failure), std::move(overlaid)));
}

OverlayValue TextOverlay(const std::string& name, const std::string& text) {
    return {kCurrentUser, kAddinKey, {name, kRegSz, text + '\0'}};
}

OverlayValue NumberOverlay(const std::string& name, std::int32_t number) {
    std::string data;
    const auto bits = static_cast<std::uint32_t>(number);
    for (int shift = 0; shift < 32; shift += 8) {
        data.push_back(static_cast<char>((bits >> shift) & 0xFF));
    }
    return {kCurrentUser, kAddinKey, {name, kRegDword, data}};
}

}  // namespace trevix::cli
