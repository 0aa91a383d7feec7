// Replies from bytes in memory.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/errors.h"
#include "platform/imap/byte_source.h"
#include "platform/imap/reply_parser.h"

namespace trevix::test {

// The bytes in pieces of at most `piece`, then the end.
class MemorySource final : public imap::ByteSource {
 public:
    explicit MemorySource(std::string bytes, std::size_t piece = 1 << 20)
        : bytes_(std::move(bytes)), piece_(piece) {}

    Result<std::size_t> Read(char* target, std::size_t count) override {
        count = std::min({count, piece_, bytes_.size() - at_});
        if (count == 0) return MessagingError(kNetworkError, "the end");
        std::memcpy(target, bytes_.data() + at_, count);
        at_ += count;
        return count;
    }

 private:
    std::string bytes_;
    std::size_t piece_;
    std::size_t at_ = 0;
};

class WantAll final : public imap::ContentRules {
 public:
    explicit WantAll(std::uint64_t most = 1 << 20) : most_(most) {}
    bool Wants(const imap::FetchedSection& /*section*/) const override { return true; }
    std::uint64_t most_content_bytes() const override { return most_; }

 private:
    std::uint64_t most_;
};

inline Result<imap::Reply> ParseOne(const std::string& bytes, std::size_t piece = 1 << 20,
                                    std::size_t kept = 1 << 20, std::size_t skipped = 1 << 22) {
    MemorySource source(bytes, piece);
    imap::Scanner scanner(source, "host", kept, skipped);
    imap::Spool spool("");
    return imap::ReadReply(scanner, spool, WantAll());
}

// The same whether the bytes come at once or in small pieces.
template <typename Kind>
Kind Parsed(const std::string& bytes) {
    Result<imap::Reply> slow = ParseOne(bytes, bytes.size() < 10'000 ? 1 : 997);
    EXPECT_TRUE(slow.ok()) << bytes;
    Result<imap::Reply> reply = ParseOne(bytes);
    if (!reply.ok()) {
        ADD_FAILURE() << bytes << ": " << reply.error().description;
        return {};
    }
    auto* const found = std::get_if<Kind>(&reply.value());
    if (found == nullptr) {
        ADD_FAILURE() << bytes << ": another kind, " << reply.value().index();
        return {};
    }
    return std::move(*found);
}

}  // namespace trevix::test
