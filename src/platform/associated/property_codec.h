// Property values as bytes and back, each with a code for its type.
#pragma once

#include <optional>
#include <string>

#include "platform/result.h"
#include "platform/variant.h"

namespace trevix::associated {

// Numbers of the file format: never change one, only add.
enum class ValueType {
    kEmpty = 0,
    kBool = 1,
    kInt16 = 2,
    kInt32 = 3,
    kDouble = 4,
    kDate = 5,
    kString = 6,
    kBytes = 7,
    kStrings = 8,
    kError = 9
};

struct StoredValue {
    ValueType type = ValueType::kEmpty;
    std::string bytes;
};

// Fails only when a Blob cannot be read.
Result<StoredValue> EncodeValue(const Variant& value);

// Nothing when the bytes are not of that type.
std::optional<Variant> DecodeValue(std::int64_t type, const std::string& bytes);

}  // namespace trevix::associated
