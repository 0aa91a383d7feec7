#include "index/index_memory.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <string_view>
#include <vector>

namespace trevix {
namespace {

// Begins the text; to be raised when messages that gave no rows would give some.
constexpr std::string_view kVersion = "1:";
constexpr char kSeparator = '/';  // between quiet and unfinished messages
constexpr std::size_t kDigits = 16;
constexpr std::size_t kMostQuiet = 65536;

using Digests = std::unordered_set<std::uint64_t>;

void Mix(std::uint64_t& hash, unsigned char byte) {
    hash = (hash ^ byte) * 1099511628211ULL;
}

std::uint64_t DigestOf(const std::string& entry_id, Date modified) {
    std::uint64_t hash = 14695981039346656037ULL;
    for (const char c : entry_id)
        Mix(hash, static_cast<unsigned char>(c));
    const auto days = std::bit_cast<std::uint64_t>(modified.days);
    for (unsigned shift = 0; shift < 64; shift += 8)
        Mix(hash, static_cast<unsigned char>(days >> shift));
    // The last bytes went through few rounds: spread them.
    hash ^= hash >> 32U;
    hash *= 0x9E3779B97F4A7C15ULL;
    return hash ^ (hash >> 29U);
}

// In order, so that an unchanged set is an unchanged text.
void AppendHex(std::string& text, const Digests& digests, std::size_t most) {
    constexpr std::string_view kHex = "0123456789ABCDEF";
    std::vector<std::uint64_t> ordered(digests.begin(), digests.end());
    std::sort(ordered.begin(), ordered.end());
    if (ordered.size() > most) ordered.resize(most);
    text.reserve(text.size() + ordered.size() * kDigits);
    for (const std::uint64_t digest : ordered) {
        for (unsigned shift = 64; shift > 0; shift -= 4)
            text += kHex[(digest >> (shift - 4)) & 15U];
    }
}

void ReadHex(std::string_view text, Digests& digests) {
    for (; text.size() >= kDigits; text.remove_prefix(kDigits)) {
        std::uint64_t digest = 0;
        const char* const end = text.data() + kDigits;
        const auto read = std::from_chars(text.data(), end, digest, 16);
        if (read.ec == std::errc() && read.ptr == end) digests.insert(digest);
    }
}

}  // namespace

void IndexMemory::Load(const std::string& text) {
    quiet_before_.clear();
    unfinished_.clear();
    if (!text.starts_with(kVersion)) return;
    std::string_view all = text;
    all.remove_prefix(kVersion.size());
    const std::size_t separator = std::min(all.find(kSeparator), all.size());
    ReadHex(all.substr(0, separator), quiet_before_);
    if (separator < all.size()) ReadHex(all.substr(separator + 1), unfinished_);
}

bool IndexMemory::IsQuiet(const std::string& entry_id, Date modified) const {
    const std::uint64_t digest = DigestOf(entry_id, modified);
    return quiet_before_.contains(digest) || quiet_.contains(digest);
}

bool IndexMemory::IsUnfinished(const std::string& entry_id) const {
    return !unfinished_.empty() && unfinished_.contains(DigestOf(entry_id, {}));
}

void IndexMemory::NoteQuiet(const std::string& entry_id, Date modified) {
    quiet_.insert(DigestOf(entry_id, modified));
}

void IndexMemory::NoteUnfinished(const std::string& entry_id) {
    unfinished_.insert(DigestOf(entry_id, {}));
}

void IndexMemory::NoteFinished(const std::string& entry_id) {
    if (!unfinished_.empty()) unfinished_.erase(DigestOf(entry_id, {}));
}

std::string IndexMemory::Text() const {
    std::string text(kVersion);
    AppendHex(text, quiet_, kMostQuiet);
    text += kSeparator;
    AppendHex(text, unfinished_, unfinished_.size());
    return text;
}

}  // namespace trevix
