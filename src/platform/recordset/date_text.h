// Dates as texts write them in criteria and assignments.
#pragma once

#include <optional>
#include <string_view>

namespace trevix::recordset {

// First and last moment that a date field takes, in days.
inline constexpr double kFirstDay = -657434;
inline constexpr double kDayAfterLast = 2958466;

// "month/day/year" or "year-month-day", each alone or followed by a time; or a time alone, which is
// one of the zero day. A time is "hour:minute" or "hour:minute:second", with AM or PM or neither.
std::optional<double> ParseDateText(std::string_view text);

}  // namespace trevix::recordset
