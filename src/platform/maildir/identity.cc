#include "platform/maildir/identity.h"

#include <charconv>
#include <utility>

namespace trevix::maildir {
namespace {

template <typename T>
bool TakeNumber(std::string_view& text, T& number) {
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end == text.data() + text.size() || *end != ' ') return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    return true;
}

}  // namespace

std::int64_t Nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1000000000 + time.tv_nsec;
}

Identity IdentityOf(Place place, std::string name, const struct stat& about) {
    return Identity{place,
                    std::move(name),
                    about.st_ino,
                    static_cast<std::uint64_t>(about.st_size),
                    Nanoseconds(about.st_mtim),
                    Nanoseconds(about.st_ctim)};
}

std::string EncodeLocator(const Identity& identity) {
    return std::string(1, static_cast<char>(identity.place)) + " " +
           std::to_string(identity.inode) + " " + std::to_string(identity.size_bytes) + " " +
           std::to_string(identity.mtime_ns) + " " + std::to_string(identity.ctime_ns) + " " +
           identity.name;
}

std::optional<Identity> DecodeLocator(std::string_view locator) {
    if (locator.size() < 2 || locator[1] != ' ') return std::nullopt;
    if (locator[0] != 'n' && locator[0] != 'c') return std::nullopt;
    Identity identity;
    identity.place = locator[0] == 'n' ? Place::kNew : Place::kCur;
    locator.remove_prefix(2);
    if (!TakeNumber(locator, identity.inode) || !TakeNumber(locator, identity.size_bytes) ||
        !TakeNumber(locator, identity.mtime_ns) || !TakeNumber(locator, identity.ctime_ns)) {
        return std::nullopt;
    }
    if (locator.empty() || locator.find('/') != std::string_view::npos) return std::nullopt;
    identity.name = std::string(locator);
    return identity;
}

}  // namespace trevix::maildir
