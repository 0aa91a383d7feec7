#include "platform/imap/scanner.h"

#include <utility>

#include "platform/errors.h"

namespace trevix::imap {

// The buffer is written before it is read, so it is not cleared first.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
Scanner::Scanner(ByteSource& source, std::string host, std::size_t kept_bytes,
                 std::size_t skipped_bytes)
    : source_(source),
      host_(std::move(host)),
      kept_limit_(kept_bytes),
      skipped_limit_(skipped_bytes) {}

void Scanner::BeginReply() {
    kept_ = 0;
    content_bytes_ = 0;
    // What lies taken in the buffer belongs to the reply before: the difference may start below
    // zero, and unsigned arithmetic brings it back.
    passed_bytes_ = std::uint64_t{0} - at_;
}

bool Scanner::Require(char expected) {
    if (TakeIf(expected)) return true;
    Malformed(expected == '\n'  ? "a line end was expected"
              : expected == ' ' ? "a blank was expected"
              : expected == ')' ? "a closing parenthesis was expected"
                                : "an opening parenthesis or bracket was expected");
    return false;
}

bool Scanner::Keep(std::size_t bytes) {
    if (bytes > kept_limit_ - kept_) return false;
    kept_ += bytes;
    return true;
}

void Scanner::Malformed(const char* what) {
    Fail(
        MessagingError(kCorruptData, host_ + ": the server's reply cannot be understood: " + what));
}

void Scanner::Fail(Error error) {
    if (!failure_) failure_ = std::move(error);
    at_ = 0;
    end_ = 0;
}

bool Scanner::Refill() {
    if (failure_) return false;
    passed_bytes_ += end_;
    at_ = 0;
    end_ = 0;
    if (passed_bytes_ > content_bytes_ && passed_bytes_ - content_bytes_ > skipped_limit_) {
        Fail(MessagingError(kCorruptData, host_ + ": the server's reply is endless"));
        return false;
    }
    const Result<std::size_t> got = source_.Read(buffer_.data(), buffer_.size());
    if (!got.ok()) {
        Fail(got.error());
        return false;
    }
    end_ = got.value();
    return end_ > 0;
}

}  // namespace trevix::imap
