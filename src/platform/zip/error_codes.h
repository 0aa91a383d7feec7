// The engines' error codes, by name, and how failed system calls become one.
#pragma once

#include <cerrno>
#include <cstdint>

namespace trevix::zip_engine {

using Code = std::int16_t;

inline constexpr Code kOk = 0;
inline constexpr Code kTruncated = 2;
inline constexpr Code kStructure = 3;
inline constexpr Code kNoMemory = 4;
inline constexpr Code kInternal = 5;
inline constexpr Code kBadComment = 7;
inline constexpr Code kTempFile = 10;
inline constexpr Code kReadFailed = 11;
inline constexpr Code kNothingToDo = 12;
inline constexpr Code kMissingArchive = 13;
inline constexpr Code kWriteFailed = 14;
inline constexpr Code kCannotCreate = 15;
inline constexpr Code kBadCommand = 16;
inline constexpr Code kCannotComplete = 17;
inline constexpr Code kCannotOpenInput = 18;
inline constexpr Code kBadParameters = 20;
inline constexpr Code kMultiVolume = 21;

// A file that could not be made: a full disk is told from everything else.
inline Code CreateCode(int system_error) {
    switch (system_error) {
        case ENOSPC:
        case EDQUOT: return kWriteFailed;
        case ENOMEM: return kNoMemory;
        default: return kCannotCreate;
    }
}

// An archive that could not be opened for reading.
inline Code OpenCode(int system_error) {
    switch (system_error) {
        case ENOENT:
        case ENOTDIR: return kMissingArchive;
        case ENOMEM: return kNoMemory;
        default: return kCannotOpenInput;
    }
}

}  // namespace trevix::zip_engine
