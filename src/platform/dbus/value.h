// The values that cross the bus here: five of its types.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace trevix::dbus {

inline constexpr char kBoolean = 'b';
inline constexpr char kInt32 = 'i';
inline constexpr char kInt64 = 'x';
inline constexpr char kString = 's';
inline constexpr char kObjectPath = 'o';

struct ObjectPath {
    std::string path;
    bool operator==(const ObjectPath&) const = default;
};

using Value = std::variant<bool, std::int32_t, std::int64_t, std::string, ObjectPath>;
using Values = std::vector<Value>;

// The type letter of a value.
char TypeOf(const Value& value);

}  // namespace trevix::dbus
