#include "platform/maildir/file_names.h"

#include <unistd.h>

#include <algorithm>
#include <array>

namespace trevix::maildir {
namespace {

constexpr std::string_view kSuffixMark = ":2,";
constexpr std::size_t kLongestName = 255;

bool IsCapital(char c) {
    return c >= 'A' && c <= 'Z';
}

bool IsCapitalOrDigit(char c) {
    return IsCapital(c) || (c >= '0' && c <= '9');
}

// Where the fields begin: at the first comma that a capital word and "=" follow.
std::size_t FieldsBegin(std::string_view name) {
    for (std::size_t comma = name.find(','); comma != std::string_view::npos;
         comma = name.find(',', comma + 1)) {
        std::size_t at = comma + 1;
        if (at >= name.size() || !IsCapital(name[at])) continue;
        while (at < name.size() && IsCapitalOrDigit(name[at])) {
            ++at;
        }
        if (at < name.size() && name[at] == '=') return comma;
    }
    return name.size();
}

std::string_view WithoutSuffix(std::string_view name) {
    return name.substr(0, name.find(kSuffixMark));
}

std::string_view FlagsOf(std::string_view suffix) {
    return suffix.starts_with(kSuffixMark) ? suffix.substr(kSuffixMark.size()) : suffix;
}

bool Has(std::string_view flags, char flag) {
    return flags.find(flag) != std::string_view::npos;
}

}  // namespace

std::string_view KeyOf(std::string_view name) {
    const std::string_view bare = WithoutSuffix(name);
    const std::string_view base = bare.substr(0, FieldsBegin(bare));
    return base.empty() ? name : base;
}

std::string_view SuffixOf(std::string_view name) {
    const std::size_t mark = name.find(kSuffixMark);
    return mark == std::string_view::npos ? std::string_view() : name.substr(mark);
}

bool HasField(std::string_view name, char letter) {
    const std::string_view bare = WithoutSuffix(name);
    const std::string_view fields = bare.substr(FieldsBegin(bare));
    const std::array<char, 3> wanted = {',', letter, '='};
    return fields.find(std::string_view(wanted.data(), wanted.size())) != std::string_view::npos;
}

std::string CarryFlags(std::string_view current, std::string_view from, std::string_view to) {
    if (current == from) return std::string(to);
    const std::string_view before = FlagsOf(from);
    const std::string_view after = FlagsOf(to);
    std::string flags;
    for (const char flag : FlagsOf(current)) {
        const bool cleared = Has(before, flag) && !Has(after, flag);
        if (!cleared) flags += flag;
    }
    for (const char flag : after) {
        const bool set = !Has(before, flag);
        if (set && !Has(flags, flag)) flags += flag;
    }
    std::sort(flags.begin(), flags.end());
    return std::string(kSuffixMark) + flags;
}

std::string HostForNames() {
    std::array<char, 256> host{};
    if (::gethostname(host.data(), host.size() - 1) != 0 || host[0] == '\0') return "localhost";
    std::string name;
    for (const char c : std::string_view(host.data())) {
        switch (c) {
            case '/': name += "\\057"; break;
            case ':': name += "\\072"; break;
            case ',': name += "\\054"; break;
            default: name += c;
        }
    }
    return name;
}

std::string UniqueBase(const NameParts& parts, std::size_t room) {
    constexpr std::int64_t kSecond = 1000000000;
    std::string base = std::to_string(parts.unix_ns / kSecond) + ".M" +
                       std::to_string(parts.unix_ns % kSecond / 1000) + "P" +
                       std::to_string(parts.process) + "Q" + std::to_string(parts.counter) + "T" +
                       parts.journal_id + ".";
    const std::size_t left =
        kLongestName > base.size() + room ? kLongestName - base.size() - room : 0;
    return base + parts.host.substr(0, left);
}

std::string_view MakerOf(std::string_view name) {
    constexpr std::size_t kIdLength = 16;
    const std::size_t first = name.find('.');
    if (first == std::string_view::npos) return {};
    const std::size_t end = name.find('.', first + 1);
    if (end == std::string_view::npos || end < first + 2 + kIdLength) return {};
    const std::string_view id = name.substr(end - kIdLength, kIdLength);
    const bool is_marked = name[end - kIdLength - 1] == 'T' &&
                           id.find_first_not_of("0123456789abcdef") == std::string_view::npos;
    return is_marked ? id : std::string_view();
}

bool IsMadeBy(std::string_view name, std::string_view journal_id) {
    const std::string mark = "T" + std::string(journal_id) + ".";
    const std::size_t first = name.find('.');
    const std::size_t at = name.find(mark);
    return first != std::string_view::npos && at != std::string_view::npos && first < at &&
           name.find('.', first + 1) == at + mark.size() - 1;
}

}  // namespace trevix::maildir
