// Any bytes as what a server says: read to the first failure, whichever pieces they come in, with
// the same outcome; and as the texts that are in it.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "platform/errors.h"
#include "platform/imap/date_time.h"
#include "platform/imap/mailbox_name.h"
#include "platform/imap/reply_parser.h"
#include "platform/imap/tokens.h"
#include "platform/modified_utf7.h"

namespace trevix::imap {
namespace {

constexpr std::uint64_t kMostContent = std::uint64_t{128} * 1024;
constexpr std::size_t kKeptBytes = std::size_t{64} * 1024;
constexpr std::size_t kSkippedBytes = std::size_t{1024} * 1024;

void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

class Pieces final : public ByteSource {
 public:
    Pieces(std::string_view bytes, std::size_t piece) : bytes_(bytes), piece_(piece) {}

    Result<std::size_t> Read(char* target, std::size_t count) override {
        count = std::min({count, piece_, bytes_.size()});
        if (count == 0) return MessagingError(kNetworkError, "the end");
        std::memcpy(target, bytes_.data(), count);
        bytes_.remove_prefix(count);
        return count;
    }

 private:
    std::string_view bytes_;
    std::size_t piece_;
};

// Wants every other section, so that both ways are gone.
class SomeContent final : public ContentRules {
 public:
    bool Wants(const FetchedSection& section) const override {
        return section.section.size() % 2 == 0;
    }
    std::uint64_t most_content_bytes() const override { return kMostContent; }
};

std::size_t DepthOf(const BodyPart& part) {
    std::size_t deepest = 0;
    for (const BodyPart& child : part.children) {
        deepest = std::max(deepest, DepthOf(child));
    }
    return deepest + 1;
}

void CheckMessage(const FetchedMessage& message) {
    for (const FetchedSection& section : message.sections) {
        Require(section.section.size() % 2 == 0, "only what was wanted is kept");
        if (!section.content) continue;
        Require(section.content->size_bytes() <= kMostContent, "content has its limit");
        Require(section.content->ToString().ok(), "content can be read");
    }
    Require(message.structure == nullptr || message.structure_problem.empty(),
            "a structure is there or is not");
    if (message.structure != nullptr) {
        Require(DepthOf(*message.structure) <= kMostOpenLists, "structures have a depth");
    }
}

// What is compared between two ways of reading the same.
struct Summary {
    std::size_t replies = 0;
    std::size_t kinds = 0;
    std::string error;
    bool operator==(const Summary&) const = default;
};

Summary ReadAll(std::string_view bytes, std::size_t piece) {
    Pieces source(bytes, piece);
    Scanner scanner(source, "host", kKeptBytes, kSkippedBytes);
    Spool spool("");
    Summary summary;
    for (;;) {
        const Result<Reply> reply = ReadReply(scanner, spool, SomeContent());
        if (!reply.ok()) {
            summary.error = reply.error().description;
            return summary;
        }
        ++summary.replies;
        summary.kinds = summary.kinds * 31 + reply.value().index();
        if (const auto* const fetch = std::get_if<FetchReply>(&reply.value())) {
            CheckMessage(fetch->message);
        }
    }
}

void TryTexts(std::string_view text) {
    if (const auto moment = ParseDateTime(text)) {
        Require(ParseDateTime(FormatDateTime(*moment)) == moment, "dates come back");
    }
    if (const auto set = UidSet::Parse(text, 1000)) {
        Require(UidSet::Parse(set->ToText(), 1000) == set, "sets come back");
    }
    const std::string shown = DecodeMailboxName(text);
    const std::string wire = EncodeModifiedUtf7(shown);
    Require(std::all_of(wire.begin(), wire.end(), [](char c) { return c >= 0x20 && c < 0x7F; }),
            "wire names are printable");
    Require(EncodeModifiedUtf7(DecodeMailboxName(wire)) == wire, "wire names come back");
}

}  // namespace
}  // namespace trevix::imap

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    // The limits are looked at when the bytes of a piece are used up, so only what stays well below
    // them is the same for every piece.
    const auto whole = trevix::imap::ReadAll(bytes, size + 1);
    const auto slow = trevix::imap::ReadAll(bytes, 1);
    if (size < trevix::imap::kSkippedBytes) {
        trevix::imap::Require(whole == slow, "pieces make no difference");
    }
    trevix::imap::TryTexts(bytes);
    return 0;
}
