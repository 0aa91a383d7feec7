#include "platform/recordset/date_text.h"

#include <charconv>
#include <chrono>
#include <cmath>

#include "platform/recordset/text.h"

namespace trevix::recordset {
namespace {

class Cursor {
 public:
    explicit Cursor(std::string_view text) : text_(text) {}

    bool AtEnd() const { return text_.empty(); }
    bool Take(char wanted) {
        if (text_.empty() || text_.front() != wanted) return false;
        text_.remove_prefix(1);
        return true;
    }
    void SkipBlanks() {
        while (Take(' ')) {
        }
    }
    // An unsigned number of at most four digits.
    std::optional<int> TakeNumber() {
        int number = 0;
        const char* const begin = text_.data();
        const auto [end, error] = std::from_chars(begin, begin + text_.size(), number);
        const auto digits = static_cast<std::size_t>(end - begin);
        if (error != std::errc() || text_.front() == '-' || digits > 4) return std::nullopt;
        text_.remove_prefix(digits);
        return number;
    }
    bool TakeWord(std::string_view word) {
        if (text_.size() < word.size() || !FoldedEqual(text_.substr(0, word.size()), word)) {
            return false;
        }
        text_.remove_prefix(word.size());
        return true;
    }

 private:
    std::string_view text_;
};

std::optional<int> DaysOf(int year, int month, int day) {
    const std::chrono::year_month_day date{std::chrono::year(year),
                                           std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok() || year < 100) return std::nullopt;
    constexpr std::chrono::sys_days kZero{std::chrono::year(1899) / std::chrono::December / 30};
    return static_cast<int>((std::chrono::sys_days(date) - kZero).count());
}

// The rest of a date of which `first` was read.
std::optional<int> TakeDate(Cursor& cursor, int first) {
    const bool year_first = cursor.Take('-');
    if (!year_first && !cursor.Take('/')) return std::nullopt;
    const auto second = cursor.TakeNumber();
    if (!second || !cursor.Take(year_first ? '-' : '/')) return std::nullopt;
    const auto third = cursor.TakeNumber();
    if (!third) return std::nullopt;
    return year_first ? DaysOf(first, *second, *third) : DaysOf(*third, first, *second);
}

// The rest of a time of which `hour` was read, in seconds.
std::optional<int> TakeTime(Cursor& cursor, int hour) {
    if (!cursor.Take(':')) return std::nullopt;
    const auto minute = cursor.TakeNumber();
    if (!minute) return std::nullopt;
    std::optional<int> second = 0;
    if (cursor.Take(':')) second = cursor.TakeNumber();
    if (!second || *minute > 59 || *second > 59) return std::nullopt;
    cursor.SkipBlanks();
    const bool am = cursor.TakeWord("AM");
    const bool pm = !am && cursor.TakeWord("PM");
    if (am || pm) {
        if (hour < 1 || hour > 12) return std::nullopt;
        hour = hour % 12 + (pm ? 12 : 0);
    }
    if (hour > 23) return std::nullopt;
    return hour * 3600 + *minute * 60 + *second;
}

}  // namespace

std::optional<double> ParseDateText(std::string_view text) {
    Cursor cursor(text);
    cursor.SkipBlanks();
    const auto first = cursor.TakeNumber();
    if (!first) return std::nullopt;
    std::optional<int> days = 0;
    std::optional<int> seconds = 0;
    Cursor rest = cursor;
    if (rest.Take(':')) {
        seconds = TakeTime(cursor, *first);
    } else {
        days = TakeDate(cursor, *first);
        if (!days) return std::nullopt;
        if (!cursor.Take('T')) cursor.SkipBlanks();
        if (!cursor.AtEnd()) {
            const auto hour = cursor.TakeNumber();
            if (!hour) return std::nullopt;
            seconds = TakeTime(cursor, *hour);
        }
    }
    cursor.SkipBlanks();
    if (!days || !seconds || !cursor.AtEnd()) return std::nullopt;
    const double fraction = *seconds / 86400.0;
    return *days < 0 ? *days - fraction : *days + fraction;
}

}  // namespace trevix::recordset
