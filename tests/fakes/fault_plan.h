// FaultPlan: which call of a fake fails, and how. Every fake port's method asks Enter() first.
//
// A run without a planned fault records the names of all calls, so that a sweep knows how many
// there are: fail call 1, 2, 3 ... each once, and each "from then on".
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/result.h"

namespace trevix::fakes {

class FaultPlan {
 public:
    enum class Mode { kOnce, kFromThenOn };

    // `nth` counts from 1.
    void FailCall(int nth, Mode mode, Error error) {
        nth_ = nth;
        mode_ = mode;
        error_ = std::move(error);
    }

    // Fails every call whose name begins with `prefix`.
    void FailCalls(std::string prefix, Error error) {
        prefix_ = std::move(prefix);
        prefix_error_ = std::move(error);
    }

    void Clear() {
        nth_ = 0;
        prefix_.clear();
    }

    Status Enter(const char* call) {
        calls_.emplace_back(call);
        const int now = static_cast<int>(calls_.size());
        const bool hit = nth_ > 0 && (mode_ == Mode::kOnce ? now == nth_ : now >= nth_);
        if (hit) return error_;
        if (!prefix_.empty() && calls_.back().starts_with(prefix_)) return prefix_error_;
        return {};
    }

    const std::vector<std::string>& calls() const { return calls_; }

 private:
    std::vector<std::string> calls_;
    int nth_ = 0;
    Mode mode_ = Mode::kOnce;
    Error error_;
    std::string prefix_;
    Error prefix_error_;
};

}  // namespace trevix::fakes
