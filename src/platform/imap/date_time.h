// Date and time as IMAP writes them: " 3-Feb-2021 04:05:06 +0100".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace trevix::imap {

struct DateTime {
    std::int64_t unix_seconds = 0;
    int zone_minutes = 0;  // east of Greenwich; kept so that the text can be given back as it was
    bool operator==(const DateTime&) const = default;
};

// Without the quotes. Nothing when the text is no date or names a day that there is not.
std::optional<DateTime> ParseDateTime(std::string_view text);

std::string FormatDateTime(const DateTime& moment);

}  // namespace trevix::imap
