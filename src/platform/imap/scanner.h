// A server's bytes one by one, under limits.
//
// A failure is remembered: from then on Peek() and Take() give kEnd and all readers built on them
// come to their end, so that only who reads a whole reply has to look whether it failed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/imap/byte_source.h"
#include "platform/result.h"

namespace trevix::imap {

class Scanner {
 public:
    static constexpr int kEnd = -1;

    // `host` stands in front of the errors. Of a reply, `kept_bytes` may be kept in memory and
    // `skipped_bytes` may come in all, content not counted.
    Scanner(ByteSource& source, std::string host, std::size_t kept_bytes,
            std::size_t skipped_bytes);

    // The limits start anew.
    void BeginReply();

    int Peek() { return at_ < end_ || Refill() ? static_cast<unsigned char>(buffer_[at_]) : kEnd; }
    int Take() {
        const int byte = Peek();
        if (byte != kEnd) ++at_;
        return byte;
    }
    bool TakeIf(char expected) {
        if (Peek() != static_cast<unsigned char>(expected)) return false;
        ++at_;
        return true;
    }

    // Takes the byte, or the reply is malformed.
    bool Require(char expected);

    // Accounts for something that is about to be kept; false when that is too much.
    bool Keep(std::size_t bytes);

    // `count` bytes of content to sink(const char*, std::size_t), in pieces. A Status that the
    // sink returns ends the scanner.
    template <typename Sink>
    void TakeContent(std::uint64_t count, Sink&& sink) {
        while (count > 0 && Peek() != kEnd) {
            const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(count, end_ - at_));
            content_bytes_ += piece;
            at_ += piece;
            count -= piece;
            if (Status taken = sink(&buffer_[at_ - piece], piece); !taken.ok()) {
                Fail(taken.error());
            }
        }
    }

    // The bytes mean nothing; `what` says what was expected.
    void Malformed(const char* what);
    void Fail(Error error);
    bool failed() const { return failure_.has_value(); }
    const Error& error() const { return *failure_; }

    // What came and was not taken yet.
    std::size_t buffered() const { return end_ - at_; }

 private:
    bool Refill();

    ByteSource& source_;
    std::string host_;
    std::size_t kept_limit_;
    std::size_t skipped_limit_;
    std::size_t kept_ = 0;
    std::uint64_t content_bytes_ = 0;  // taken since the reply began
    std::uint64_t passed_bytes_ = 0;   // left the buffer since the reply began
    std::optional<Error> failure_;
    std::size_t at_ = 0;
    std::size_t end_ = 0;
    std::array<char, std::size_t{32} * 1024> buffer_;
};

}  // namespace trevix::imap
