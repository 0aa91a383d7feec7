// The last failure of a procedure that keeps going.
//
// One PendingError lives on the stack of one procedure. Every step that may fail is handed to it,
// the procedure runs on, and the failure waits until a report point reads it. A later success does
// not clear it, a later failure replaces it, Clear() is the only way back to "none". It is never a
// member, never passed down and never returned.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "platform/errors.h"
#include "platform/result.h"

namespace trevix {

class PendingError {
 public:
    // A step without a value. True when it succeeded.
    bool Step(const Status& step) {
        if (!step.ok()) last_ = step.error();
        return step.ok();
    }

    // A step with a value: the value, or `fallback` when the step failed.
    template <typename T>
    T ValueOr(Result<T> step, T fallback) {
        if (step.ok()) return std::move(step).value();
        last_ = step.error();
        return fallback;
    }

    // Assigns only on success; a failed step leaves `target` as it was. True on success.
    template <typename T, typename U>
    bool Assign(T& target, Result<U> step) {
        if (!step.ok()) {
            last_ = step.error();
            return false;
        }
        target = std::move(step).value();
        return true;
    }

    // A condition that may itself fail. The branch to take then is the caller's decision.
    bool Test(Result<bool> step, bool when_failed) { return ValueOr(std::move(step), when_failed); }

    bool failed() const noexcept { return last_.has_value(); }
    ErrorKind kind() const noexcept { return last_ ? last_->kind : ErrorKind::kOther; }
    int number() const noexcept { return last_ ? last_->number : 0; }
    std::string description() const { return last_ ? last_->description : std::string(); }
    void Clear() noexcept { last_.reset(); }

 private:
    std::optional<Error> last_;
};

// Calls `step` with the object, or fails with error 91 when there is none: an absent object is a
// failed step, never a null dereference.
template <typename T, typename Step>
auto On(T* object, Step&& step) -> decltype(step(*object)) {
    if (object == nullptr) return RuntimeError(kObjectNotSet);
    return step(*object);
}

template <typename Pointer, typename Step>
requires requires(const Pointer& pointer) {
    pointer.get();
}
auto On(const Pointer& object, Step&& step) -> decltype(step(*object)) {
    return On(object.get(), std::forward<Step>(step));
}

}  // namespace trevix
