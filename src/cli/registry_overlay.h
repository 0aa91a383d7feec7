// RegistryOverlay: puts values in front of another registry, for this process only.
//
// An overlaid value hides the stored one of its name, whatever is written meanwhile; everything
// else goes through, in both directions, and the overlaid values are stored nowhere. They are there
// even when the registry behind cannot be opened for lack of permission; a store with a syntax
// error is still reported as one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/registry.h"

namespace trevix::cli {

struct OverlayValue {
    std::uint32_t root = kCurrentUser;
    std::string key;
    RegistryValue value;
};

class RegistryOverlay final : public Registry {
 public:
    RegistryOverlay(Registry& behind, std::vector<OverlayValue> values)
        : behind_(behind), values_(std::move(values)) {}

    Result<std::unique_ptr<RegistryKey>> CreateKey(std::uint32_t root, const std::string& path,
                                                   std::uint32_t access) override;
    bool HasTreeDelete() override { return behind_.HasTreeDelete(); }

 private:
    Registry& behind_;
    std::vector<OverlayValue> values_;
};

// A value of the add-in's key: a text, a number.
OverlayValue TextOverlay(const std::string& name, const std::string& text);
OverlayValue NumberOverlay(const std::string& name, std::int32_t number);

}  // namespace trevix::cli
