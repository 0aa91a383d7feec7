// Variant: one value of any type that a property, a record-set field or a setting can hold.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "platform/blob.h"

namespace trevix {

// Days since 1899-12-30 00:00, the fraction is the part of the day that has passed (also before
// that day: -1.25 is 1899-12-29 06:00). Carries no time zone; the place that makes one says which.
struct Date {
    double days = 0;
    friend bool operator==(const Date&, const Date&) = default;
    friend auto operator<=>(const Date&, const Date&) = default;  // NOLINT(modernize-use-nullptr)
};

// A cell that has no value but a reason (in a message table: a property that the row lacks).
struct ErrorValue {
    std::uint32_t code = 0;
    friend bool operator==(const ErrorValue&, const ErrorValue&) = default;
};

using Empty = std::monostate;
using StringArray = std::vector<std::string>;

// Strings are UTF-8. Bytes are a Blob. Integers keep their automation width.
using Variant = std::variant<Empty, bool, std::int16_t, std::int32_t, double, Date, std::string,
                             Blob, StringArray, ErrorValue>;

inline bool IsEmpty(const Variant& value) {
    return std::holds_alternative<Empty>(value);
}

}  // namespace trevix
