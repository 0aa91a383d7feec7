// Secret: a password or a token, wiped from memory when it goes. It can be moved, never copied, and
// nothing prints it.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "platform/result.h"

namespace trevix::imap {

class Secret {
 public:
    Secret() = default;
    // Takes the text and wipes the place that it came from.
    explicit Secret(std::string&& text) : text_(text) { Wipe(text); }
    // Copied and wiped: moving a short text leaves its bytes where they were.
    // NOLINTNEXTLINE(performance-move-constructor-init)
    Secret(Secret&& other) noexcept : text_(other.text_) { Wipe(other.text_); }
    Secret& operator=(Secret&& other) noexcept {
        if (this == &other) return *this;
        Wipe(text_);
        text_ = other.text_;
        Wipe(other.text_);
        return *this;
    }
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    ~Secret() { Wipe(text_); }

    // Valid while this object lives.
    std::string_view text() const { return text_; }

    // Overwrites all that `text` has room for, in a way that the compiler leaves alone, and empties
    // it. For whatever a secret was built in or copied to.
    static void Wipe(std::string& text) noexcept;

 private:
    std::string text_;
};

}  // namespace trevix::imap
