#include "cli/size_and_time.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <string_view>

#include "util/format.h"
#include "util/text.h"

namespace trevix::cli {
namespace {

// The whole of `text` as a number without a sign.
std::optional<int> ParseCount(std::string_view text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < 0) return std::nullopt;
    return number;
}

std::int64_t SecondsOf(char unit) {
    constexpr std::int64_t kMinute = 60;
    switch (unit) {
        case 's': return 1;
        case 'm': return kMinute;
        case 'h': return 60 * kMinute;
        case 'd': return 24 * 60 * kMinute;
        default: return 0;
    }
}

// "2007", "2007-10", "2007-10-05": the first day and the first one after it.
std::optional<Period> ParseCalendar(const std::string& text) {
    const StringArray pieces = Split(text, "-");
    if (pieces.empty() || pieces.size() > 3 || pieces[0].size() != 4) return std::nullopt;
    int numbers[3] = {0, 1, 1};
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const auto number = ParseCount(pieces[i]);
        if (!number || pieces[i].size() > 4) return std::nullopt;
        numbers[i] = *number;
    }
    const CivilTime begin{numbers[0], numbers[1], numbers[2]};
    // A day that does not exist carries over into the next month.
    const Date first = DateFromCivil(begin);
    if (begin.year < 100 || CivilFromDate(first) != begin) return std::nullopt;
    CivilTime end = begin;
    ++(pieces.size() == 1 ? end.year : pieces.size() == 2 ? end.month : end.day);
    return Period{UtcFromLocal(first), UtcFromLocal(DateFromCivil(end))};
}

// "3d", "2w", "6m", "1y".
std::optional<Period> ParseAgo(std::string_view text, Date now_utc) {
    if (text.ends_with(" ago")) text.remove_suffix(std::strlen(" ago"));
    if (text.size() < 2) return std::nullopt;
    const auto count = ParseCount(text.substr(0, text.size() - 1));
    constexpr int kLargest = 100000;
    if (!count || *count > kLargest) return std::nullopt;
    Date moment = now_utc;
    CivilTime civil = CivilFromDate(now_utc);
    const int day = civil.day;
    switch (text.back()) {
        case 'd': moment.days -= *count; return Period{moment, moment};
        case 'w': moment.days -= 7.0 * *count; return Period{moment, moment};
        case 'm': civil.month -= *count; break;
        case 'y': civil.year -= *count; break;
        default: return std::nullopt;
    }
    civil.day = 1;
    CivilTime month = CivilFromDate(DateFromCivil(civil));
    // The 31st of a shorter month is its last day.
    CivilTime next = month;
    next.month += 1;
    next.day = 0;
    const int last_day = CivilFromDate(DateFromCivil(next)).day;
    month.day = day < last_day ? day : last_day;
    moment = DateFromCivil(month);
    return Period{moment, moment};
}

}  // namespace

std::optional<std::int64_t> ParseSize(const std::string& text) {
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    if (error != std::errc() || !(number >= 0)) return std::nullopt;
    std::string unit = ToLower(std::string_view(stop, static_cast<std::size_t>(end - stop)));
    if (unit.ends_with('b')) unit.pop_back();
    constexpr std::string_view kUnits = "kmgt";
    if (!unit.empty()) {
        const std::size_t power = kUnits.find(unit[0]);
        if (unit.size() > 1 || power == std::string_view::npos) return std::nullopt;
        number = std::ldexp(number, 10 * (static_cast<int>(power) + 1));
    }
    constexpr double kLargest = 9e18;
    if (number > kLargest) return std::nullopt;
    return static_cast<std::int64_t>(number);
}

std::optional<std::int64_t> ParseDuration(const std::string& text) {
    constexpr std::int64_t kLongest = std::int64_t{366} * 24 * 60 * 60;
    std::int64_t seconds = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t unit = std::min(text.find_first_not_of("0123456789", at), text.size());
        const auto count = ParseCount(std::string_view(text).substr(at, unit - at));
        // A number alone is one of seconds, a number behind others is not.
        const bool has_unit = unit < text.size();
        const std::int64_t each = has_unit ? SecondsOf(text[unit]) : at == 0 ? 1 : 0;
        if (!count || each == 0) return std::nullopt;
        seconds += *count * each;
        if (seconds > kLongest) return std::nullopt;
        at = unit + 1;
    }
    return seconds > 0 ? std::optional(seconds * 1000) : std::nullopt;
}

std::optional<Period> ParsePeriod(const std::string& text, Date now_utc) {
    const auto calendar = ParseCalendar(text);
    return calendar ? calendar : ParseAgo(text, now_utc);
}

Date LocalFromUtc(Date utc) {
    const std::time_t seconds = UnixSecondsFromDate(utc);
    std::tm local{};
    if (::localtime_r(&seconds, &local) == nullptr) return utc;
    return DateFromCivil({local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                          local.tm_min, local.tm_sec});
}

Date UtcFromLocal(Date local) {
    const CivilTime civil = CivilFromDate(local);
    std::tm broken_down{};
    broken_down.tm_year = civil.year - 1900;
    broken_down.tm_mon = civil.month - 1;
    broken_down.tm_mday = civil.day;
    broken_down.tm_hour = civil.hour;
    broken_down.tm_min = civil.minute;
    broken_down.tm_sec = civil.second;
    broken_down.tm_isdst = -1;
    return DateFromUnixSeconds(::mktime(&broken_down));
}

}  // namespace trevix::cli
