#include "platform/imap/date_time.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "platform/imap/ascii.h"

namespace trevix::imap {
namespace {

constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::int64_t kSecondsADay = 86'400;

std::int64_t SecondsOf(int hours, int minutes) {
    return (std::int64_t{hours} * 60 + minutes) * 60;
}

// A number of exactly `digits` digits; -1 when it is none.
int TakeDigits(std::string_view& text, std::size_t digits) {
    if (text.size() < digits) return -1;
    int number = 0;
    for (std::size_t at = 0; at < digits; ++at) {
        if (!IsDigit(text[at])) return -1;
        number = number * 10 + (text[at] - '0');
    }
    text.remove_prefix(digits);
    return number;
}

bool TakeMark(std::string_view& text, char mark) {
    if (text.empty() || text.front() != mark) return false;
    text.remove_prefix(1);
    return true;
}

unsigned TakeMonth(std::string_view& text) {
    for (unsigned at = 0; at < kMonths.size(); ++at) {
        if (SameLetters(text.substr(0, 3), kMonths[at])) {
            text.remove_prefix(3);
            return at + 1;
        }
    }
    return 0;
}

// " 3", "03", "13" or, from servers that do not fill, "3".
int TakeDay(std::string_view& text) {
    while (TakeMark(text, ' ')) {
    }
    const bool two = text.size() > 1 && IsDigit(text[1]);
    return TakeDigits(text, two ? 2 : 1);
}

struct Zone {
    bool valid = false;
    int minutes = 0;
};

Zone TakeZone(std::string_view& text) {
    const bool west = TakeMark(text, '-');
    if (!west && !TakeMark(text, '+')) return {};
    const int hours = TakeDigits(text, 2);
    const int minutes = TakeDigits(text, 2);
    if (hours < 0 || minutes < 0 || minutes > 59) return {};
    const int sum = hours * 60 + minutes;
    return {true, west ? -sum : sum};
}

}  // namespace

std::optional<DateTime> ParseDateTime(std::string_view text) {
    const int day = TakeDay(text);
    if (day < 1 || !TakeMark(text, '-')) return std::nullopt;
    const unsigned month = TakeMonth(text);
    if (month == 0 || !TakeMark(text, '-')) return std::nullopt;
    const int year = TakeDigits(text, 4);
    if (year < 0 || !TakeMark(text, ' ')) return std::nullopt;
    const int hour = TakeDigits(text, 2);
    if (hour < 0 || hour > 23 || !TakeMark(text, ':')) return std::nullopt;
    const int minute = TakeDigits(text, 2);
    if (minute < 0 || minute > 59 || !TakeMark(text, ':')) return std::nullopt;
    const int second = TakeDigits(text, 2);
    if (second < 0 || second > 60 || !TakeMark(text, ' ')) return std::nullopt;
    const Zone zone = TakeZone(text);
    if (!zone.valid || !text.empty()) return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok()) return std::nullopt;
    const std::int64_t days = std::chrono::sys_days{date}.time_since_epoch().count();
    return DateTime{
        days * kSecondsADay + SecondsOf(hour, minute) + second - SecondsOf(0, zone.minutes),
        zone.minutes};
}

std::string FormatDateTime(const DateTime& moment) {
    const std::int64_t local = moment.unix_seconds + std::int64_t{moment.zone_minutes} * 60;
    std::int64_t days = local / kSecondsADay;
    if (local % kSecondsADay < 0) --days;
    const int second = static_cast<int>(local - days * kSecondsADay);
    const std::chrono::year_month_day date{
        std::chrono::sys_days(std::chrono::days(static_cast<int>(days)))};
    const int zone = std::abs(moment.zone_minutes);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%2u-%s-%04d %02d:%02d:%02d %c%02d%02d",
                  static_cast<unsigned>(date.day()),
                  kMonths[static_cast<unsigned>(date.month()) - 1].data(),
                  static_cast<int>(date.year()), second / 3600, second / 60 % 60, second % 60,
                  moment.zone_minutes < 0 ? '-' : '+', zone / 60, zone % 60);
    return text.data();
}

}  // namespace trevix::imap
