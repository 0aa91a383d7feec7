#include "util/format.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace trevix {
namespace {

constexpr std::int64_t kFirstDay = -657434;  // 0100-01-01
constexpr std::int64_t kLastDay = 2958465;   // 9999-12-31
constexpr std::int64_t kUnixDay = 25569;     // 1970-01-01
constexpr std::int64_t kDaySeconds = 86400;

std::int64_t FloorDivide(std::int64_t value, std::int64_t by) {
    const std::int64_t quotient = value / by;
    return value % by < 0 ? quotient - 1 : quotient;
}

std::int64_t FloorRemainder(std::int64_t value, std::int64_t by) {
    const std::int64_t rest = value % by;
    return rest < 0 ? rest + by : rest;
}

// Seconds since day 0, rounded. The fraction of a date runs forward also before day 0.
std::int64_t SecondsOf(Date date) {
    if (std::isnan(date.days)) return 0;
    const double days = std::clamp(date.days, static_cast<double>(kFirstDay) - 1,
                                   static_cast<double>(kLastDay) + 1);
    const double whole = std::trunc(days);
    const double second = std::round(std::fabs(days - whole) * static_cast<double>(kDaySeconds));
    return std::clamp(
        static_cast<std::int64_t>(whole) * kDaySeconds + static_cast<std::int64_t>(second),
        kFirstDay * kDaySeconds, (kLastDay + 1) * kDaySeconds - 1);
}

// The date of a day and a fraction of it that is not negative.
Date DateOf(std::int64_t day, double fraction) {
    if (day < kFirstDay) return Date{static_cast<double>(kFirstDay)};
    if (day > kLastDay) return Date{static_cast<double>(kLastDay)};
    const auto whole = static_cast<double>(day);
    return Date{day < 0 ? whole - fraction : whole + fraction};
}

Date DateFromDayZeroSeconds(std::int64_t seconds) {
    const std::int64_t day = FloorDivide(seconds, kDaySeconds);
    return DateOf(day, static_cast<double>(FloorRemainder(seconds, kDaySeconds)) /
                           static_cast<double>(kDaySeconds));
}

// Days since day 0 of a Gregorian date. Years are counted from March, so that the leap day is the
// last one of its year and every month before it has a fixed start.
std::int64_t DayNumber(std::int64_t year, std::int64_t month, std::int64_t day) {
    year += FloorDivide(month - 1, 12);
    month = FloorRemainder(month - 1, 12) + 1;
    if (month < 3) --year;
    const std::int64_t from_march = (month + 9) % 12;
    const std::int64_t before = year * 365 + FloorDivide(year, 4) - FloorDivide(year, 100) +
                                FloorDivide(year, 400) + (from_march * 153 + 2) / 5;
    constexpr std::int64_t kDayZero = 693900;  // the same sum for 1899-12-30
    return before + day - kDayZero;
}

std::string TimeText(const CivilTime& civil) {
    std::array<char, 48> text{};
    const int hour = civil.hour % 12 == 0 ? 12 : civil.hour % 12;
    std::snprintf(text.data(), text.size(), "%d:%02d:%02d %s", hour, civil.minute, civil.second,
                  civil.hour < 12 ? "AM" : "PM");
    return text.data();
}

std::string DateText(const CivilTime& civil) {
    return std::to_string(civil.month) + "/" + std::to_string(civil.day) + "/" +
           std::to_string(civil.year);
}

// `count` / `unit` with `decimals` places, half away from zero. Whole numbers all the way, for a
// tie is exact and must not be lost in binary.
std::string Quotient(std::int64_t count, std::int64_t unit, int decimals) {
    std::int64_t scale = 1;
    for (int i = 0; i < decimals; ++i)
        scale *= 10;
    const std::int64_t scaled = (count * scale * 2 + unit) / (unit * 2);
    std::string text = std::to_string(scaled / scale);
    if (decimals > 0) {
        const std::string rest = std::to_string(scaled % scale);
        text += "." + std::string(static_cast<std::size_t>(decimals) - rest.size(), '0') + rest;
    }
    return text;
}

}  // namespace

bool IsValidDate(Date date) {
    return date.days > static_cast<double>(kFirstDay) - 1 &&
           date.days < static_cast<double>(kLastDay) + 1;
}

CivilTime CivilFromDate(Date date) {
    const std::int64_t seconds = SecondsOf(date);
    const std::int64_t day = FloorDivide(seconds, kDaySeconds);
    const std::int64_t second = FloorRemainder(seconds, kDaySeconds);

    // The year is guessed from the mean length and put right; the month likewise.
    std::int64_t year = 1899 + FloorDivide(day * 400, 146097);
    while (DayNumber(year + 1, 1, 1) <= day)
        ++year;
    while (DayNumber(year, 1, 1) > day)
        --year;
    std::int64_t month = 1;
    while (month < 12 && DayNumber(year, month + 1, 1) <= day)
        ++month;

    CivilTime civil;
    civil.year = static_cast<int>(year);
    civil.month = static_cast<int>(month);
    civil.day = static_cast<int>(day - DayNumber(year, month, 1) + 1);
    civil.hour = static_cast<int>(second / 3600);
    civil.minute = static_cast<int>(second / 60 % 60);
    civil.second = static_cast<int>(second % 60);
    return civil;
}

Date DateFromCivil(const CivilTime& civil) {
    const std::int64_t day = DayNumber(civil.year, civil.month, civil.day);
    return DateFromDayZeroSeconds(day * kDaySeconds + std::int64_t{civil.hour} * 3600 +
                                  std::int64_t{civil.minute} * 60 + civil.second);
}

Date DateFromUnixSeconds(std::int64_t seconds) {
    const std::int64_t day = FloorDivide(seconds, kDaySeconds);
    return DateOf(day + kUnixDay, static_cast<double>(FloorRemainder(seconds, kDaySeconds)) /
                                      static_cast<double>(kDaySeconds));
}

Date DateFromUnixNanoseconds(std::int64_t nanoseconds) {
    constexpr std::int64_t kDayNanoseconds = kDaySeconds * 1000000000;
    const std::int64_t day = FloorDivide(nanoseconds, kDayNanoseconds);
    return DateOf(day + kUnixDay,
                  static_cast<double>(FloorRemainder(nanoseconds, kDayNanoseconds)) /
                      static_cast<double>(kDayNanoseconds));
}

std::int64_t UnixSecondsFromDate(Date date) {
    return SecondsOf(date) - kUnixDay * kDaySeconds;
}

std::int64_t MinutesBetween(Date from, Date to) {
    return FloorDivide(SecondsOf(to), 60) - FloorDivide(SecondsOf(from), 60);
}

std::string FormatGeneralDate(Date date) {
    const std::int64_t seconds = SecondsOf(date);
    const CivilTime civil = CivilFromDate(date);
    if (FloorDivide(seconds, kDaySeconds) == 0) return TimeText(civil);
    if (seconds % kDaySeconds == 0) return DateText(civil);
    return DateText(civil) + " " + TimeText(civil);
}

std::string FormatLongDate(Date date) {
    constexpr std::array kDays = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                  "Thursday", "Friday", "Saturday"};
    constexpr std::array kMonths = {"January",   "February", "March",    "April",
                                    "May",       "June",     "July",     "August",
                                    "September", "October",  "November", "December"};
    constexpr std::int64_t kDayZero = 6;  // was a Saturday
    const std::int64_t day = FloorDivide(SecondsOf(date), kDaySeconds);
    const CivilTime civil = CivilFromDate(date);
    return std::string(kDays.at(static_cast<std::size_t>(FloorRemainder(day + kDayZero, 7)))) +
           ", " + kMonths.at(static_cast<std::size_t>(civil.month - 1)) + " " +
           std::to_string(civil.day) + ", " + std::to_string(civil.year) + " " + TimeText(civil);
}

std::string FormatThousands(std::int64_t number) {
    std::string text = std::to_string(number);
    const std::size_t first = number < 0 ? 1 : 0;
    for (std::size_t at = text.size(); at > first + 3;) {
        at -= 3;
        text.insert(at, 1, ',');
    }
    return text;
}

std::string SizeText(std::int32_t size_bytes) {
    struct Row {
        std::int64_t below;
        std::int64_t unit;
        int decimals;
        const char* name;
    };
    constexpr std::int64_t kUnit = 1024;
    // Deliberate: the thresholds look at the whole kilobytes, not at the rounded value, so that
    // 1,023,900 bytes read 1000KB.
    constexpr std::array kRows = {Row{10, kUnit, 2, "KB"},
                                  Row{100, kUnit, 1, "KB"},
                                  Row{1000, kUnit, 0, "KB"},
                                  Row{10000, kUnit * kUnit, 2, "MB"},
                                  Row{100000, kUnit * kUnit, 1, "MB"},
                                  Row{1000000, kUnit * kUnit, 0, "MB"},
                                  Row{INT64_MAX, kUnit * kUnit * kUnit, 2, "GB"}};
    const std::string count = FormatThousands(size_bytes) + " bytes";
    if (size_bytes < kUnit) return count;
    const auto* row = std::find_if(kRows.begin(), kRows.end(), [&](const Row& candidate) {
        return size_bytes / kUnit < candidate.below;
    });
    return Quotient(size_bytes, row->unit, row->decimals) + row->name + " (" + count + ")";
}

}  // namespace trevix
