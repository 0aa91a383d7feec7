// Conversion of property values between the types of named properties.
#pragma once

#include <cstdint>

#include "platform/result.h"
#include "platform/variant.h"

namespace trevix::mime {

// The value as the type asks for; types without a rule give the value as it is. kConversion
// (error 13) or kOverflow (error 6) when it does not fit.
Result<Variant> ConvertTo(const Variant& value, std::uint16_t type);

}  // namespace trevix::mime
