// Conversions between the types of a Variant, and arithmetic that notices when it overflows.
//
// They follow the automation run-time: a fraction is rounded half to even, True is -1, Empty is
// zero, False or the empty text. What does not convert is kConversion (error 13), a number that
// does not fit is kOverflow (error 6).
#pragma once

#include <cstdint>
#include <string>

#include "platform/result.h"
#include "platform/variant.h"

namespace trevix {

// Number texts: blanks around, a sign, "$", "1,234", "1e3", "(5)" for -5, "&H10" and "&O17", the
// latter two as bit patterns of the target's width.
Result<std::int16_t> ToInteger(const Variant& value);
Result<std::int32_t> ToLong(const Variant& value);
Result<double> ToDouble(const Variant& value);

// A text is "True" or "False" in any case, or a number, which is true unless zero.
Result<bool> ToBoolean(const Variant& value);

// An ErrorValue reads "Error " and its signed number. Bytes and arrays do not convert.
Result<std::string> ToText(const Variant& value);

// Texts: "10/5/2007", "10/5/2007 3:04:05 PM", "15:04", "2007-10-05 15:04:05", or a number of days.
Result<Date> ToDate(const Variant& value);

// Add to `sum`, or fail with error 6 and leave it as it was.
Status AddLong(std::int32_t& sum, std::int64_t add);
Status AddInteger(std::int16_t& sum, std::int64_t add);

Result<std::int32_t> SubtractLong(std::int32_t from, std::int32_t what);

// A byte count as a Long, 2147483647 at most.
std::int32_t CapLong(std::uint64_t count);

}  // namespace trevix
