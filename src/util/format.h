// Dates and numbers as text, and the arithmetic of dates.
//
// All texts are those of an English (United States) system, whatever the locale of the process.
// Dates run from the year 100 to 9999; one outside (or not a number) is taken for the nearest end
// (for the zero date).
#pragma once

#include <cstdint>
#include <string>

#include "platform/variant.h"

namespace trevix {

struct CivilTime {
    int year = 1899;
    int month = 12;  // 1 to 12
    int day = 30;    // 1 to 31
    int hour = 0;
    int minute = 0;
    int second = 0;
    friend bool operator==(const CivilTime&, const CivilTime&) = default;
};

// Whether the date lies in the range above.
bool IsValidDate(Date date);

// Rounds to the second.
CivilTime CivilFromDate(Date date);

// Fields beyond their range carry over: month 13 is January of the next year, day 0 the last day
// of the month before.
Date DateFromCivil(const CivilTime& civil);

// Unix time counts from 1970-01-01; neither side knows of time zones.
Date DateFromUnixSeconds(std::int64_t seconds);
Date DateFromUnixNanoseconds(std::int64_t nanoseconds);  // keeps the fraction of the second
std::int64_t UnixSecondsFromDate(Date date);             // rounds to the second

// The number of minute boundaries from `from` to `to`; negative when `to` is earlier. Seconds do
// not matter: from 10:00:59 to 10:01:00 is 1.
std::int64_t MinutesBetween(Date from, Date to);

// "10/5/2007 3:04:05 PM"; without the time at midnight, without the date on day 0, so that the zero
// date reads "12:00:00 AM".
std::string FormatGeneralDate(Date date);

// "Friday, October 5, 2007 3:04:05 PM"
std::string FormatLongDate(Date date);

// Groups of three digits: "1,234,567".
std::string FormatThousands(std::int64_t number);

// A byte count for people: "1,000 bytes", "1.50KB (1,536 bytes)".
std::string SizeText(std::int32_t size_bytes);

}  // namespace trevix
