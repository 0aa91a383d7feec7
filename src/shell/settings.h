// The settings, read once a log-on: from the add-in's key under the add-in, else from the companion
// service's key (the rest then comes from the results message).
#pragma once

#include "platform/result.h"
#include "shell/bas_ci.h"

namespace trevix {

inline constexpr const char* kAddinKey =
    "Software\\Microsoft\\Office\\Outlook\\Addins\\QuellmarTrevix.Connect";
inline constexpr const char* kServiceKey =
    "System\\CurrentControlSet\\Services\\TXServer\\Parameters";

// Fills the state's settings and decides its mode. kConversion or kOverflow when a value does not
// convert; the settings after it in the reading order are then left as they were.
Status ReadSettings(BasCI& state);

// The compression level of a "Level" value; exact, case-sensitive tokens, 5 for any other text.
std::int16_t LevelOfToken(const std::string& token);

}  // namespace trevix
