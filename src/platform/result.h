// Result, Error and Status: how every fallible call of the ports reports its outcome.
//
// Calls return, they never throw. `Error::kind` is what code branches on; `number` and
// `description` are what the diagnostic log prints, so each implementation fills them with the
// numbers and texts of errors.h. A Result must be consumed: pass it up, hand it to a PendingError
// (util/pending_error.h), or drop it visibly with Drop() and a reason on the line above.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace trevix {

enum class ErrorKind {
    kNotFound,     // no such file, folder, message, field, value
    kDenied,       // no permission, or the object must not be written
    kIo,           // reading, writing or the device failed
    kNoSpace,      // disk or quota full
    kTooMany,      // no descriptor or other resource left
    kExists,       // the name is taken
    kMalformed,    // the bytes do not mean what they should
    kChanged,      // the object was changed by somebody else since it was read
    kGone,         // the object was deleted or moved by somebody else since it was read
    kBusy,         // a lock was not obtained
    kOverflow,     // a number does not fit
    kConversion,   // a value does not convert
    kUnsupported,  // the operation is not offered
    kMissing,      // an object that the step needs is absent
    kOther
};

struct Error {
    ErrorKind kind = ErrorKind::kOther;
    int number = 0;
    std::string description;
};

template <typename T>
class [[nodiscard]] Result {
 public:
    // Both on purpose not explicit: `return value;` and `return error;` are what a Result is for.
    // NOLINTNEXTLINE(google-explicit-constructor)
    Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
    // NOLINTNEXTLINE(google-explicit-constructor)
    Result(Error error) : state_(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return state_.index() == 0; }
    T& value() & { return std::get<0>(state_); }
    const T& value() const& { return std::get<0>(state_); }
    // By value, so that a loop over a temporary Result's value has something to hold on to.
    T value() && { return std::get<0>(std::move(state_)); }
    const Error& error() const { return std::get<1>(state_); }

 private:
    std::variant<T, Error> state_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
    Result() = default;
    // NOLINTNEXTLINE(google-explicit-constructor)
    Result(Error error) : error_(std::move(error)) {}

    bool ok() const { return !error_.has_value(); }
    const Error& error() const { return *error_; }

 private:
    std::optional<Error> error_;
};

using Status = Result<void>;

// Discards an outcome on purpose; the line above the call says why.
template <typename T>
void Drop(const Result<T>& /*outcome*/) {}

}  // namespace trevix

// Passes a failure up. For functions that return a Status or a Result.
#define TREVIX_RETURN_IF_ERROR(expression)                       \
    do {                                                         \
        auto trevix_outcome = (expression);                      \
        if (!trevix_outcome.ok()) return trevix_outcome.error(); \
    } while (false)
