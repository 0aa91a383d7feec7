#include "index/quiet_messages.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <string_view>
#include <vector>

namespace trevix {
namespace {

// Begins the text; to be raised when messages that gave no rows would give some.
constexpr std::string_view kVersion = "1:";
constexpr std::size_t kDigits = 16;
constexpr std::size_t kMostMessages = 65536;

void Mix(std::uint64_t& hash, unsigned char byte) {
    hash = (hash ^ byte) * 1099511628211ULL;
}

std::uint64_t DigestOf(const std::string& entry_id, Date modified) {
    std::uint64_t hash = 14695981039346656037ULL;
    for (const char c : entry_id)
        Mix(hash, static_cast<unsigned char>(c));
    const auto days = std::bit_cast<std::uint64_t>(modified.days);
    for (int shift = 0; shift < 64; shift += 8)
        Mix(hash, static_cast<unsigned char>(days >> static_cast<unsigned>(shift)));
    // The last bytes went through few rounds: spread them.
    hash ^= hash >> 32U;
    hash *= 0x9E3779B97F4A7C15ULL;
    return hash ^ (hash >> 29U);
}

void AppendHex(std::string& text, std::uint64_t number) {
    constexpr std::string_view kHex = "0123456789ABCDEF";
    for (int shift = 60; shift >= 0; shift -= 4)
        text += kHex[(number >> static_cast<unsigned>(shift)) & 15U];
}

}  // namespace

void QuietMessages::Load(const std::string& text) {
    earlier_.clear();
    if (!text.starts_with(kVersion)) return;
    const std::size_t end = text.size();
    for (std::size_t at = kVersion.size(); at + kDigits <= end; at += kDigits) {
        std::uint64_t digest = 0;
        const char* const first = text.data() + at;
        const auto read = std::from_chars(first, first + kDigits, digest, 16);
        if (read.ec == std::errc() && read.ptr == first + kDigits) earlier_.insert(digest);
    }
}

bool QuietMessages::Holds(const std::string& entry_id, Date modified) const {
    const std::uint64_t digest = DigestOf(entry_id, modified);
    return earlier_.contains(digest) || now_.contains(digest);
}

void QuietMessages::Note(const std::string& entry_id, Date modified) {
    now_.insert(DigestOf(entry_id, modified));
}

std::string QuietMessages::Text() const {
    std::vector<std::uint64_t> digests(now_.begin(), now_.end());
    // In order, so that an unchanged set is an unchanged text.
    std::sort(digests.begin(), digests.end());
    if (digests.size() > kMostMessages) digests.resize(kMostMessages);
    std::string text(kVersion);
    text.reserve(text.size() + digests.size() * kDigits);
    for (const std::uint64_t digest : digests)
        AppendHex(text, digest);
    return text;
}

}  // namespace trevix
