// Sizes and times as people write them on a command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/variant.h"

namespace trevix::cli {

// "500", "10k", "5M", "1.5G", "2T", with or without "B" behind; units of 1024 bytes.
std::optional<std::int64_t> ParseSize(const std::string& text);

// "90" or "90s" (seconds), "15m", "2h", "1d", and sums as "1h30m"; in milliseconds. More than
// nothing, at most a year.
std::optional<std::int64_t> ParseDuration(const std::string& text);

// From `begin` to before `end`, both UTC; the same for a moment.
struct Period {
    Date begin;
    Date end;
};

// A local day "2007-10-05", month "2007-10" or year "2007"; or a moment "3d", "2w", "6m" (months)
// or "1y" ago, with or without " ago".
std::optional<Period> ParsePeriod(const std::string& text, Date now_utc);

// Between local time and UTC as this machine's time zone says.
Date LocalFromUtc(Date utc);
Date UtcFromLocal(Date local);

}  // namespace trevix::cli
