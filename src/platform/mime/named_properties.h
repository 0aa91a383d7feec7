// The numbers that named properties get for the life of a session.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/property_tags.h"

namespace trevix::mime {

class NamedProperties {
 public:
    struct Name {
        std::string set;  // braced form, upper case
        std::string name;
    };

    // The tag for the name with this type; made when the name is new. Nothing when no number is
    // left.
    std::optional<PropertyTag> TagOf(const std::string& set, const std::string& name,
                                     std::uint16_t type);

    // The name behind a tag; null when the tag is no named one.
    const Name* NameOf(PropertyTag tag) const;

 private:
    std::map<std::pair<std::string, std::string>, std::uint32_t> numbers_;
    std::vector<Name> names_;
};

// A property set as "{00020329-0000-0000-C000-000000000046}". Accepts this form in any case and the
// 32 hexadecimal digits of its bytes in the order of memory; anything else is kept as it is.
std::string CanonicalPropertySet(const std::string& set);

}  // namespace trevix::mime
