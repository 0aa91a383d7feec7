// Which failures are worth another try.
#pragma once

#include "platform/errors.h"
#include "platform/result.h"

namespace trevix {

// Whether the same step will fail the same way next time: what cannot be read, must not be read or
// is not there, as opposed to a device, a lock or a lack of room.
inline bool IsLasting(const Error& error) {
    switch (error.kind) {
        case ErrorKind::kMalformed:
        case ErrorKind::kDenied:
        case ErrorKind::kNotFound:
        case ErrorKind::kUnsupported:
        case ErrorKind::kOverflow:
        case ErrorKind::kConversion: return true;
        default: return error.number == kMultipleStep;
    }
}

}  // namespace trevix
