// The text form of the profile file: parsing, and edits that leave all other lines alone.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/profiles/profile_file.h"
#include "platform/result.h"

namespace trevix::profiles {

// A profile and where it stands in the text: from its "[name]" to the byte before the next one.
struct ParsedProfile {
    Profile profile;
    std::size_t begin = 0;
    std::size_t end = 0;
};

// kMalformed with "`path`:line: what" as its description.
Result<std::vector<ParsedProfile>> ParseProfiles(const std::string& text, const std::string& path);

// kMalformed when the profile would not read back as it is.
Result<std::string> FormatProfile(const Profile& profile);

}  // namespace trevix::profiles
