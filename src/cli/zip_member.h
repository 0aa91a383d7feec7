// One file of a zip archive, alone. The unzip engine of the core extracts whole archives, and
// refuses one in which any name is unsafe; here the name does not matter, since it is never used as
// a path.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/result.h"

namespace trevix::cli {

struct WantedMember {
    std::int32_t number = 0;  // position in the archive, from 0
    std::string name;         // without its folders
    std::int64_t size = 0;
};

// Hands the content of the entry that is wanted to `sink`, piece by piece, checked against its size
// and its CRC-32 by the time this returns. kNotFound when the archive has no such entry (any more),
// kMalformed when it is damaged, encrypted or of a kind that is not known; else what `sink` said.
Status ReadZipMember(const std::string& archive, const WantedMember& wanted,
                     const std::function<Status(const char*, std::size_t)>& sink);

}  // namespace trevix::cli
