#include "platform/mime/named_properties.h"

#include "platform/mime/ascii.h"

namespace trevix::mime {
namespace {

constexpr std::uint32_t kFirstNumber = 0x8000;
constexpr std::uint32_t kLastNumber = 0xFFFE;

}  // namespace

std::optional<PropertyTag> NamedProperties::TagOf(const std::string& set, const std::string& name,
                                                  std::uint16_t type) {
    const std::pair<std::string, std::string> key(CanonicalPropertySet(set), name);
    auto found = numbers_.find(key);
    if (found == numbers_.end()) {
        const auto number = static_cast<std::uint32_t>(kFirstNumber + names_.size());
        if (number > kLastNumber) return std::nullopt;
        names_.push_back({key.first, key.second});
        found = numbers_.emplace(key, number).first;
    }
    return found->second << 16U | type;
}

const NamedProperties::Name* NamedProperties::NameOf(PropertyTag tag) const {
    const std::uint32_t number = tag >> 16U;
    if (number < kFirstNumber || number - kFirstNumber >= names_.size()) return nullptr;
    return &names_[number - kFirstNumber];
}

std::string CanonicalPropertySet(const std::string& set) {
    std::string upper = AsciiUpper(set);
    if (upper.size() != 32 || upper.find_first_not_of("0123456789ABCDEF") != std::string::npos) {
        return upper;
    }
    // The first three fields of a GUID lie in memory with their lowest byte first.
    const auto byte = [&upper](std::size_t i) { return upper.substr(2 * i, 2); };
    return "{" + byte(3) + byte(2) + byte(1) + byte(0) + "-" + byte(5) + byte(4) + "-" + byte(7) +
           byte(6) + "-" + upper.substr(16, 4) + "-" + upper.substr(20) + "}";
}

}  // namespace trevix::mime
