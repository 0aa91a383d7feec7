#include "platform/mime/value_conversion.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>

#include "platform/errors.h"
#include "platform/mime/ascii.h"
#include "platform/property_tags.h"

namespace trevix::mime {
namespace {

constexpr std::int64_t kSecondsOfDay = 86'400;

// Seconds since day 0 of the dates; nearest.
std::int64_t SecondsOf(Date date) {
    const double whole = std::trunc(date.days);
    const double fraction = std::abs(date.days - whole);
    return static_cast<std::int64_t>(whole) * kSecondsOfDay +
           std::llround(fraction * static_cast<double>(kSecondsOfDay));
}

std::string DateText(Date date) {
    const std::int64_t seconds = SecondsOf(date);
    std::int64_t day = seconds / kSecondsOfDay;
    std::int64_t second = seconds % kSecondsOfDay;
    if (second < 0) {
        second += kSecondsOfDay;
        --day;
    }
    const std::chrono::sys_days zero =
        std::chrono::year{1899} / std::chrono::December / std::chrono::day{30};
    const std::chrono::year_month_day ymd{zero + std::chrono::days(day)};
    const int hour = static_cast<int>(second / 3600);
    std::array<char, 64> date_text{};
    std::snprintf(date_text.data(), date_text.size(), "%u/%u/%d",
                  static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                  static_cast<int>(ymd.year()));
    std::array<char, 64> time_text{};
    std::snprintf(time_text.data(), time_text.size(), "%d:%02d:%02d %s",
                  hour % 12 == 0 ? 12 : hour % 12, static_cast<int>(second / 60 % 60),
                  static_cast<int>(second % 60), hour < 12 ? "AM" : "PM");
    if (second == 0 && day != 0) return date_text.data();
    if (day == 0) return time_text.data();
    return std::string(date_text.data()) + " " + time_text.data();
}

std::optional<double> Number(std::string_view text) {
    text = TrimBlanks(text);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) {
        return std::nullopt;
    }
    return value;
}

std::optional<Date> ParseDateText(const std::string& text) {
    int month = 0;
    int day = 0;
    int year = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::array<char, 3> half{};
    const int count = std::sscanf(text.c_str(), " %d/%d/%d %d:%d:%d %2s", &month, &day, &year,
                                  &hour, &minute, &second, half.data());
    if (count < 3) return std::nullopt;
    const std::chrono::year_month_day ymd{std::chrono::year{year},
                                          std::chrono::month{static_cast<unsigned>(month)},
                                          std::chrono::day{static_cast<unsigned>(day)}};
    if (!ymd.ok() || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 ||
        second > 59) {
        return std::nullopt;
    }
    if (EqualsIgnoringCase(half.data(), "PM") && hour < 12) hour += 12;
    if (EqualsIgnoringCase(half.data(), "AM") && hour == 12) hour = 0;
    const std::chrono::sys_days zero =
        std::chrono::year{1899} / std::chrono::December / std::chrono::day{30};
    const auto days = static_cast<double>((std::chrono::sys_days{ymd} - zero).count());
    const double fraction = (hour * 3600 + minute * 60 + second) / 86'400.0;
    return Date{days < 0 ? days - fraction : days + fraction};
}

std::optional<double> ToNumber(const Variant& value) {
    if (const auto* boolean = std::get_if<bool>(&value)) return *boolean ? -1.0 : 0.0;
    if (const auto* small = std::get_if<std::int16_t>(&value)) return *small;
    if (const auto* large = std::get_if<std::int32_t>(&value)) return *large;
    if (const auto* real = std::get_if<double>(&value)) return *real;
    if (const auto* date = std::get_if<Date>(&value)) return date->days;
    if (const auto* text = std::get_if<std::string>(&value)) return Number(*text);
    return std::nullopt;
}

Result<Variant> ToText(const Variant& value) {
    if (std::holds_alternative<std::string>(value)) return value;
    if (const auto* boolean = std::get_if<bool>(&value)) {
        return Variant(std::string(*boolean ? "True" : "False"));
    }
    if (const auto* date = std::get_if<Date>(&value)) return Variant(DateText(*date));
    const std::optional<double> number = ToNumber(value);
    if (!number.has_value()) return RuntimeError(kTypeMismatch);
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.15g", *number);
    return Variant(std::string(text.data()));
}

Result<Variant> ToInteger(const Variant& value, double least, double greatest, bool wide) {
    const std::optional<double> number = ToNumber(value);
    if (!number.has_value()) return RuntimeError(kTypeMismatch);
    const double rounded = std::nearbyint(*number);  // half to even
    if (!(rounded >= least && rounded <= greatest)) return RuntimeError(kOverflowNumber);
    if (wide) return Variant(static_cast<std::int32_t>(rounded));
    return Variant(static_cast<std::int16_t>(rounded));
}

Result<Variant> ToBoolean(const Variant& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        if (EqualsIgnoringCase(*text, "true")) return Variant(true);
        if (EqualsIgnoringCase(*text, "false")) return Variant(false);
    }
    const std::optional<double> number = ToNumber(value);
    if (!number.has_value()) return RuntimeError(kTypeMismatch);
    return Variant(*number != 0);
}

Result<Variant> ToTime(const Variant& value) {
    if (std::holds_alternative<Date>(value)) return value;
    if (const auto* text = std::get_if<std::string>(&value)) {
        if (const std::optional<Date> date = ParseDateText(*text)) return Variant(*date);
    }
    const std::optional<double> number = ToNumber(value);
    if (!number.has_value()) return RuntimeError(kTypeMismatch);
    return Variant(Date{*number});
}

}  // namespace

Result<Variant> ConvertTo(const Variant& value, std::uint16_t type) {
    if (IsEmpty(value)) return value;
    switch (type) {
        case kTypeInteger16: return ToInteger(value, -32768, 32767, false);
        case kTypeInteger32: return ToInteger(value, -2147483648.0, 2147483647.0, true);
        case kTypeBoolean: return ToBoolean(value);
        case kTypeString8:
        case 0x001F: return ToText(value);
        case kTypeTime: return ToTime(value);
        default: return value;
    }
}

}  // namespace trevix::mime
