// IncomingCall: a method call that somebody waits for. It is answered once, at once or later.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "platform/dbus/value.h"

namespace trevix::dbus {

inline constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr const char* kUnknownObject = "org.freedesktop.DBus.Error.UnknownObject";
inline constexpr const char* kInvalidArguments = "org.freedesktop.DBus.Error.InvalidArgs";
inline constexpr const char* kFailed = "org.freedesktop.DBus.Error.Failed";
inline constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr const char* kForkFailed = "org.freedesktop.DBus.Error.Spawn.ForkFailed";
inline constexpr const char* kChildExited = "org.freedesktop.DBus.Error.Spawn.ChildExited";

class IncomingCall {
 public:
    // Answers go through here; implemented over the bus, and by tests.
    class Answer {
     public:
        virtual ~Answer() = default;
        virtual void Reply(const Values& results) = 0;
        virtual void Fail(const char* error_name, const std::string& text) = 0;
    };

    IncomingCall(std::unique_ptr<Answer> answer, std::string sender, Values arguments)
        : answer_(std::move(answer)),
          sender_(std::move(sender)),
          arguments_(std::move(arguments)) {}
    IncomingCall(IncomingCall&&) = default;
    IncomingCall& operator=(IncomingCall&&) = delete;

    // A call that nobody answered is answered as failed, so that nobody waits in vain.
    ~IncomingCall() { Fail(kFailed, "the call was not served"); }

    // The caller's unique name.
    const std::string& sender() const { return sender_; }

    // Of the types that the method states.
    const Values& arguments() const { return arguments_; }

    // Only the first answer counts; one that cannot be sent is nobody's any more.
    void Reply(const Values& results = {}) {
        if (answer_ != nullptr) std::exchange(answer_, nullptr)->Reply(results);
    }
    void Fail(const char* error_name, const std::string& text) {
        if (answer_ != nullptr) std::exchange(answer_, nullptr)->Fail(error_name, text);
    }

 private:
    std::unique_ptr<Answer> answer_;
    std::string sender_;
    Values arguments_;
};

}  // namespace trevix::dbus
