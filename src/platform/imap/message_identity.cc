#include "platform/imap/message_identity.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <utility>

namespace trevix::imap {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool Same(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char left, char right) { return Lower(left) == Lower(right); });
}

template <typename Number>
bool TakeNumber(std::string_view& text, Number& number) {
    const char* const end = text.data() + text.size();
    const auto [stop, failure] = std::from_chars(text.data(), end, number);
    if (failure != std::errc() || stop == text.data()) return false;
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return true;
}

bool TakeBlank(std::string_view& text) {
    if (text.empty() || text.front() != ' ') return false;
    text.remove_prefix(1);
    return true;
}

// Beyond the year 2262 or before 1677 there is no number for it.
std::int64_t Nanoseconds(const DateTime& time) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / kSecond;
    return std::clamp(time.unix_seconds, -kMost, kMost) * kSecond;
}

}  // namespace

std::string KeyOf(const MessageIdentity& identity) {
    return std::to_string(identity.uid_validity) + "/" + std::to_string(identity.uid);
}

std::string EncodeLocator(const MessageIdentity& identity) {
    return std::to_string(identity.uid_validity) + " " + std::to_string(identity.uid) + " " +
           (identity.modseq ? std::to_string(*identity.modseq) : "-");
}

std::optional<MessageIdentity> DecodeLocator(std::string_view locator) {
    MessageIdentity identity;
    if (!TakeNumber(locator, identity.uid_validity) || !TakeBlank(locator) ||
        !TakeNumber(locator, identity.uid) || !TakeBlank(locator)) {
        return std::nullopt;
    }
    if (identity.uid_validity == 0 || identity.uid == 0) return std::nullopt;
    if (locator == "-") return identity;
    std::uint64_t modseq = 0;
    if (!TakeNumber(locator, modseq) || !locator.empty()) return std::nullopt;
    identity.modseq = modseq;
    return identity;
}

FetchRequest EntryRequest(UidSet uids) {
    FetchRequest request;
    request.uids = std::move(uids);
    request.internal_date = true;
    request.size = true;
    request.modseq = true;
    request.save_date = true;
    return request;
}

std::optional<MailEntry> EntryOf(std::uint32_t uid_validity, const FetchedMessage& message) {
    if (!message.size_bytes || !message.internal_date) return std::nullopt;
    const MessageIdentity identity{uid_validity, message.uid, message.modseq};
    MailEntry entry;
    entry.key = KeyOf(identity);
    entry.locator = EncodeLocator(identity);
    entry.size_bytes = *message.size_bytes;
    entry.received_ns = Nanoseconds(*message.internal_date);
    entry.changed_ns = message.save_date ? Nanoseconds(*message.save_date) : entry.received_ns;
    entry.number = static_cast<std::int32_t>(message.uid & 0x7FFFFFFFU);
    return entry;
}

Flags ComparableFlags(const std::vector<std::string>& flags) {
    static constexpr std::array kSystemFlags = {"\\Answered", "\\Deleted", "\\Draft", "\\Flagged",
                                                "\\Seen"};
    Flags result;
    for (const std::string& flag : flags) {
        if (Same(flag, "\\Recent")) continue;
        const auto known = std::find_if(kSystemFlags.begin(), kSystemFlags.end(),
                                        [&flag](const char* one) { return Same(flag, one); });
        result.push_back(known == kSystemFlags.end() ? flag : *known);
    }
    std::sort(result.begin(), result.end());
    result.erase(std::unique(result.begin(), result.end()), result.end());
    return result;
}

bool HasFlag(const Flags& flags, std::string_view flag) {
    return std::find(flags.begin(), flags.end(), flag) != flags.end();
}

}  // namespace trevix::imap
