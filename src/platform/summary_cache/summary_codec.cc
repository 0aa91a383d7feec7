#include "platform/summary_cache/summary_codec.h"

#include <algorithm>
#include <cstring>

namespace trevix::summary_cache {
namespace {

// On average one message in so many ends a piece; a piece never has more than four times as many.
constexpr std::uint64_t kPieceMessages = 128;
constexpr std::size_t kLongestPiece = 512;

void PutNumber(std::uint64_t value, std::string* out) {
    while (value >= 0x80U) {
        *out += static_cast<char>(value | 0x80U);
        value >>= 7U;
    }
    *out += static_cast<char>(value);
}

// Small numbers of either sign stay short.
void PutSigned(std::int64_t value, std::string* out) {
    const auto bits = static_cast<std::uint64_t>(value);
    PutNumber(bits << 1U ^ (value < 0 ? ~std::uint64_t{0} : 0), out);
}

void PutText(const std::string& text, std::string* out) {
    PutNumber(text.size(), out);
    *out += text;
}

class Reader {
 public:
    explicit Reader(std::string_view bytes) : bytes_(bytes) {}

    bool AtEnd() const { return bytes_.empty(); }

    bool Number(std::uint64_t* value) {
        *value = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            if (bytes_.empty()) return false;
            const auto byte = static_cast<unsigned char>(bytes_.front());
            bytes_.remove_prefix(1);
            *value |= static_cast<std::uint64_t>(byte & 0x7FU) << shift;
            if (byte < 0x80U) return true;
        }
        return false;
    }

    bool Signed(std::int64_t* value) {
        std::uint64_t bits = 0;
        if (!Number(&bits)) return false;
        *value = static_cast<std::int64_t>(bits >> 1U ^ (~(bits & 1U) + 1U));
        return true;
    }

    bool Text(std::string* text) {
        std::uint64_t size = 0;
        if (!Number(&size) || size > bytes_.size()) return false;
        text->assign(bytes_.data(), static_cast<std::size_t>(size));
        bytes_.remove_prefix(static_cast<std::size_t>(size));
        return true;
    }

 private:
    std::string_view bytes_;
};

void PutMessage(const MessageSummary& message, std::string* out) {
    PutText(message.entry.key, out);
    PutText(message.entry.locator, out);
    PutNumber(message.entry.size_bytes, out);
    PutSigned(message.entry.changed_ns, out);
    PutSigned(message.entry.received_ns, out);
    PutSigned(message.entry.number, out);
    PutSigned(message.first_seen_ns, out);
    PutSigned(message.own_write_ns, out);
    PutNumber(message.has_attachments ? 1 : 0, out);
    PutText(message.subject, out);
    PutText(message.message_class, out);
}

bool GetMessage(Reader& in, MessageSummary* message) {
    std::int64_t number = 0;
    std::uint64_t has_attachments = 0;
    const bool whole = in.Text(&message->entry.key) && in.Text(&message->entry.locator) &&
                       in.Number(&message->entry.size_bytes) &&
                       in.Signed(&message->entry.changed_ns) &&
                       in.Signed(&message->entry.received_ns) && in.Signed(&number) &&
                       in.Signed(&message->first_seen_ns) && in.Signed(&message->own_write_ns) &&
                       in.Number(&has_attachments) && in.Text(&message->subject) &&
                       in.Text(&message->message_class);
    message->entry.number = static_cast<std::int32_t>(number);
    message->has_attachments = has_attachments != 0;
    return whole;
}

}  // namespace

std::uint64_t HashBytes(std::string_view bytes) {
    constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15U;
    std::uint64_t hash = bytes.size() * kMultiplier;
    while (!bytes.empty()) {
        std::uint64_t word = 0;
        const std::size_t take = std::min<std::size_t>(bytes.size(), sizeof word);
        std::memcpy(&word, bytes.data(), take);
        bytes.remove_prefix(take);
        hash = (hash ^ word) * kMultiplier;
        hash ^= hash >> 29U;
    }
    return hash;
}

std::vector<SummaryPiece> EncodeSummaries(const std::vector<MessageSummary>& messages) {
    std::vector<SummaryPiece> pieces;
    std::string bytes;
    std::size_t count = 0;
    const auto finish = [&] {
        pieces.push_back({bytes, HashBytes(bytes)});
        bytes.clear();
        count = 0;
    };
    for (const MessageSummary& message : messages) {
        PutMessage(message, &bytes);
        ++count;
        const bool ends = (HashBytes(message.entry.key) >> 32U) % kPieceMessages == 0;
        if (ends || count == kLongestPiece) finish();
    }
    if (count > 0) finish();
    return pieces;
}

bool DecodeSummaries(std::string_view bytes, std::vector<MessageSummary>* messages) {
    Reader in(bytes);
    while (!in.AtEnd()) {
        if (!GetMessage(in, &messages->emplace_back())) return false;
    }
    return true;
}

}  // namespace trevix::summary_cache
