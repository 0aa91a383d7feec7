#include "util/convert.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>

#include "platform/errors.h"
#include "util/format.h"
#include "util/text.h"

namespace trevix {
namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

std::string_view TrimWhite(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool TakePrefix(std::string_view& text, char c) {
    if (text.empty() || text.front() != c) return false;
    text.remove_prefix(1);
    return true;
}

// "&H10", "&O17": the bit pattern, when the text is one.
std::optional<std::uint64_t> ParseBits(std::string_view text) {
    text = TrimWhite(text);
    if (text.size() < 3 || text[0] != '&') return {};
    const char kind = text[1];
    const bool hexadecimal = kind == 'h' || kind == 'H';
    if (!hexadecimal && kind != 'o' && kind != 'O') return {};
    std::uint64_t bits = 0;
    const char* end = text.data() + text.size();
    const auto [stop, code] = std::from_chars(text.data() + 2, end, bits, hexadecimal ? 16 : 8);
    if (code == std::errc::result_out_of_range) return std::numeric_limits<std::uint64_t>::max();
    if (code != std::errc() || stop != end) return {};
    return bits;
}

// The exponent at the start of `text`, which becomes the rest: "e3", "E-2", "d+4".
bool TakeExponent(std::string_view& text, std::string& plain) {
    if (text.empty() || std::string_view("eEdD").find(text.front()) == std::string_view::npos) {
        return true;
    }
    text.remove_prefix(1);
    plain += 'e';
    if (TakePrefix(text, '-')) {
        plain += '-';
    } else {
        TakePrefix(text, '+');
    }
    if (text.empty() || !IsDigit(text.front())) return false;
    while (!text.empty() && IsDigit(text.front())) {
        plain += text.front();
        text.remove_prefix(1);
    }
    return true;
}

// Digits with thousands separators, a fraction and an exponent, in the form that from_chars reads.
std::optional<std::string> PlainNumber(std::string_view text) {
    std::string plain;
    bool has_digits = false;
    while (!text.empty() && (IsDigit(text.front()) || (has_digits && text.front() == ','))) {
        if (text.front() != ',') plain += text.front();
        has_digits = true;
        text.remove_prefix(1);
    }
    if (TakePrefix(text, '.')) {
        plain += '.';
        while (!text.empty() && IsDigit(text.front())) {
            plain += text.front();
            has_digits = true;
            text.remove_prefix(1);
        }
    }
    if (!has_digits || !TakeExponent(text, plain) || !text.empty()) return {};
    return plain;
}

Result<double> ParseNumber(std::string_view text) {
    text = TrimWhite(text);
    if (const auto bits = ParseBits(text)) return static_cast<double>(*bits);
    bool negative = false;
    if (text.size() > 1 && text.front() == '(' && text.back() == ')') {
        negative = true;
        text = TrimWhite(text.substr(1, text.size() - 2));
    }
    bool has_sign = negative;
    bool has_currency = false;
    for (bool taken = true; taken;) {
        taken = false;
        if (!has_currency && TakePrefix(text, '$')) taken = has_currency = true;
        if (!has_sign && TakePrefix(text, '-')) taken = has_sign = negative = true;
        if (!has_sign && TakePrefix(text, '+')) taken = has_sign = true;
        if (taken) text = TrimWhite(text);
    }
    const std::optional<std::string> plain = PlainNumber(text);
    if (!plain) return RuntimeError(kTypeMismatch);
    double number = 0;
    const char* end = plain->data() + plain->size();
    const auto [stop, code] = std::from_chars(plain->data(), end, number);
    if (code == std::errc::result_out_of_range) {
        // Too small a number is zero, too large a one does not fit.
        const bool small = plain->find("e-") != std::string::npos;
        return small ? Result<double>(0.0) : Result<double>(RuntimeError(kOverflowNumber));
    }
    if (code != std::errc() || (stop != end && *stop != '.')) return RuntimeError(kTypeMismatch);
    return negative ? -number : number;
}

// Half to even, whatever rounding mode the process is in.
double RoundHalfEven(double number) {
    const double below = std::floor(number);
    const double over = number - below;
    if (over < 0.5) return below;
    if (over > 0.5) return below + 1;
    return std::fmod(below, 2) == 0 ? below : below + 1;
}

template <typename Whole>
Result<Whole> WholeFrom(const Variant& value) {
    using Bits = std::make_unsigned_t<Whole>;
    if (const auto* text = std::get_if<std::string>(&value)) {
        if (const auto bits = ParseBits(*text)) {
            if (*bits > std::numeric_limits<Bits>::max()) return RuntimeError(kOverflowNumber);
            return static_cast<Whole>(static_cast<Bits>(*bits));
        }
    }
    Result<double> number = ToDouble(value);
    if (!number.ok()) return number.error();
    const double rounded = RoundHalfEven(number.value());
    const bool fits = rounded >= static_cast<double>(std::numeric_limits<Whole>::min()) &&
                      rounded <= static_cast<double>(std::numeric_limits<Whole>::max());
    if (!fits) return RuntimeError(kOverflowNumber);
    return static_cast<Whole>(rounded);
}

// Fifteen significant digits without trailing zeros; with an exponent from 1E+15 upward and where
// more than fifteen decimals would be needed.
std::string DoubleText(double number) {
    if (number == 0) return "0";
    std::array<char, 40> buffer{};
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), std::fabs(number),
                                   std::chars_format::scientific, 14)
                         .ptr;
    const std::string text(buffer.data(), end);  // d.dddddddddddddde+XX
    const std::size_t mark = text.find('e');
    if (mark == std::string::npos) return text;  // infinite or not a number
    std::string digits = text.substr(0, 1) + text.substr(2, mark - 2);
    digits.erase(digits.find_last_not_of('0') + 1);
    const int exponent = std::stoi(text.substr(mark + 1));
    const int decimals = static_cast<int>(digits.size()) - 1 - exponent;

    std::string result = number < 0 ? "-" : "";
    if (exponent >= 15 || decimals > 15) {
        result += digits.substr(0, 1);
        if (digits.size() > 1) result += "." + digits.substr(1);
        const std::string power = std::to_string(std::abs(exponent));
        return result + (exponent < 0 ? "E-" : "E+") + (power.size() < 2 ? "0" : "") + power;
    }
    if (exponent < 0) {
        return result + "0." + std::string(static_cast<std::size_t>(-exponent - 1), '0') + digits;
    }
    const auto whole = static_cast<std::size_t>(exponent) + 1;
    if (digits.size() <= whole) return result + digits + std::string(whole - digits.size(), '0');
    return result + digits.substr(0, whole) + "." + digits.substr(whole);
}

// A number of at most `width` digits at the start of `text`, which becomes the rest.
std::optional<int> TakeNumber(std::string_view& text, std::size_t width) {
    std::size_t count = 0;
    int number = 0;
    while (count < text.size() && IsDigit(text[count])) {
        if (++count > width) return {};
        number = number * 10 + (text[count - 1] - '0');
    }
    if (count == 0) return {};
    text.remove_prefix(count);
    return number;
}

int DaysInMonth(int year, int month) {
    constexpr std::array kDays = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[static_cast<std::size_t>(month) - 1];
}

// "10/5/2007" or "2007-10-05" at the start of `text`, which becomes the rest. Two-digit years are
// those from 1930 to 2029.
bool TakeDay(std::string_view& text, CivilTime& civil) {
    const auto first = TakeNumber(text, 4);
    if (!first || text.empty()) return false;
    const char separator = text.front();
    if (separator != '/' && separator != '-') return false;
    text.remove_prefix(1);
    const auto second = TakeNumber(text, 2);
    if (!second || !TakePrefix(text, separator)) return false;
    const auto third = TakeNumber(text, 4);
    if (!third) return false;
    const bool year_first = *first > 31;
    civil.year = year_first ? *first : *third;
    civil.month = year_first ? *second : *first;
    civil.day = year_first ? *third : *second;
    if (!year_first && civil.month > 12) std::swap(civil.month, civil.day);
    if (civil.year < 30) civil.year += 2000;
    if (civil.year < 100) civil.year += 1900;
    return civil.year >= 100 && civil.month >= 1 && civil.month <= 12 && civil.day >= 1 &&
           civil.day <= DaysInMonth(civil.year, civil.month);
}

// "15:04", "3:04:05 PM".
bool ParseTime(std::string_view text, CivilTime& civil) {
    const auto hour = TakeNumber(text, 2);
    if (!hour || !TakePrefix(text, ':')) return false;
    const auto minute = TakeNumber(text, 2);
    if (!minute) return false;
    std::optional<int> second = 0;
    if (TakePrefix(text, ':')) second = TakeNumber(text, 2);
    if (!second) return false;
    civil.hour = *hour;
    civil.minute = *minute;
    civil.second = *second;
    text = TrimWhite(text);
    if (!text.empty()) {
        const bool evening = EqualsNoCase(text, "PM");
        if (!evening && !EqualsNoCase(text, "AM")) return false;
        if (civil.hour < 1 || civil.hour > 12) return false;
        civil.hour = civil.hour % 12 + (evening ? 12 : 0);
    }
    return civil.hour < 24 && civil.minute < 60 && civil.second < 60;
}

Result<Date> DateFromNumber(double days) {
    if (!IsValidDate(Date{days})) return RuntimeError(kOverflowNumber);
    return Date{days};
}

Result<Date> ParseDate(std::string_view text) {
    text = TrimWhite(text);
    Result<double> number = ParseNumber(text);
    if (number.ok()) return DateFromNumber(number.value());
    CivilTime civil;
    std::string_view rest = text;
    if (TakeDay(rest, civil)) {
        if (!rest.empty() && rest.front() != ' ' && rest.front() != 'T') {
            return RuntimeError(kTypeMismatch);
        }
        rest.remove_prefix(rest.empty() ? 0 : 1);
        rest = TrimWhite(rest);
        if (rest.empty()) return DateFromCivil(civil);
    } else {
        civil = CivilTime();
        rest = text;
    }
    if (!ParseTime(rest, civil)) return RuntimeError(kTypeMismatch);
    return DateFromCivil(civil);
}

}  // namespace

Result<double> ToDouble(const Variant& value) {
    if (IsEmpty(value)) return 0.0;
    if (const auto* flag = std::get_if<bool>(&value)) return *flag ? -1.0 : 0.0;
    if (const auto* number = std::get_if<std::int16_t>(&value)) return static_cast<double>(*number);
    if (const auto* number = std::get_if<std::int32_t>(&value)) return static_cast<double>(*number);
    if (const auto* number = std::get_if<double>(&value)) return *number;
    if (const auto* date = std::get_if<Date>(&value)) return date->days;
    if (const auto* text = std::get_if<std::string>(&value)) return ParseNumber(*text);
    return RuntimeError(kTypeMismatch);
}

Result<std::int16_t> ToInteger(const Variant& value) {
    return WholeFrom<std::int16_t>(value);
}

Result<std::int32_t> ToLong(const Variant& value) {
    return WholeFrom<std::int32_t>(value);
}

Result<bool> ToBoolean(const Variant& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        if (EqualsNoCase(*text, "True")) return true;
        if (EqualsNoCase(*text, "False")) return false;
    }
    Result<double> number = ToDouble(value);
    if (!number.ok()) return number.error();
    return number.value() != 0;
}

Result<std::string> ToText(const Variant& value) {
    if (IsEmpty(value)) return std::string();
    if (const auto* flag = std::get_if<bool>(&value)) return std::string(*flag ? "True" : "False");
    if (const auto* number = std::get_if<std::int16_t>(&value)) return std::to_string(*number);
    if (const auto* number = std::get_if<std::int32_t>(&value)) return std::to_string(*number);
    if (const auto* number = std::get_if<double>(&value)) return DoubleText(*number);
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    if (const auto* date = std::get_if<Date>(&value)) {
        if (!IsValidDate(*date)) return RuntimeError(kOverflowNumber);
        return FormatGeneralDate(*date);
    }
    if (const auto* error = std::get_if<ErrorValue>(&value)) {
        return "Error " + std::to_string(static_cast<std::int32_t>(error->code));
    }
    return RuntimeError(kTypeMismatch);
}

Result<Date> ToDate(const Variant& value) {
    if (const auto* date = std::get_if<Date>(&value)) return *date;
    if (const auto* text = std::get_if<std::string>(&value)) return ParseDate(*text);
    Result<double> number = ToDouble(value);
    if (!number.ok()) return number.error();
    return DateFromNumber(number.value());
}

Status AddLong(std::int32_t& sum, std::int64_t add) {
    std::int32_t result = 0;
    if (__builtin_add_overflow(sum, add, &result)) return RuntimeError(kOverflowNumber);
    sum = result;
    return {};
}

Status AddInteger(std::int16_t& sum, std::int64_t add) {
    std::int16_t result = 0;
    if (__builtin_add_overflow(sum, add, &result)) return RuntimeError(kOverflowNumber);
    sum = result;
    return {};
}

Result<std::int32_t> SubtractLong(std::int32_t from, std::int32_t what) {
    std::int32_t result = 0;
    if (__builtin_sub_overflow(from, what, &result)) return RuntimeError(kOverflowNumber);
    return result;
}

std::int32_t CapLong(std::uint64_t count) {
    constexpr std::uint64_t kMaximum = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::min(count, kMaximum));
}

}  // namespace trevix
